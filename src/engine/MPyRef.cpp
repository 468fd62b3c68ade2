#include "MPyRef.h"

#include <Python.h>

#include <utility>

namespace quorvel {

namespace {
// Reference counts may only be touched while the interpreter lives. After
// finalization a reference is simply forgotten.
inline void incref(PyObject* p) {
  if (p && Py_IsInitialized()) Py_INCREF(p);
}
inline void decref(PyObject* p) {
  if (p && Py_IsInitialized()) Py_DECREF(p);
}
}  // namespace

TPyRef TPyRef::borrow(PyObject* p) {
  TPyRef r;
  r.m_Object = p;
  incref(p);
  return r;
}

TPyRef TPyRef::steal(PyObject* p) {
  TPyRef r;
  r.m_Object = p;
  return r;
}

TPyRef TPyRef::none() { return borrow(Py_None); }

TPyRef::TPyRef(const TPyRef& other) : m_Object(other.m_Object) { incref(m_Object); }

TPyRef::TPyRef(TPyRef&& other) noexcept : m_Object(std::exchange(other.m_Object, nullptr)) {}

TPyRef& TPyRef::operator=(const TPyRef& other) {
  if (this != &other) {
    PyObject* old = m_Object;
    m_Object = other.m_Object;
    incref(m_Object);
    decref(old);
  }
  return *this;
}

TPyRef& TPyRef::operator=(TPyRef&& other) noexcept {
  if (this != &other) {
    PyObject* old = m_Object;
    m_Object = std::exchange(other.m_Object, nullptr);
    decref(old);
  }
  return *this;
}

TPyRef::~TPyRef() { decref(m_Object); }

bool TPyRef::isNone() const { return m_Object == nullptr || m_Object == Py_None; }

void TPyRef::reset() {
  PyObject* old = std::exchange(m_Object, nullptr);
  decref(old);
}

}  // namespace quorvel

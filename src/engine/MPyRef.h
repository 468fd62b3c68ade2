// A counted reference to an object of the embedded interpreter.
//
// Values and flow objects hold script objects through this class rather than
// through pybind11::object, so that headers stay light and so that a value
// that outlives the interpreter (a static, a value dropped during shutdown)
// never touches a finalized interpreter.
#pragma once

#include <string>

struct _object;
typedef _object PyObject;

namespace quorvel {

class TPyRef {
 public:
  TPyRef() = default;
  // Takes a new reference to p (p may be null).
  static TPyRef borrow(PyObject* p);
  // Takes over a reference that the caller owns.
  static TPyRef steal(PyObject* p);
  // A reference to the interpreter's None.
  static TPyRef none();

  TPyRef(const TPyRef& other);
  TPyRef(TPyRef&& other) noexcept;
  TPyRef& operator=(const TPyRef& other);
  TPyRef& operator=(TPyRef&& other) noexcept;
  ~TPyRef();

  PyObject* get() const { return m_Object; }
  explicit operator bool() const { return m_Object != nullptr; }
  bool isNone() const;
  void reset();

 private:
  PyObject* m_Object = nullptr;
};

}  // namespace quorvel

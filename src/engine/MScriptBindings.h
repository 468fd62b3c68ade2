// What every library's script bindings build on.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <type_traits>

namespace quorvel {

// A class held by shared pointer below `Base`, with its default constructor
// when it has one.
template <class T, class Base>
pybind11::class_<T, Base, std::shared_ptr<T>> bindDerived(pybind11::module_& m, const char* name) {
  auto cls = pybind11::class_<T, Base, std::shared_ptr<T>>(m, name);
  if constexpr (std::is_default_constructible_v<T>) cls.def(pybind11::init<>());
  return cls;
}

}  // namespace quorvel

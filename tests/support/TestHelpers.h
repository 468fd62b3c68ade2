// Small helpers shared by the tests.
#pragma once

#include <exception>
#include <functional>
#include <string>

namespace quorvel::test {

// The text of what f raises, or "<no exception>".
inline std::string errorOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "<no exception>";
}

}  // namespace quorvel::test

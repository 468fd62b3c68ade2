// The base class of the failures that carry the fixed texts callers and the
// central handler see.
#pragma once

#include <stdexcept>

namespace quorvel {

class TFlowError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace quorvel

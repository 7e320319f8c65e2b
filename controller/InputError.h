#pragma once

#include <stdexcept>

namespace zelor::controller {

/// Arguments, requests or a configuration that cannot be used: nothing was changed. The text names the thing
/// and the remedy.
class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace zelor::controller

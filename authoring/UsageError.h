#pragma once

#include <stdexcept>

namespace zelor::authoring {

/// Arguments, a manifest or a key that cannot be used: the command ends with status 2 and has changed
/// nothing.
class UsageError : public std::runtime_error {
  public:
    /// `what`: the problem and its remedy, for standard error.
    using std::runtime_error::runtime_error;
};

}  // namespace zelor::authoring

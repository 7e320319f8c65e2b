#pragma once

#include <cstddef>
#include <string>

#include "controller/States.h"

namespace zelor::controller {

/// The most invalid requests that are shown one by one; a file can have a million of them.
constexpr std::size_t kInvalidRequestsShown = 1000;

/// Decides which changes a display leaves out.
class InvalidRequestLimit {
  public:
    /// True when a change to `value` is one invalid request too many.
    bool leavesOut(ProgressValue value) {
        if (value != kInvalidRequestValue || ++seen_ <= kInvalidRequestsShown) return false;
        ++leftOut_;
        return true;
    }
    /// A line on those that were left out since the last call, "" for none.
    std::string takeText() {
        const std::size_t count = leftOut_;
        leftOut_ = 0;
        if (count == 0) return "";
        return std::to_string(count) + " more invalid request" + (count == 1 ? " is" : "s are") +
               " not shown; --json has all";
    }

  private:
    std::size_t seen_ = 0;
    std::size_t leftOut_ = 0;
};

}  // namespace zelor::controller

#pragma once

#include <cerrno>
#include <cstring>
#include <string>
#include <tl/expected.hpp>
#include <utility>

namespace zelor::base {

/// Why something did not succeed.
struct Failure {
    std::string text;  ///< for the log or a message, with the remedy where there is one
    int error = 0;     ///< errno of the system call that failed; 0 when none did
};

/// A value, or why there is none: for what is expected to fail, such as reading a file that somebody else
/// wrote. The compiler warns when it is ignored. What must not happen is thrown; thin wrappers of system
/// calls return bool and leave errno.
template <class Value>
class [[nodiscard]] Result : public tl::expected<Value, Failure> {
  public:
    /// Made from a value, or from what `failure` and `systemFailure` return.
    using tl::expected<Value, Failure>::expected;
};

/// Success without a value, or why there is none.
using Check = Result<void>;

/// What a function that returns a Result returns for a failure. No system call caused it.
inline tl::unexpected<Failure> failure(std::string text) {
    return tl::unexpected<Failure>(Failure{std::move(text), 0});
}

/// Passes a failure on.
inline tl::unexpected<Failure> failure(Failure cause) {
    return tl::unexpected<Failure>(std::move(cause));
}

/// As `failure`, right after a failed system call: the text is `what` and a colon, if given, and the text of
/// errno.
inline tl::unexpected<Failure> systemFailure(const std::string& what = {}) {
    const int error = errno;
    return tl::unexpected<Failure>(Failure{(what.empty() ? "" : what + ": ") + std::strerror(error), error});
}

}  // namespace zelor::base

#pragma once

namespace zelor::base {

/// A deleter for smart pointers to handles of C libraries: calls the function `release`, whose result is
/// ignored.
template <auto release>
struct Deleter {
    /// Called by the smart pointer, whose handle is never null.
    template <class Handle>
    void operator()(Handle* handle) const {
        (void)release(handle);
    }
};

}  // namespace zelor::base

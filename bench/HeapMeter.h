#pragma once

#include <cstddef>

namespace zelor::bench {

/// Counts what the process takes from the heap between `start` and `peak`.
struct HeapMeter {
    static void start();
    /// The most bytes in use at once since `start`, beyond what was in use then.
    static std::size_t peak();
    /// Gives free memory back to the system, so that what follows takes its pages anew, as a fresh process
    /// does.
    static void release();
};

}  // namespace zelor::bench

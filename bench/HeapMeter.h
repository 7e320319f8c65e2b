#pragma once

#include <cstddef>

namespace zelor::bench {

/// Counts what the process takes from the heap between `start` and `peak`.
struct HeapMeter {
    static void start();
    /// The most bytes in use at once since `start`, beyond what was in use then.
    static std::size_t peak();
    /// Returns free memory to the system, so that later allocations take new pages, as in a new process.
    static void release();
};

}  // namespace zelor::bench

#pragma once

#include <cstddef>
#include <string>

namespace zelor::base {

/// Keeps the first and the last half of `bound` bytes of a stream; what lies between is dropped as it comes.
class OutputBuffer {
  public:
    explicit OutputBuffer(std::size_t bound) : half_(bound / 2) {}

    void add(const char* data, std::size_t size);
    /// Counts `size` bytes of the stream as dropped. At least half of the bound is to be added before and
    /// after.
    void skip(std::size_t size) { size_ += size; }
    /// Bytes added so far, the dropped ones included.
    std::size_t size() const { return size_; }
    /// What was kept, with a line that says how much is missing where bytes were dropped. Leaves the buffer
    /// empty.
    std::string take();

  private:
    std::size_t half_;
    std::size_t size_ = 0;
    std::string head_;
    std::string tail_;  ///< a ring once it is full: the oldest byte is at `start_`
    std::size_t start_ = 0;
};

}  // namespace zelor::base

#include "base/OutputBuffer.h"

#include <algorithm>
#include <utility>

namespace zelor::base {

void OutputBuffer::add(const char* data, std::size_t size) {
    size_ += size;
    const std::size_t toHead = std::min(size, half_ - head_.size());
    head_.append(data, toHead);
    data += toHead;
    size -= toHead;
    if (size > half_) {
        data += size - half_;
        size = half_;
    }
    const std::size_t toTail = std::min(size, half_ - tail_.size());
    tail_.append(data, toTail);
    for (data += toTail, size -= toTail; size > 0;) {
        const std::size_t run = std::min(size, half_ - start_);
        tail_.replace(start_, run, data, run);
        start_ = (start_ + run) % half_;
        data += run;
        size -= run;
    }
}

std::string OutputBuffer::take() {
    const std::size_t kept = head_.size() + tail_.size();
    std::string text = std::move(head_);
    if (size_ > kept) text += "\n[" + std::to_string(size_ - kept) + " bytes left out]\n";
    text.append(tail_, start_, std::string::npos).append(tail_, 0, start_);
    *this = OutputBuffer(half_ * 2);
    return text;
}

}  // namespace zelor::base

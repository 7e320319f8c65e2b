#include "bench/HeapMeter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr long kBookkeeping = 8;  // what malloc keeps before each block

std::atomic<bool> counting{false};
std::atomic<long> inUse{0};
std::atomic<long> most{0};

void count(void* block, long sign) {
    if (!counting.load(std::memory_order_relaxed) || block == nullptr) return;
    const long bytes = static_cast<long>(malloc_usable_size(block)) + kBookkeeping;
    const long now = inUse.fetch_add(sign * bytes) + sign * bytes;
    if (now > most.load()) most = now;
}

}  // namespace

void* operator new(std::size_t size) {
    void* block = std::malloc(size);
    if (block == nullptr) throw std::bad_alloc();
    count(block, 1);
    return block;
}
void operator delete(void* block) noexcept {
    count(block, -1);
    std::free(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
    operator delete(block);
}

namespace zelor::bench {

void HeapMeter::start() {
    inUse = 0;
    most = 0;
    counting = true;
}

std::size_t HeapMeter::peak() {
    counting = false;
    return static_cast<std::size_t>(most.load());
}

void HeapMeter::release() {
    malloc_trim(0);
}

}  // namespace zelor::bench

#pragma once

#include <chrono>

namespace zelor::test {

/// Within this what a cancel or a limit of the test ends has ended, on a busy machine too; what would end it
/// otherwise takes longer. How long a cancel really takes is measured by the benchmark.
inline constexpr std::chrono::seconds kSoon{8};

}  // namespace zelor::test

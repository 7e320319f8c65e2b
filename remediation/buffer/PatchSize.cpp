#include "remediation/buffer/PatchSize.h"

#include <cstdint>
#include <vector>

#include "base/Strings.h"

namespace zelor::remediation {

namespace {

float fractionOf(const std::string& digits) {
    auto fraction = static_cast<float>(base::leadingInt(digits));
    if (fraction < 10) return fraction / 10;
    if (fraction < 100) return fraction / 100;
    if (fraction < 1000) return fraction / 1000;
    return fraction;
}

}  // namespace

PatchSize parsePatchSize(const std::string& text) {
    constexpr std::size_t kUnitLength = 2;
    const std::string size = base::trimmed(text);
    const std::size_t cut = size.size() < kUnitLength ? 0 : size.size() - kUnitLength;
    PatchSize result{size.substr(0, cut), base::lowerCased(size.substr(cut)), 0};
    const std::vector<std::string> parts = base::splitCompressed(result.number, '.');
    const float fraction = parts.size() == 2 ? fractionOf(parts[1]) : 0.0F;
    const long whole = base::leadingInt(parts[0]);
    if (result.unit == "kb") {
        result.bytes = whole * 1024 + static_cast<long>(fraction * 1024);
    } else if (result.unit == "mb") {
        result.bytes = whole * 1048576 + static_cast<long>(fraction * 1024 * 1024);
    } else {
        result.bytes = whole;
    }
    return result;
}

long budgetBytes(const std::string& megabytes) {
    constexpr int kMegabyteBits = 20;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(base::leadingInt(megabytes))
                                     << kMegabyteBits);
}

unsigned long shareOfBandwidth(unsigned long bytesPerSecond, int percent) {
    if (percent <= 0) return 0;
    return static_cast<unsigned long>(static_cast<long double>(bytesPerSecond) *
                                      (static_cast<long double>(percent) / 100));
}

}  // namespace zelor::remediation

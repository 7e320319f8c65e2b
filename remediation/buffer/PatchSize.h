#pragma once

#include <string>

/// The arithmetic of the buffer's budget and rate, on texts from content and settings.
namespace zelor::remediation {

/// A size text such as "12.5 MB", taken apart.
struct PatchSize {
    std::string number;  ///< all but the last two characters
    std::string unit;    ///< the last two characters, lower-cased
    long bytes = 0;      ///< KB and MB are scaled; with any other unit the whole part counts as bytes
};

/// The fraction is a single-precision float made from the digits after the "." without leading zeros: "2.05"
/// counts as "2.5". Published sizes rely on this.
PatchSize parsePatchSize(const std::string& text);

/// The bytes of a budget in megabytes, in 32-bit arithmetic: 2048 and more wrap around.
long budgetBytes(const std::string& megabytes);

/// `percent` of `bytesPerSecond`, rounded down; never negative.
unsigned long shareOfBandwidth(unsigned long bytesPerSecond, int percent);

}  // namespace zelor::remediation

#include "authoring/manifest/SizeText.h"

#include <algorithm>

#include "base/Strings.h"
#include "remediation/buffer/PatchSize.h"

namespace zelor::authoring {

namespace {

constexpr std::uint64_t kKilobyte = 1024;
constexpr std::uint64_t kMegabyte = 1024 * kKilobyte;

bool isDigits(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::string sizeText(std::uint64_t bytes) {
    if (bytes <= kMegabyte - kKilobyte) {
        return std::to_string(std::max<std::uint64_t>(1, (bytes + kKilobyte - 1) / kKilobyte)) + " KB";
    }
    const std::uint64_t tenths =
        bytes / kMegabyte * 10 + (bytes % kMegabyte * 10 + kMegabyte - 1) / kMegabyte;
    std::string text = std::to_string(tenths / 10);
    if (tenths % 10 != 0) text += '.' + std::to_string(tenths % 10);
    return text + " MB";
}

std::string whySizeMisleads(const std::string& size) {
    const remediation::PatchSize read = remediation::parsePatchSize(size);
    const std::string asRead = "reads as " + std::to_string(read.bytes) + " bytes";
    if (read.unit != "kb" && read.unit != "mb") return asRead + ": only KB and MB are units";
    const std::string number = base::trimmed(read.number);
    const auto dot = number.find('.');
    const std::string fraction = dot == std::string::npos ? "1" : number.substr(dot + 1);
    if (!isDigits(number.substr(0, dot)) || !isDigits(fraction))
        return asRead + ": its number is not a plain decimal";
    constexpr std::size_t kLongestFraction = 3;
    if (dot != std::string::npos && (fraction[0] == '0' || fraction.size() > kLongestFraction)) {
        return asRead + ": a fraction is read without its leading zeros and up to three digits";
    }
    return "";
}

}  // namespace zelor::authoring

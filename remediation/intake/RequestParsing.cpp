#include "remediation/intake/RequestParsing.h"

#include <algorithm>
#include <utility>

#include "base/Strings.h"

namespace zelor::remediation {

namespace {

bool areDigits(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

ProgressKey::ProgressKey(const std::string& requestKey) : text_(&requestKey) {
    const auto at = requestKey.find("||");
    if (at == std::string::npos || requestKey.find("oval:", at + 2) == std::string::npos) return;
    cpe_ = requestKey.substr(0, at);
    text_ = &cpe_;
}

RequestKey parseRequestKey(std::string_view trimmedKey, bool configuration) {
    const auto bars = trimmedKey.find("||");
    RequestKey request;
    if (!configuration && bars != std::string_view::npos) request.packageName = trimmedKey.substr(bars + 2);
    std::string_view list = trimmedKey.substr(0, bars);
    if (base::hasEnding(list, ",")) list.remove_suffix(1);
    request.cpes = base::splitCompressed(list, ',');
    const auto isEmpty = [](const std::string& cpe) { return cpe.empty(); };
    if (std::all_of(request.cpes.begin(), request.cpes.end(), isEmpty)) request.cpes.clear();
    return request;
}

bool isConfiguration(std::string_view identifier) {
    return base::hasBeginning(identifier, "CCE-");
}

bool isCceIdentifier(const std::string& text) {
    constexpr std::size_t kPrefix = 4, kMostDigits = 7;
    const std::size_t end = text.size();
    return isConfiguration(text) && end >= kPrefix + 3 && end <= kPrefix + kMostDigits + 2 &&
           text[end - 2] == '-' && areDigits(text.substr(kPrefix, end - 2 - kPrefix)) &&
           areDigits(text.substr(end - 1));
}

bool isCveIdentifier(const std::string& text) {
    constexpr std::size_t kPrefix = 4, kYear = 4, kFewestDigits = 4, kMostDigits = 19;
    constexpr std::size_t kNumber = kPrefix + kYear + 1;
    return base::hasBeginning(text, "CVE-") && text.size() >= kNumber + kFewestDigits &&
           text.size() <= kNumber + kMostDigits && text[kNumber - 1] == '-' &&
           areDigits(text.substr(kPrefix, kYear)) && areDigits(text.substr(kNumber));
}

CpeCount cpeCount(const RequestKey& request) {
    if (request.cpes.empty()) return CpeCount::none;
    return request.cpes.size() > 2 ? CpeCount::tooMany : CpeCount::usable;
}

std::string whyUnusable(CpeCount count) {
    switch (count) {
        case CpeCount::none:
            return "the request names no CPE";
        case CpeCount::tooMany:
            return "the request names more than two CPEs";
        case CpeCount::usable:
            break;
    }
    return "";
}

bool containsPatchId(const std::string& reference) {
    const std::vector<std::string> tokens = base::splitCompressed(reference, ' ');
    return std::any_of(tokens.begin(), tokens.end(), [](const std::string& token) {
        return !base::hasBeginning(token, "CVE-") && !base::hasBeginning(token, "CCE-");
    });
}

RequestTarget requestTarget(std::vector<std::string> cpes, const std::string& defaultPlatformCpe,
                            const std::set<std::string>& specialCases) {
    RequestTarget target{defaultPlatformCpe, ""};
    for (std::string& cpe : cpes) {
        if (base::hasBeginning(cpe, "cpe:/o")) {
            (specialCases.count(cpe) != 0 ? target.productCpe : target.platformCpe) = std::move(cpe);
        } else if (base::hasBeginning(cpe, "cpe:/a")) {
            target.productCpe = std::move(cpe);
        }
    }
    return target;
}

}  // namespace zelor::remediation

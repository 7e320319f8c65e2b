#include "rehearsal/OsVersion.h"

#include <map>
#include <regex>
#include <stdexcept>

namespace zelor::rehearsal {

OsVersion parseOsVersion(const std::string& text) {
    static const std::regex kShape("([0-9]{2})(?:\\.([0-9]{1,2}))?(?:\\.[0-9]{1,2})?");
    std::smatch parts;
    if (!std::regex_match(text, parts, kShape)) {
        throw std::invalid_argument("\"" + text + "\" is not a version such as 10.9.5 or 13.2.1");
    }
    OsVersion version;
    version.major = std::stoi(parts[1].str());
    version.minor = parts[2].matched ? std::stoi(parts[2].str()) : 0;
    if (!version.atLeast(10, 9)) {
        throw std::invalid_argument("\"" + text + "\" is too old: 10.9 is the first system known here");
    }
    return version;
}

std::string reportedVersion(const std::string& text) {
    static const std::regex kWithZero("([0-9]+\\.[0-9]+)\\.0+");
    std::smatch parts;
    return std::regex_match(text, parts, kWithZero) ? parts[1].str() : text;
}

std::string productNameOf(const OsVersion& version) {
    return version.atLeast(11) ? "macOS" : "Mac OS X";
}

std::string buildOf(const std::string& version) {
    static const std::map<std::string, std::string> kKnown{
        {"10.9.5", "13F34"},  {"10.10.5", "14F1021"}, {"10.11.6", "15G31"}, {"10.12.6", "16G29"},
        {"10.13.6", "17G65"}, {"10.14.6", "18G84"},   {"10.15.7", "19H2"},  {"11.6", "20G165"},
        {"12.6", "21G115"},   {"13.2.1", "22D68"}};
    const auto it = kKnown.find(version);
    if (it != kKnown.end()) return it->second;
    const OsVersion parsed = parseOsVersion(version);
    const int train = parsed.major == 10 ? parsed.minor + 4 : parsed.major + 9;
    return std::to_string(train) + "A100";
}

}  // namespace zelor::rehearsal

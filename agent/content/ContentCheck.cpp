#include "agent/content/ContentCheck.h"

#include <algorithm>
#include <string_view>

#include "base/Strings.h"

namespace zelor::agent {

namespace {

constexpr std::size_t kNameLimit = 200;
constexpr std::size_t kPathLimit = 1000;
constexpr std::size_t kVersionLimit = 64;

bool hasOnly(const std::string& text, std::string_view others) {
    return std::all_of(text.begin(), text.end(), [&](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               others.find(c) != std::string_view::npos;
    });
}

bool isPlainFileName(const std::string& name) {
    const auto dot = name.rfind('.');
    return name.size() <= kNameLimit && dot != std::string::npos && dot > 0 && dot + 1 < name.size() &&
           name.find('/') == std::string::npos && name.front() != '.';
}

bool isPlainPath(const std::string& path) {
    if (path.size() > kPathLimit || path.size() < 2 || path.front() != '/') return false;
    const std::string ended = path + '/';
    return !base::contains(ended, "/../") && !base::contains(ended, "/./") && !base::contains(ended, "//");
}

std::string problemOfName(const ContentCheck& check) {
    switch (check.kind) {
        case ContentCheck::Kind::script:
            return isPlainFileName(check.name)
                       ? ""
                       : "the id of a check is not a plain file name with an extension";
        case ContentCheck::Kind::receipt:
            return !check.name.empty() && check.name.size() <= kNameLimit && check.name.front() != '-' &&
                           hasOnly(check.name, "._-+")
                       ? ""
                       : "the receipt of a check is not a package identifier";
        case ContentCheck::Kind::bundle:
            return isPlainPath(check.name) ? "" : "the bundle of a check is not a plain absolute path";
        case ContentCheck::Kind::other:
            break;
    }
    return "";
}

}  // namespace

std::string problemOf(const ContentCheck& check) {
    if (std::string problem = problemOfName(check); !problem.empty()) return problem;
    const bool versioned = check.version.size() <= kVersionLimit && hasOnly(check.version, "._-+");
    return versioned ? "" : "the version of a check is not a version such as 2.1.0";
}

}  // namespace zelor::agent

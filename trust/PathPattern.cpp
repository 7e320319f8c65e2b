#include "trust/PathPattern.h"

#include "base/Strings.h"

namespace zelor::trust {

namespace {

constexpr std::size_t kPathLimit = 4096;

/// Cuts the part before the next '/' off the front.
std::string_view takePart(std::string_view& path, bool& more) {
    const auto end = path.find('/');
    const std::string_view part = path.substr(0, end);
    more = end != std::string_view::npos;
    path = more ? path.substr(end + 1) : std::string_view();
    return part;
}

bool partMatches(std::string_view pattern, std::string_view text) {
    std::size_t p = 0, t = 0, star = std::string_view::npos, retry = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            retry = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;  // the last star takes one more character
            t = ++retry;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

bool isUnreserved(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

}  // namespace

bool pathMatches(std::string_view pattern, std::string_view path) {
    bool morePattern = true, morePath = true;
    while (morePattern && morePath) {
        const std::string_view part = takePart(pattern, morePattern);
        if (!partMatches(part, takePart(path, morePath))) return false;
    }
    return morePattern == morePath;
}

std::string percentEncoded(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (isUnreserved(c)) {
            out += c;
        } else {
            out += '%';
            base::appendHex(out, static_cast<unsigned char>(c), base::HexCase::upper);
        }
    }
    return out;
}

std::string percentEncodedPath(const std::string& path) {
    std::string out;
    std::string_view rest = path;
    for (bool more = true; more;) {
        out += percentEncoded(std::string(takePart(rest, more)));
        if (more) out += '/';
    }
    return out;
}

bool isTargetPath(const std::string& path) {
    if (path.empty() || path.size() > kPathLimit || base::hasControlCharacter(path)) return false;
    std::string_view rest = path;
    for (bool more = true; more;) {
        const std::string_view part = takePart(rest, more);
        if (part.empty() || part == "." || part == "..") return false;
    }
    return true;
}

}  // namespace zelor::trust

#include "results/Text.h"

#include <time.h>

#include <algorithm>
#include <array>

#include "base/Strings.h"
#include "base/Utf8.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::results {

std::size_t columnsOf(const std::string& printableText) {
    const base::Utf8Locale utf8;
    std::size_t columns = 0;
    for (std::size_t at = 0; at < printableText.size();) {
        const base::Character character = base::characterAt(printableText, at);
        columns += static_cast<std::size_t>(std::max(base::columnsOfCharacter(character.code), 0));
        at += character.bytes;
    }
    return columns;
}

std::string cutToColumns(const std::string& printableText, std::size_t columns, const std::string& ellipsis) {
    if (columnsOf(printableText) <= columns) return printableText;
    const std::size_t mark = columnsOf(ellipsis);
    if (mark > columns) return "";
    const base::Utf8Locale utf8;
    std::size_t used = mark;
    std::size_t at = 0;
    while (at < printableText.size()) {
        const base::Character character = base::characterAt(printableText, at);
        const auto wide = static_cast<std::size_t>(std::max(base::columnsOfCharacter(character.code), 0));
        if (used + wide > columns) break;
        used += wide;
        at += character.bytes;
    }
    return printableText.substr(0, at) + ellipsis;
}

std::string utcText(std::chrono::system_clock::time_point time) {
    const time_t seconds = std::chrono::system_clock::to_time_t(time);
    tm utc{};
    ::gmtime_r(&seconds, &utc);
    std::array<char, 32> text{};
    ::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text.data();
}

std::string countText(std::size_t count, const std::string& noun) {
    if (count == 1) return "1 " + noun;
    const std::string number = std::to_string(count) + ' ';
    if (base::hasEnding(noun, "y")) return number + noun.substr(0, noun.size() - 1) + "ies";
    return number + noun + (base::hasEnding(noun, "ch") ? "es" : "s");
}

std::string escapedMarkup(const std::string& printableText) {
    std::string markup;
    for (const char letter : printableText) {
        switch (letter) {
            case '&':
                markup += "&amp;";
                break;
            case '<':
                markup += "&lt;";
                break;
            case '>':
                markup += "&gt;";
                break;
            case '"':
                markup += "&quot;";
                break;
            case '\'':
                markup += "&#39;";
                break;
            default:
                markup += letter;
        }
    }
    return markup;
}

std::string markupText(const std::string& text) {
    std::string markup;
    for (std::size_t start = 0; start <= text.size();) {
        const auto end = std::min(text.find('\n', start), text.size());
        if (start > 0) markup += '\n';
        markup += escapedMarkup(base::printable(text.substr(start, end - start)));
        start = end + 1;
    }
    return markup;
}

std::string packageNameOf(const std::string& key) {
    const std::string name =
        base::trimmed(remediation::parseRequestKey(base::trimmed(key), false).packageName);
    return base::contains(name, "oval:") ? "" : name;
}

std::string requestLabel(const std::string& key) {
    const std::string name = packageNameOf(key);
    if (!name.empty()) return base::printable(name);
    const remediation::RequestKey parsed = remediation::parseRequestKey(base::trimmed(key), false);
    return base::printable(parsed.cpes.empty() ? key : parsed.cpes.back());
}

}  // namespace zelor::results

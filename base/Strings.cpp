#include "base/Strings.h"

#include <algorithm>
#include <boost/algorithm/string/trim.hpp>
#include <cstdlib>
#include <numeric>

namespace zelor::base {

namespace {

/// The C locale's tolower: another locale could change bytes in the middle of a UTF-8 character.
char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

/// Printable ASCII: white space in no locale.
bool isVisible(char c) {
    return c > ' ' && c < 0x7f;
}

}  // namespace

bool hasBeginningInAnyCase(const std::string& text, std::string_view beginning) {
    return text.size() >= beginning.size() &&
           std::equal(beginning.begin(), beginning.end(), text.begin(),
                      [](char expected, char c) { return lowerCase(c) == expected; });
}

std::string trimmed(std::string text) {
    if (text.empty() || (isVisible(text.front()) && isVisible(text.back()))) return text;
    boost::algorithm::trim(text);
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    while (hasBeginning(text, "\r"))
        text.erase(0, 1);
    while (hasBeginning(text, "\n"))
        text.erase(0, 1);
    boost::algorithm::trim(text);
    return text;
}

std::string_view trimmedView(std::string_view text, std::string_view blanks) {
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string lastLine(const std::string& text) {
    const std::string whole = trimmed(text);
    const auto newline = whole.rfind('\n');
    return newline == std::string::npos ? whole : trimmed(whole.substr(newline + 1));
}

std::string lowerCased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), lowerCase);
    return text;
}

std::vector<std::string> splitInTwo(const std::string& text, const std::string& delimiter) {
    const auto at = text.find(delimiter);
    if (at == std::string::npos) return {text};
    return {text.substr(0, at), text.substr(at + delimiter.size())};
}

std::vector<std::string> splitCompressed(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    pieces.reserve(2);  // most lists have one or two
    std::size_t start = 0;
    for (auto at = text.find(separator); at != std::string_view::npos; at = text.find(separator, start)) {
        pieces.emplace_back(text.substr(start, at - start));
        start = std::min(text.find_first_not_of(separator, at), text.size());
    }
    pieces.emplace_back(text.substr(start));
    return pieces;
}

int leadingInt(const std::string& text) {
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

std::size_t editDistance(const std::string& one, const std::string& other) {
    const auto same = [&](std::size_t i, std::size_t j) { return lowerCase(one[i]) == lowerCase(other[j]); };
    std::vector<std::size_t> beforeLast(other.size() + 1);
    std::vector<std::size_t> last(other.size() + 1);
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        beforeLast.swap(last);
        last.swap(row);
        row[0] = i + 1;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t replaced = last[j] + (same(i, j) ? 0 : 1);
            row[j + 1] = std::min({replaced, row[j] + 1, last[j + 1] + 1});
            const bool swapped = i > 0 && j > 0 && same(i, j - 1) && same(i - 1, j);
            if (swapped) row[j + 1] = std::min(row[j + 1], beforeLast[j - 1] + 1);
        }
    }
    return row.back();
}

std::string nearestWord(const std::string& word, const std::vector<std::string>& known) {
    constexpr std::size_t kLongestWord = 40;
    constexpr std::size_t kShortestBeginning = 2;
    if (word.empty() || word.size() > kLongestWord) return "";
    std::string best;
    std::size_t fewest = word.size() / 3 + 1;  // exclusive
    for (const std::string& one : known) {
        if (word.size() >= kShortestBeginning && hasBeginning(one, word)) return one;
        const std::size_t distance = editDistance(word, one);
        if (distance >= fewest || distance >= one.size()) continue;
        fewest = distance;
        best = one;
    }
    return best;
}

bool hasControlCharacter(const std::string& text) {
    return std::any_of(text.begin(), text.end(), isControl);
}

bool isDamagedLine(std::string_view line) {
    return std::any_of(line.begin(), line.end(),
                       [](char c) { return isControl(c) && c != '\t' && c != '\r'; });
}

std::string insideSingleQuotes(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (char c : text) {
        if (c == '\'') {
            escaped += "'\\''";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::string shellWord(const std::string& word) {
    static const std::string kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@%+=:,./-";
    const bool bare = !word.empty() && word.find_first_not_of(kPlain) == std::string::npos;
    return bare ? word : "'" + insideSingleQuotes(word) + "'";
}

void appendHex(std::string& out, unsigned char byte, HexCase digits) {
    const char* table = digits == HexCase::lower ? "0123456789abcdef" : "0123456789ABCDEF";
    out += table[byte >> 4U];
    out += table[byte & 15U];
}

std::string hexadecimal(std::string_view bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char c : bytes)
        appendHex(text, static_cast<unsigned char>(c));
    return text;
}

int hexValue(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

}  // namespace zelor::base

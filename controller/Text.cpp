#include "controller/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "base/Utf8.h"

namespace zelor::controller {

namespace {

std::string twoDigits(long number) {
    return (number < 10 ? "0" : "") + std::to_string(number);
}

std::string oneDecimal(double number) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", number);
    return text.data();
}

}  // namespace

std::string fitToColumns(const std::string& printableText, std::size_t columns, const std::string& ellipsis) {
    std::string text = cutToColumns(printableText, columns, ellipsis);
    return text.append(columns - columnsOf(text), ' ');
}

std::vector<std::string> wrapToColumns(const std::string& printableText, std::size_t columns) {
    std::vector<std::string> lines;
    std::string rest = printableText;
    while (columns > 0 && columnsOf(rest) > columns) {
        std::string line = cutToColumns(rest, columns, "");
        if (line.empty()) break;  // a wide character in a single column
        const bool atBlank = rest[line.size()] == ' ';
        const auto blank = line.rfind(' ');
        if (!atBlank && blank != std::string::npos && blank > 0) line.resize(blank);
        rest.erase(0, line.size());
        rest.erase(0, rest.find_first_not_of(' '));
        lines.push_back(std::move(line));
    }
    if (!rest.empty()) lines.push_back(std::move(rest));
    return lines;
}

std::string folded(const std::string& printableText, std::size_t columns, std::size_t indent) {
    if (columns == 0 || columnsOf(printableText) <= columns) return printableText;
    std::string text = wrapToColumns(printableText, columns).front();
    const auto rest = printableText.find_first_not_of(' ', text.size());
    if (rest == std::string::npos) return text;
    const std::size_t room = columns > indent + 1 ? columns - indent : 1;
    for (const std::string& line : wrapToColumns(printableText.substr(rest), room))
        text += '\n' + std::string(indent, ' ') + line;
    return text;
}

std::string bytesText(std::uint64_t bytes) {
    constexpr std::array<const char*, 5> kUnits = {"B", "KB", "MB", "GB", "TB"};
    if (bytes < 1024) return std::to_string(bytes) + " B";
    auto amount = static_cast<double>(bytes);
    std::size_t unit = 0;
    // 1023.95 and more would be shown as "1024.0".
    while (amount >= 1023.95 && unit + 1 < kUnits.size()) {
        amount /= 1024;
        ++unit;
    }
    return oneDecimal(amount) + ' ' + kUnits.at(unit);
}

std::string clockText(double seconds) {
    const long whole = std::lround(std::floor(std::max(seconds, 0.0)));
    const std::string rest = twoDigits(whole % 60);
    if (whole < 3600) return std::to_string(whole / 60) + ':' + rest;
    return std::to_string(whole / 3600) + ':' + twoDigits(whole / 60 % 60) + ':' + rest;
}

std::string durationText(double seconds) {
    if (seconds < 9.95) return oneDecimal(std::max(seconds, 0.0)) + " s";
    const long whole = std::lround(seconds);
    if (whole < 60) return std::to_string(whole) + " s";
    return std::to_string(whole / 60) + " min " + std::to_string(whole % 60) + " s";
}

}  // namespace zelor::controller

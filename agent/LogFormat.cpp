#include <time.h>

#include <array>
#include <cstdio>

#include "agent/LogControl.h"

namespace zelor {

namespace {

void appendEscaped(std::string& out, unsigned char byte) {
    constexpr char digits[] = "0123456789abcdef";
    switch (byte) {
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            out += "\\x";
            out += digits[byte >> 4U];
            out += digits[byte & 15U];
    }
}

}  // namespace

std::string escapeControls(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0U;
        if (byte < 0x20 || byte == 0x7f) {
            appendEscaped(out, byte);
        } else if (byte == 0xc2 && next >= 0x80 && next < 0xa0) {
            appendEscaped(out, byte);
            appendEscaped(out, static_cast<unsigned char>(next));
            ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string logLine(const log4cpp::TimeStamp& time, log4cpp::Priority::Value priority,
                    const std::string& text) {
    const auto seconds = static_cast<time_t>(time.getSeconds());
    tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 32> date{};
    strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    std::array<char, 8> milli{};
    std::snprintf(milli.data(), milli.size(), ".%03dZ ", time.getMilliSeconds() % 1000);
    return date.data() + std::string(milli.data()) + log4cpp::Priority::getPriorityName(priority) + ' ' +
           escapeControls(text) + '\n';
}

}  // namespace zelor

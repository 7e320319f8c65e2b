#include <time.h>

#include <array>
#include <cstdio>

#include "agent/LogControl.h"
#include "base/Strings.h"
#include "base/Utf8.h"

namespace zelor::agent {

namespace {

void appendEscaped(std::string& out, unsigned char byte) {
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
            base::appendHex(out, byte);
    }
}

/// False for control characters, line and paragraph separators, marks that reorder text, and bytes that are
/// not UTF-8.
bool showsAsItIs(char32_t code) {
    if (code < 0x80) return code >= 0x20 && code != 0x7f;
    return code >= 0xa0 && code != 0x2028 && code != 0x2029 && code != base::kInvalidCharacter &&
           !base::reordersText(code);
}

}  // namespace

std::string escapeControls(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const base::Character character = base::characterAt(text, at);
        if (showsAsItIs(character.code)) {
            out.append(text, at, character.bytes);
        } else {
            for (std::size_t i = 0; i < character.bytes; ++i)
                appendEscaped(out, static_cast<unsigned char>(text[at + i]));
        }
        at += character.bytes;
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

}  // namespace zelor::agent

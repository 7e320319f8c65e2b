#include "trust/Time.h"

#include <cctype>
#include <cstdio>
#include <ctime>

namespace zelor::trust {

namespace {

/// The number of `digits` digits at `at`.
int numberAt(const std::string& text, std::size_t at, std::size_t digits) {
    int number = 0;
    for (std::size_t i = at; i < at + digits; ++i)
        number = number * 10 + (text[i] - '0');
    return number;
}

bool hasTheForm(const std::string& text) {
    const std::string form = "dddd-dd-ddTdd:dd:ddZ";
    if (text.size() != form.size()) return false;
    for (std::size_t i = 0; i < form.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (form[i] == 'd' ? !digit : text[i] != form[i]) return false;
    }
    return true;
}

}  // namespace

base::Result<Time> parseTime(const std::string& text) {
    if (hasTheForm(text)) {
        struct tm parts {};
        parts.tm_year = numberAt(text, 0, 4) - 1900;
        parts.tm_mon = numberAt(text, 5, 2) - 1;
        parts.tm_mday = numberAt(text, 8, 2);
        parts.tm_hour = numberAt(text, 11, 2);
        parts.tm_min = numberAt(text, 14, 2);
        parts.tm_sec = numberAt(text, 17, 2);
        const Time time = timegm(&parts);
        // timegm makes the 31st of April the 1st of May.
        if (timeText(time) == text) return time;
    }
    return base::failure("a time is not of the form YYYY-MM-DDTHH:MM:SSZ");
}

std::string timeText(Time time) {
    const auto seconds = static_cast<time_t>(time);
    struct tm parts {};
    if (gmtime_r(&seconds, &parts) == nullptr) return "an unknown time";
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

}  // namespace zelor::trust

#pragma once

#include <string>

#include "collaborators/Logger.h"

/// Writes lines to the agent's log. The text is joined only when the level is on, and is never taken as a
/// format string.
namespace zelor::log {

namespace detail {

/// Adds one part to the line; a number in decimal, as std::to_string writes it.
inline void append(std::string& line, const std::string& text) {
    line += text;
}
inline void append(std::string& line, const char* text) {
    line += text;
}
inline void append(std::string& line, char text) {
    line += text;
}
template <class Number>
void append(std::string& line, Number number) {
    line += std::to_string(number);
}

/// The parts one after the other.
template <class... Parts>
std::string join(const Parts&... parts) {
    std::string line;
    (append(line, parts), ...);
    return line;
}

}  // namespace detail

/// Logs a line at level debug. `parts`: strings, characters and numbers, joined without blanks. Any thread.
template <class... Parts>
void debug(const Parts&... parts) {
    log4cpp::Category& category = Logger::GetInstance()->GetLogger();
    if (category.isDebugEnabled()) category.debug(detail::join(parts...));
}

/// The same at level info.
template <class... Parts>
void info(const Parts&... parts) {
    log4cpp::Category& category = Logger::GetInstance()->GetLogger();
    if (category.isInfoEnabled()) category.info(detail::join(parts...));
}

/// The same at level error.
template <class... Parts>
void error(const Parts&... parts) {
    log4cpp::Category& category = Logger::GetInstance()->GetLogger();
    if (category.isErrorEnabled()) category.error(detail::join(parts...));
}

}  // namespace zelor::log

#pragma once

#include <string>

#include "collaborators/Logger.h"

/// Lines on the agent's log. The text is joined only when the level is on, and is never taken as a format.
namespace zelor::log {

namespace detail {

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

template <class... Parts>
std::string join(const Parts&... parts) {
    std::string line;
    (append(line, parts), ...);
    return line;
}

}  // namespace detail

template <class... Parts>
void debug(const Parts&... parts) {
    log4cpp::Category& category = Logger::GetInstance()->GetLogger();
    if (category.isDebugEnabled()) category.debug(detail::join(parts...));
}

template <class... Parts>
void info(const Parts&... parts) {
    log4cpp::Category& category = Logger::GetInstance()->GetLogger();
    if (category.isInfoEnabled()) category.info(detail::join(parts...));
}

template <class... Parts>
void error(const Parts&... parts) {
    log4cpp::Category& category = Logger::GetInstance()->GetLogger();
    if (category.isErrorEnabled()) category.error(detail::join(parts...));
}

}  // namespace zelor::log

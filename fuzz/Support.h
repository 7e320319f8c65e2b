#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <log4cpp/Category.hh>
#include <string>

#include "base/SystemRoot.h"
#include "collaborators/Logger.h"
#include "tests/support/TempDir.h"

namespace zelor::fuzz {

/// Aborts, which is a finding, unless `holds`.
inline void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "FINDING: not so: %s\n", what);
    std::abort();
}

inline std::string textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Cuts the text before the next `separator` off the front of `text`; all of it when there is none.
inline std::string takeUntil(std::string& text, const std::string& separator) {
    const auto end = text.find(separator);
    std::string front = text.substr(0, end);
    text = end == std::string::npos ? std::string() : text.substr(end + separator.size());
    return front;
}

/// A temporary directory that is also the system root; nothing is logged.
struct QuietRoot : test::TempDir {
    QuietRoot() {
        setSystemRoot(path().string());
        Logger::GetInstance()->GetLogger().setPriority(log4cpp::Priority::FATAL);
    }
};

}  // namespace zelor::fuzz

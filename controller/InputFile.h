#pragma once

#include <cstddef>
#include <string>

namespace zelor::controller {

/// What a command reads, for the messages.
struct InputKind {
    std::size_t limit;   ///< the most bytes, whole MiB
    std::string name;    ///< "a JSON file of requests"
    std::string remedy;  ///< against a file that is too large
};

/// The whole text of a file or, for "-", of standard input. Throws InputError when it cannot be read or is
/// larger than the limit.
std::string readInput(const std::string& path, const InputKind& kind);

/// What an input is called in messages: its path, or "standard input".
std::string inputName(const std::string& path);

}  // namespace zelor::controller

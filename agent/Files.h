#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "base/Files.h"

namespace zelor::agent {

/// Whether the last component of a path may be a symbolic link.
enum class Links { refuse, follow };

/// Opens a regular file for reading, close-on-exec, never waiting on a FIFO. `bytes`, when given, becomes its
/// size. Throws std::runtime_error that names the path and the cause.
base::UniqueFd openRegularFile(const std::string& path, Links links = Links::refuse,
                               std::uint64_t* bytes = nullptr);

/// Hands the rest of the file to `consume` in pieces of at most 1 MiB; returns how many bytes there were.
/// Throws std::runtime_error that names `path` on a read error.
std::uint64_t readInPieces(const base::UniqueFd& file, const std::string& path,
                           const std::function<void(std::string_view)>& consume);

/// The whole of a regular file of at most `limit` bytes. Throws std::runtime_error as `openRegularFile` does,
/// and for a file that is larger.
std::string readBounded(const std::string& path, std::size_t limit, Links links = Links::refuse);

/// Makes the folder and the missing folders above it with mode 0755 (less the umask). False when it is not
/// there afterwards; errno tells why.
bool makeFolders(const std::string& path);

/// The text of an errno value, for messages. Any thread.
std::string errorText(int error);

}  // namespace zelor::agent

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "agent/trust/Sha256.h"

namespace zelor::authoring {

/// What identifies a file, or the text over which a bundle directory is signed.
struct Digests {
    std::string sha256;  ///< 32 raw bytes
    std::string md5;     ///< lower-case hexadecimal
    std::uint64_t bytes = 0;
};

/// How content gives them.
agent::FileDigest fileDigest(const Digests& digests);

/// Of bytes in memory.
Digests digestsOfText(std::string_view text);

/// Reads the file once, in pieces. Throws std::runtime_error naming the path and the cause.
Digests digestsOfFile(const std::string& path);

/// The digests of a patch to publish: of a file's bytes, or of a bundle directory's manifest. `directory`,
/// when given, is set to whether it is a directory. A symbolic link is followed. Throws std::runtime_error.
Digests digestsOfSource(const std::string& path, bool* directory = nullptr);

}  // namespace zelor::authoring

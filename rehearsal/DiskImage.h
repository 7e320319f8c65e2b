#pragma once

#include <string>

namespace zelor::rehearsal {

/// The volume name of an ISO 9660 image, "" for a file that is none. Throws std::runtime_error for a file
/// that cannot be read.
std::string volumeNameOf(const std::string& image);

/// How the tool prints one attached disk.
std::string attachedLine(int disk, const std::string& mountPoint);

}  // namespace zelor::rehearsal

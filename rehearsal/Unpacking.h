#pragma once

#include <functional>
#include <string>

#include "agent/archive/ExtractionTree.h"
#include "rehearsal/ArchiveReader.h"

namespace zelor::rehearsal {

/// Where an archive's entries go, and which symbolic links are allowed.
struct UnpackRules {
    /// Directories below the destination, put before each entry's name.
    agent::ExtractionTree::Path prefix;
    /// The target to write for a link at that path; throws std::runtime_error to refuse it.
    std::function<std::string(const agent::ExtractionTree::Path& link, const std::string& target)> linkTarget;
};

/// Links keep their targets: for a tree that nobody with rights to other files walks.
UnpackRules verbatimLinks();
/// Links stay inside the destination; one to an absolute path is taken below `root`.
UnpackRules linksInside(const std::string& root, const agent::ExtractionTree::Path& prefix);

/// Reads the archive to its end and throws std::runtime_error, naming the entry, for what `unpack` would
/// refuse: a name or link that leads out of the destination, a device, damaged data. Writes nothing.
void checkArchive(ArchiveReader::Kind kind, const std::string& path, const UnpackRules& rules);

/// Unpacks the archive below `destination`, replacing files that exist and never following a link there.
/// Modes (without set-id bits), times and symbolic links are kept. On failure, removes what it created.
void unpack(ArchiveReader::Kind kind, const std::string& path, const std::string& destination,
            const UnpackRules& rules);

/// The volume name of an ISO 9660 image, "" for a file that is none. Throws std::runtime_error for a file
/// that cannot be read.
std::string volumeNameOf(const std::string& image);

/// How the tool prints one attached disk.
std::string attachedLine(int disk, const std::string& mountPoint);

}  // namespace zelor::rehearsal

#pragma once

#include <functional>
#include <string>

#include "agent/archive/ExtractionTree.h"
#include "rehearsal/ArchiveReader.h"

namespace zelor::rehearsal {

/// Where an archive's entries go and which symbolic links it may make.
struct UnpackRules {
    /// Directories below the destination that the entries' names are taken from.
    agent::ExtractionTree::Path prefix;
    /// The target to write for a link at that path; throws std::runtime_error to refuse it.
    std::function<std::string(const agent::ExtractionTree::Path& link, const std::string& target)> linkTarget;
};

/// A link's own text, for a tree that nobody walks with rights over other files.
UnpackRules verbatimLinks();
/// Links stay inside the destination; one to an absolute path is taken below `root`.
UnpackRules linksInside(const std::string& root, const agent::ExtractionTree::Path& prefix);

/// Reads the archive to its end and throws std::runtime_error, naming the entry, for what `unpack` would
/// refuse: a name or link that leads out of the destination, a device, a damaged part. Writes nothing.
void checkArchive(ArchiveReader::Kind kind, const std::string& path, const UnpackRules& rules);

/// Unpacks the archive below `destination`, replacing files that exist and never following a link there.
/// Modes (without set-id bits), times and symbolic links are kept. On failure what was made goes again.
void unpack(ArchiveReader::Kind kind, const std::string& path, const std::string& destination,
            const UnpackRules& rules);

/// The volume name of an ISO 9660 image, "" for a file that is none. Throws std::runtime_error for a file
/// that cannot be read.
std::string volumeNameOf(const std::string& image);

/// How the tool prints one attached disk.
std::string attachedLine(int disk, const std::string& mountPoint);

}  // namespace zelor::rehearsal

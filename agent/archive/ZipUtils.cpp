#include "collaborators/ZipUtils.h"

#include <exception>
#include <string>

#include "agent/archive/ArchiveExtractor.h"
#include "agent/log/FailureLine.h"
#include "platform/Log.h"

ZipUtils::ZipUtils() = default;
ZipUtils::~ZipUtils() {}

bool ZipUtils::Unzip(char* archivePath, char* destinationDir) {
    if (archivePath == nullptr || destinationDir == nullptr) {
        zelor::log::error("[ZipUtils] no archive or no destination was named");
        return false;
    }
    const std::string archive = archivePath, destination = destinationDir;
    try {
        zelor::agent::ArchiveExtractor().extract(archive, destination);
        return true;
    } catch (const std::exception& e) {
        zelor::agent::logFailure("[ZipUtils] " + archive + " is not unpacked into " + destination + ": " +
                                 e.what());
        return false;
    }
}

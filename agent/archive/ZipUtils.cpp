#include "collaborators/ZipUtils.h"

#include <unistd.h>

#include <exception>
#include <string>

#include "agent/AgentSettings.h"
#include "agent/archive/ArchiveExtractor.h"
#include "agent/content/PatchDigests.h"
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
    const auto fail = [&](const std::exception& e) {
        zelor::agent::logFailure("[ZipUtils] " + archive + " is not unpacked into " + destination + ": " +
                                 e.what());
        return false;
    };
    try {
        const bool required = zelor::agent::AgentSettings::current()->values().requireDigests;
        const std::string name = archive.substr(archive.rfind('/') + 1);
        const auto digest = zelor::agent::WantedPatches::instance().archive(name, required);
        zelor::agent::ArchiveExtractor().extract(archive, destination, digest);
        return true;
    } catch (const zelor::agent::WrongDigest& e) {
        // A buffered archive would be taken again in every later run, although it was published anew.
        (void)::unlink(archive.c_str());
        return fail(e);
    } catch (const std::exception& e) {
        return fail(e);
    }
}

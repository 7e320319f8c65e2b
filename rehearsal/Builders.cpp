#include "rehearsal/Builders.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <stdexcept>

#include "agent/archive/ArchivePolicy.h"
#include "base/Directories.h"
#include "rehearsal/ArchiveWriter.h"
#include "rehearsal/StateDirectory.h"

namespace fs = boost::filesystem;

namespace zelor::rehearsal {

namespace {

void requireSane(const PackageOptions& options) {
    const auto& id = options.info.id;
    const auto plain = [](unsigned char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
               c == '-' || c == '_';
    };
    if (id.empty() || !std::all_of(id.begin(), id.end(), plain)) {
        throw std::invalid_argument("a package identifier holds letters, digits, '.', '-' and '_', not \"" +
                                    id + "\"");
    }
    const auto location = agent::pathComponents(options.info.installLocation);
    if (options.info.installLocation.empty() || options.info.installLocation.front() != '/' ||
        std::find(location.begin(), location.end(), "..") != location.end()) {
        throw std::invalid_argument(
            "the install location is an absolute path without \"..\", such as /Applications");
    }
    if (options.scripts.empty()) return;
    if (!fs::exists(options.scripts + "/preinstall") && !fs::exists(options.scripts + "/postinstall")) {
        throw std::invalid_argument(options.scripts + " holds neither preinstall nor postinstall");
    }
}

DirectoryCount writePayload(const std::string& directory, const std::string& output) {
    ArchiveWriter payload(ArchiveWriter::Kind::payload, output);
    payload.addDirectoryEntry(".");
    const DirectoryCount count = payload.addDirectory(directory, "./");
    payload.commit();
    return count;
}

}  // namespace

void buildPackage(PackageOptions options) {
    requireSane(options);
    const base::TemporaryDirectory work("zelor-package");
    const DirectoryCount count = writePayload(options.directory, work.path() + "/Payload");
    if (!options.scripts.empty()) {
        if (fs::exists(options.scripts + "/preinstall")) options.info.preinstall = "preinstall";
        if (fs::exists(options.scripts + "/postinstall")) options.info.postinstall = "postinstall";
        writePayload(options.scripts, work.path() + "/Scripts");
    }
    ArchiveWriter package(ArchiveWriter::Kind::xar, options.output);
    std::string prefix;
    if (!options.name.empty()) {
        const std::string component = options.info.id + ".pkg";
        package.addText("Distribution", distributionXml(options.name, component, options.info));
        package.addDirectoryEntry(component);
        prefix = component + "/";
    }
    package.addText(prefix + "PackageInfo",
                    packageInfoXml(options.info, count.files, (count.bytes + 1023) / 1024));
    package.addFile(prefix + "Payload", work.path() + "/Payload");
    if (!options.scripts.empty()) package.addFile(prefix + "Scripts", work.path() + "/Scripts");
    package.commit();
}

void buildImage(const ImageOptions& options) {
    if (options.volume.empty() || options.volume.size() > 32 ||
        options.volume.find('/') != std::string::npos) {
        throw std::invalid_argument("a volume name has 1 to 32 characters and no '/'");
    }
    ArchiveWriter image(ArchiveWriter::Kind::iso9660, options.output, options.volume);
    image.addDirectory(options.directory, "");
    image.commit();
}

}  // namespace zelor::rehearsal

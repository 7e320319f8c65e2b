#include "rehearsal/Builders.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <stdexcept>

#include "agent/archive/ArchivePolicy.h"
#include "base/Directories.h"
#include "rehearsal/ArchiveWriter.h"
#include "rehearsal/StateFolder.h"

namespace fs = boost::filesystem;

namespace zelor::rehearsal {

namespace {

void requireSane(const PackageOrder& order) {
    const auto& id = order.info.id;
    const auto plain = [](unsigned char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
               c == '-' || c == '_';
    };
    if (id.empty() || !std::all_of(id.begin(), id.end(), plain)) {
        throw std::invalid_argument("a package identifier holds letters, digits, '.', '-' and '_', not \"" +
                                    id + "\"");
    }
    const auto location = agent::pathComponents(order.info.installLocation);
    if (order.info.installLocation.empty() || order.info.installLocation.front() != '/' ||
        std::find(location.begin(), location.end(), "..") != location.end()) {
        throw std::invalid_argument(
            "the install location is an absolute path without \"..\", such as /Applications");
    }
    if (order.scripts.empty()) return;
    if (!fs::exists(order.scripts + "/preinstall") && !fs::exists(order.scripts + "/postinstall")) {
        throw std::invalid_argument(order.scripts + " holds neither preinstall nor postinstall");
    }
}

FolderCount writePayload(const std::string& folder, const std::string& output) {
    ArchiveWriter payload(ArchiveWriter::Kind::payload, output);
    payload.addFolderEntry(".");
    const FolderCount count = payload.addFolder(folder, "./");
    payload.commit();
    return count;
}

}  // namespace

void buildPackage(PackageOrder order) {
    requireSane(order);
    const base::TemporaryDirectory work("zelor-package");
    const FolderCount count = writePayload(order.folder, work.path() + "/Payload");
    if (!order.scripts.empty()) {
        if (fs::exists(order.scripts + "/preinstall")) order.info.preinstall = "preinstall";
        if (fs::exists(order.scripts + "/postinstall")) order.info.postinstall = "postinstall";
        writePayload(order.scripts, work.path() + "/Scripts");
    }
    ArchiveWriter package(ArchiveWriter::Kind::xar, order.output);
    std::string prefix;
    if (!order.name.empty()) {
        const std::string component = order.info.id + ".pkg";
        package.addText("Distribution", distributionXml(order.name, component, order.info));
        package.addFolderEntry(component);
        prefix = component + "/";
    }
    package.addText(prefix + "PackageInfo",
                    packageInfoXml(order.info, count.files, (count.bytes + 1023) / 1024));
    package.addFile(prefix + "Payload", work.path() + "/Payload");
    if (!order.scripts.empty()) package.addFile(prefix + "Scripts", work.path() + "/Scripts");
    package.commit();
}

void buildImage(const ImageOrder& order) {
    if (order.volume.empty() || order.volume.size() > 32 || order.volume.find('/') != std::string::npos) {
        throw std::invalid_argument("a volume name has 1 to 32 characters and no '/'");
    }
    ArchiveWriter image(ArchiveWriter::Kind::iso9660, order.output, order.volume);
    image.addFolder(order.folder, "");
    image.commit();
}

}  // namespace zelor::rehearsal

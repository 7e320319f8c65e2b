#include "authoring/publish/ContentDirectory.h"

#include <fcntl.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <stdexcept>

#include "agent/content/ContentDocument.h"
#include "authoring/metadata/MetadataDirectory.h"
#include "authoring/publish/Digests.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "base/Strings.h"
#include "base/SystemCalls.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

std::string present(const std::string& path) {
    try {
        return base::readBounded(path, agent::kContentBytesLimit);
    } catch (const std::exception&) {
        return "";
    }
}

void stage(base::StagedFiles& files, const std::string& path, const std::string& bytes) {
    base::StagedFile& file = files.add(path);
    file.write(bytes);
    file.close();
}

}  // namespace

ContentDirectory::ContentDirectory(const std::string& repository)
    : directory_(repository + "/content"), next_(repository + "/.content-next") {
    fs::remove_all(next_);
}

bool ContentDirectory::put(const std::string& identifier, const std::string& xml, const SigningKey& key) {
    const std::string name = identifier + ".xml", digest = digestsOfText(xml).sha256;
    const std::string signature = present(directory_ + '/' + name + ".sig");
    if (present(directory_ + '/' + name) == xml && key.accepts(digest, signature)) {
        unchanged_.insert(name);
        return false;
    }
    changed_[name] = xml;
    changed_[name + ".sig"] = key.sign(digest);
    return true;
}

void ContentDirectory::withdraw(const std::string& identifier) {
    removed_.insert(identifier + ".xml");
    removed_.insert(identifier + ".xml.sig");
}

std::set<std::string> ContentDirectory::identifiers() const {
    std::set<std::string> found;
    boost::system::error_code none;
    for (fs::directory_iterator it(directory_, none), end; it != end; ++it) {
        const fs::path name = it->path().filename();
        if (name.extension() != ".xml" || name.string()[0] == '.' || isNamedByDigest(name.string())) continue;
        found.insert(name.stem().string());
    }
    return found;
}

std::string ContentDirectory::signedContent(const std::string& name, const SigningKey& key) const {
    std::string xml = present(directory_ + '/' + name);
    if (unchanged_.count(name) != 0) return xml;
    // Another manifest's: who signs the list vouches for it.
    if (key.accepts(digestsOfText(xml).sha256, present(directory_ + '/' + name + ".sig"))) return xml;
    throw std::runtime_error(
        directory_ + '/' + name +
        " is not signed by this key, so it cannot be listed; publish the manifest that it "
        "came from again, or remove it");
}

std::map<std::string, trust::TargetFile> ContentDirectory::nameByDigest(const SigningKey& key) {
    std::set<std::string> names;
    for (const std::string& identifier : identifiers())
        names.insert(identifier + ".xml");
    for (const auto& [name, bytes] : changed_) {
        if (base::hasEnding(name, ".xml")) names.insert(name);
    }
    std::map<std::string, trust::TargetFile> files;
    for (const std::string& name : names) {
        if (removed_.count(name) != 0) continue;
        const auto changed = changed_.find(name);
        const std::string xml = changed != changed_.end() ? changed->second : signedContent(name, key);
        const std::string digest = *trust::digestOf("sha256", xml), path = "content/" + name;
        files[path] = {path, xml.size(), {{"sha256", digest}}, ""};
        if (present(directory_ + '/' + digest + '.' + name) != xml) named_[digest + '.' + name] = name;
    }
    return files;
}

void ContentDirectory::commit() {
    if (changed_.empty() && removed_.empty() && named_.empty()) return;
    if (!base::makeDirectories(directory_))
        throw std::runtime_error("cannot make " + directory_ + ": " + base::errorText(errno));
    if (!exchange()) renameEach();
    boost::system::error_code ignored;
    fs::remove_all(next_, ignored);
    changed_.clear();
    removed_.clear();
    named_.clear();
}

bool ContentDirectory::exchange() {
    // A directory that is a symbolic link, or that holds more than plain files, was set up by somebody else.
    if (fs::is_symlink(directory_)) return false;
    fs::create_directory(next_);
    for (fs::directory_iterator it(directory_), end; it != end; ++it) {
        const std::string name = it->path().filename().string();
        const bool superseded = changed_.count(name) + removed_.count(name) + named_.count(name) != 0;
        if (superseded || base::isStagedName(name)) continue;
        if (it->symlink_status().type() != fs::regular_file) return false;
        if (::link(it->path().c_str(), (next_ + '/' + name).c_str()) != 0) return false;
    }
    base::StagedFiles files;
    for (const auto& [name, bytes] : changed_)
        stage(files, next_ + '/' + name, bytes);
    files.commit();
    for (const auto& [digestName, name] : named_) {
        if (::link((next_ + '/' + name).c_str(), (next_ + '/' + digestName).c_str()) != 0) return false;
    }
    // With nothing but withdrawals no file has flushed the links.
    base::flushDirectory(next_);
    if (!base::exchangePaths(next_, directory_)) return false;
    base::flushDirectory(fs::path(directory_).parent_path().string());
    return true;
}

void ContentDirectory::renameEach() {
    base::StagedFiles files;
    for (auto it = changed_.rbegin(); it != changed_.rend(); ++it)
        stage(files, directory_ + '/' + it->first, it->second);
    files.commit();
    base::StagedFiles copies;
    for (const auto& [digestName, name] : named_)
        stage(copies, directory_ + '/' + digestName, present(directory_ + '/' + name));
    copies.commit();
    for (const std::string& name : removed_)
        fs::remove(directory_ + '/' + name);
}

}  // namespace zelor::authoring

#include "agent/content/ContentStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "agent/content/ContentDocument.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/Mutex.h"
#include "base/StagedFile.h"

namespace zelor::agent {

namespace {

constexpr std::size_t kVersionLimit = 8U << 10U;
constexpr const char* kXmlSuffix = ".xml";
constexpr const char* kSignatureSuffix = ".xml.sig";
constexpr const char* kVersionSuffix = ".xml.version";
constexpr const char* kListedSuffix = ".xml.listed";
constexpr std::size_t kDigestLimit = 64;

bool oneLine(const std::string& text) {
    return text.find('\n') == std::string::npos;
}

std::string versionText(const SignedContent& content) {
    if (!oneLine(content.etag + content.lastModified + content.source)) return "";
    return content.etag + '\n' + content.lastModified + '\n' +
           (content.source.empty() ? "" : content.source + '\n');
}

void takeVersion(const std::string& text, SignedContent& content) {
    const auto first = text.find('\n');
    if (first == std::string::npos || text.back() != '\n' || first + 1 == text.size()) return;
    const auto second = text.find('\n', first + 1);
    content.etag = text.substr(0, first);
    content.lastModified = text.substr(first + 1, second - first - 1);
    if (second + 1 < text.size()) content.source = text.substr(second + 1, text.size() - second - 2);
}

/// The content of a file; nothing when it is missing, too large or not a regular file.
std::optional<std::string> readIfUsable(const std::string& path, std::size_t limit) {
    // Most files asked for are missing; that is not worth an exception.
    if (::access(path.c_str(), F_OK) != 0) return std::nullopt;
    try {
        return base::readBounded(path, limit);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

std::string ContentStore::path(const std::string& identifier, const char* suffix) const {
    return directory_ + "/" + identifier + suffix;
}

std::optional<SignedContent> ContentStore::read(const std::string& identifier) const {
    const base::MutexLock lock(mutex_);
    const auto xml = readIfUsable(path(identifier, kXmlSuffix), kContentBytesLimit);
    if (!xml) return std::nullopt;
    if (const auto digest = readIfUsable(path(identifier, kListedSuffix), kDigestLimit))
        return SignedContent{*xml, "", "", "", "", *digest};
    const auto signature = readIfUsable(path(identifier, kSignatureSuffix), kSignatureBytesLimit);
    if (!signature) return SignedContent{*xml, "", "", ""};
    SignedContent content{*xml, *signature, "", ""};
    const auto version = readIfUsable(path(identifier, kVersionSuffix), kVersionLimit);
    if (version) takeVersion(*version, content);
    return content;
}

void ContentStore::write(const std::string& identifier, const SignedContent& content) {
    const base::MutexLock lock(mutex_);
    openDirectory();
    removeFile(identifier + kVersionSuffix);
    if (!content.listedDigest.empty()) {
        replace(identifier + kXmlSuffix, content.xml);
        replace(identifier + kListedSuffix, content.listedDigest);
        removeFile(identifier + kSignatureSuffix);
        return;
    }
    removeFile(identifier + kListedSuffix);
    replace(identifier + kXmlSuffix, content.xml);
    replace(identifier + kSignatureSuffix, content.signature);
    replace(identifier + kVersionSuffix, versionText(content));
}

void ContentStore::remove(const std::string& identifier) {
    removeFiles(identifier, {kVersionSuffix, kXmlSuffix, kSignatureSuffix, kListedSuffix});
}

void ContentStore::removeProof(const std::string& identifier) {
    removeFiles(identifier, {kVersionSuffix, kSignatureSuffix, kListedSuffix});
}

void ContentStore::removeFiles(const std::string& identifier, const std::vector<const char*>& suffixes) {
    const base::MutexLock lock(mutex_);
    if (::access(directory_.c_str(), F_OK) != 0) return;
    openDirectory();
    for (const char* suffix : suffixes)
        removeFile(identifier + suffix);
}

void ContentStore::openDirectory() {
    // Opened for each change: the directory may have been removed and created again meanwhile.
    handle_ = base::openPrivateDirectory(directory_);
}

void ContentStore::replace(const std::string& name, const std::string& bytes) const {
    base::replaceFileIn(handle_, name, directory_ + "/" + name, bytes);
}

void ContentStore::removeFile(const std::string& name) const {
    if (::unlinkat(handle_.get(), name.c_str(), 0) != 0 && errno != ENOENT) {
        throw std::runtime_error("cannot remove " + directory_ + "/" + name + ": " + base::errorText(errno));
    }
}

}  // namespace zelor::agent

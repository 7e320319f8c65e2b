#include "agent/content/ContentStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "agent/content/ContentDocument.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/StagedFile.h"

namespace zelor::agent {

namespace {

constexpr std::size_t signatureLimit = 16U << 10U;
constexpr std::size_t versionLimit = 8U << 10U;
constexpr const char* xmlSuffix = ".xml";
constexpr const char* signatureSuffix = ".xml.sig";
constexpr const char* versionSuffix = ".xml.version";

bool oneLine(const std::string& text) {
    return text.find('\n') == std::string::npos;
}

std::string versionText(const SignedContent& content) {
    return oneLine(content.etag + content.lastModified) ? content.etag + '\n' + content.lastModified + '\n'
                                                        : "";
}

void takeVersion(const std::string& text, SignedContent& content) {
    const auto first = text.find('\n');
    if (first == std::string::npos || text.back() != '\n' || first + 1 == text.size()) return;
    content.etag = text.substr(0, first);
    content.lastModified = text.substr(first + 1, text.size() - first - 2);
}

/// Nothing for a file that is missing, too large or not a plain one.
std::optional<std::string> readIfUsable(const std::string& path, std::size_t limit) {
    // Most looks are for files that are not there; those are not worth an exception.
    if (::access(path.c_str(), F_OK) != 0) return std::nullopt;
    try {
        return base::readBounded(path, limit);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

std::string ContentStore::path(const std::string& identifier, const char* suffix) const {
    return folder_ + "/" + identifier + suffix;
}

std::optional<SignedContent> ContentStore::read(const std::string& identifier) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto xml = readIfUsable(path(identifier, xmlSuffix), contentBytesLimit);
    const auto signature =
        xml ? readIfUsable(path(identifier, signatureSuffix), signatureLimit) : std::nullopt;
    if (!signature) return std::nullopt;
    SignedContent content{*xml, *signature, "", ""};
    const auto version = readIfUsable(path(identifier, versionSuffix), versionLimit);
    if (version) takeVersion(*version, content);
    return content;
}

void ContentStore::write(const std::string& identifier, const SignedContent& content) {
    const std::lock_guard<std::mutex> lock(mutex_);
    openFolder();
    removeFile(identifier + versionSuffix);
    replace(identifier + xmlSuffix, content.xml);
    replace(identifier + signatureSuffix, content.signature);
    replace(identifier + versionSuffix, versionText(content));
}

void ContentStore::remove(const std::string& identifier) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (::access(folder_.c_str(), F_OK) != 0) return;
    openFolder();
    for (const char* suffix : {versionSuffix, xmlSuffix, signatureSuffix})
        removeFile(identifier + suffix);
}

void ContentStore::openFolder() {
    // Opened for each change: the folder may have been removed and made again meanwhile.
    handle_ = base::openPrivateDirectory(folder_);
}

void ContentStore::replace(const std::string& name, const std::string& bytes) const {
    base::replaceFileIn(handle_, name, folder_ + "/" + name, bytes);
}

void ContentStore::removeFile(const std::string& name) const {
    if (::unlinkat(handle_.get(), name.c_str(), 0) != 0 && errno != ENOENT) {
        throw std::runtime_error("cannot remove " + folder_ + "/" + name + ": " + base::errorText(errno));
    }
}

}  // namespace zelor::agent

#include "collaborators/CreCacher.h"

#include <map>
#include <memory>
#include <stdexcept>

#include "agent/content/ContentLibrary.h"
#include "agent/content/KeptChecks.h"
#include "agent/content/PatchDigests.h"
#include "agent/log/FailureLine.h"
#include "base/Mutex.h"
#include "collaborators/Common.h"
#include "remediation/RecordAccess.h"

namespace {

/// One cache and one interface to it for each install path; never removed.
struct Cachers {
    zelor::base::Mutex mutex;
    std::map<std::string, std::unique_ptr<CreCacher>> interfaces ZELOR_GUARDED_BY(mutex);
    std::map<std::string, std::unique_ptr<zelor::agent::ContentLibrary>> libraries ZELOR_GUARDED_BY(mutex);
};

Cachers& cachers() {
    // Never destroyed: a run's thread may outlive main().
    static Cachers& all = *new Cachers;
    return all;
}

parseOnlyMetadata noContent() {
    parseOnlyMetadata metadata;
    RecordAccess::parsingFailed(metadata) = true;
    return metadata;
}

parseOnlyMetadata failure(const std::string& line) {
    zelor::agent::logFailure(line);
    return noContent();
}

}  // namespace

zelor::agent::ContentLibrary& zelor::agent::contentLibraryAt(const std::string& installPath) {
    const base::MutexLock lock(cachers().mutex);
    auto& library = cachers().libraries[installPath];
    if (!library) library = std::make_unique<ContentLibrary>(installPath);
    return *library;
}

CreCacher* CreCacher::GetInstance(std::string installPath, std::string /*platformCpe*/) {
    // Content is cached by identifier, not by platform.
    const std::string path = Common::StripTrailingSeparators(installPath);
    const zelor::base::MutexLock lock(cachers().mutex);
    auto& cacher = cachers().interfaces[path];
    if (!cacher) {
        cacher = std::make_unique<CreCacher>();
        cacher->installPath_ = path;
    }
    return cacher.get();
}

parseOnlyMetadata CreCacher::getCre(std::string platformCpe, std::string productCpe, std::string cveOrCceId) {
    try {
        const auto document = zelor::agent::contentLibraryAt(installPath_).get(cveOrCceId);
        if (!document) return noContent();
        const creEriParsedData* entry = document->find(platformCpe, productCpe);
        if (entry == nullptr) {
            return failure("[CreCacher] the content for " + cveOrCceId + " has no cre for platform '" +
                           platformCpe + "' and product '" + productCpe + "'; publish one");
        }
        const zelor::agent::WantedPatches::Source source{installPath_, cveOrCceId, platformCpe, productCpe};
        zelor::agent::WantedPatches::instance().say(source, document->patches(platformCpe, productCpe));
        zelor::agent::KeptChecks::instance().say(source, *entry, document->checks(platformCpe, productCpe));
        parseOnlyMetadata metadata;
        RecordAccess::creEriData(metadata) = *entry;
        return metadata;
    } catch (const std::exception& e) {
        return failure("[CreCacher] no content for " + cveOrCceId + ": " + e.what());
    }
}

void CreCacher::removeCreFromCache(std::string /*platformCpe*/, std::string /*productCpe*/,
                                   std::string cveOrCceId) {
    zelor::agent::contentLibraryAt(installPath_).forget(cveOrCceId);
}

void CreCacher::removeCreFile(std::string /*platformCpe*/, std::string /*productCpe*/,
                              std::string cveOrCceId) {
    zelor::agent::contentLibraryAt(installPath_).applied(cveOrCceId);
}

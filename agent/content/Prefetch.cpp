#include "agent/Prefetch.h"

#include <exception>
#include <utility>

#include "agent/AgentSettings.h"
#include "agent/content/ContentLibrary.h"
#include "agent/download/ArchiveAhead.h"
#include "collaborators/Common.h"
#include "platform/Log.h"

namespace zelor::agent {

void Prefetch::Wanted::add(const std::string& key, const std::string& name) {
    names_[key].push_back(name);
    ++requests_[name];
}

std::vector<std::string> Prefetch::Wanted::remove(const std::string& key) {
    std::vector<std::string> unwanted;
    const auto found = names_.find(key);
    if (found == names_.end()) return unwanted;
    for (const std::string& name : found->second) {
        const auto requests = requests_.find(name);
        if (--requests->second != 0) continue;
        requests_.erase(requests);
        unwanted.push_back(name);
    }
    names_.erase(found);
    return unwanted;
}

Prefetch::Prefetch(std::string installPath) : installPath_(Common::StripTrailingSeparators(installPath)) {}

Prefetch::~Prefetch() {
    Prefetch::ended();
}

void Prefetch::contentNeeded(const std::vector<NeededContent>& content) {
    std::vector<std::string> order;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        identifiers_ = {};
        stems_ = {};
        for (const NeededContent& one : content) {
            if (!identifiers_.has(one.identifier)) order.push_back(one.identifier);
            identifiers_.add(one.key, one.identifier);
        }
    }
    contentLibraryAt(installPath_).fetchAhead(order);
}

void Prefetch::archivesNeeded(const std::vector<NeededArchive>& archives) {
    std::vector<std::string> order;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stems_ = {};
        for (const NeededArchive& one : archives) {
            if (!stems_.has(one.stem)) order.push_back(one.stem);
            stems_.add(one.key, one.stem);
        }
    }
    try {
        const auto settings = AgentSettings::current();
        archiveAheadAt(installPath_)
            .begin(std::move(order), {std::uint64_t{settings->values().aheadMegabytes} << 20U});
    } catch (const std::exception& problem) {
        log::debug("[Downloader] no archive is fetched ahead: ", problem.what());
    }
}

void Prefetch::notNeeded(const std::string& key) {
    std::vector<std::string> identifiers;
    std::vector<std::string> stems;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        identifiers = identifiers_.remove(key);
        stems = stems_.remove(key);
    }
    for (const std::string& identifier : identifiers)
        contentLibraryAt(installPath_).ahead().drop(identifier);
    for (const std::string& stem : stems)
        archiveAheadAt(installPath_).drop(stem);
}

void Prefetch::cancelled() {
    contentLibraryAt(installPath_).ahead().stop();
    archiveAheadAt(installPath_).stop();
}

void Prefetch::ended() {
    contentLibraryAt(installPath_).ahead().join();
    archiveAheadAt(installPath_).join();
}

}  // namespace zelor::agent

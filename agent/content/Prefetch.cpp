#include "agent/Prefetch.h"

#include <utility>

#include "agent/content/ContentLibrary.h"
#include "collaborators/Common.h"

namespace zelor::agent {

Prefetch::Prefetch(std::string installPath)
    : installPath_(Common::StripTrailingSeparators(installPath)) {}

Prefetch::~Prefetch() {
    contentLibraryAt(installPath_).ahead().join();
}

void Prefetch::contentNeeded(const std::vector<NeededContent>& content) {
    std::vector<std::string> order;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        identifiers_.clear();
        requests_.clear();
        for (const NeededContent& one : content) {
            identifiers_[one.key] = one.identifier;
            if (++requests_[one.identifier] == 1) order.push_back(one.identifier);
        }
    }
    contentLibraryAt(installPath_).fetchAhead(order);
}

void Prefetch::notNeeded(const std::string& key) {
    std::string identifier;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = identifiers_.find(key);
        if (found == identifiers_.end()) return;
        if (--requests_[found->second] == 0) identifier = found->second;
        identifiers_.erase(found);
    }
    if (!identifier.empty()) contentLibraryAt(installPath_).ahead().drop(identifier);
}

void Prefetch::cancelled() {
    contentLibraryAt(installPath_).ahead().stop();
}

void Prefetch::ended() {
    contentLibraryAt(installPath_).ahead().join();
}

}  // namespace zelor::agent

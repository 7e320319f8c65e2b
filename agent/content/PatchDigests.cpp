#include "agent/content/PatchDigests.h"

#include <algorithm>

#include "agent/ContentCacheControl.h"

namespace zelor::agent {

namespace {

std::string archiveNameOf(const std::string& patchId) {
    return patchId.substr(0, patchId.rfind('.')) + ".zip";
}

}  // namespace

WantedPatches& WantedPatches::instance() {
    // Kept to the very end of the process: a run's thread may outlive main().
    static WantedPatches& wanted = *new WantedPatches;
    return wanted;
}

void WantedPatches::say(const Source& source, std::vector<PatchDigests> patches) {
    const std::uint64_t run = currentRun();
    const SourceKey key = {source.installPath, source.identifier, source.platform, source.product};
    const base::MutexLock lock(mutex_);
    if (run != run_) {
        patchIds_.clear();
        archives_.clear();
        files_.clear();
        run_ = run;
    }
    forget(key);
    for (PatchDigests& patch : patches) {
        add(archives_, archiveNameOf(patch.patchId), {key, source.identifier, std::move(patch.archive)});
        add(files_, patch.patchId, {key, source.identifier, std::move(patch.file)});
        patchIds_[key].push_back(std::move(patch.patchId));
    }
}

void WantedPatches::forget(const SourceKey& source) {
    const auto before = patchIds_.find(source);
    if (before == patchIds_.end()) return;
    const auto remove = [&](Claims& claims, const std::string& name) {
        std::vector<Claim>& all = claims[name];
        all.erase(std::remove_if(all.begin(), all.end(),
                                 [&](const Claim& claim) { return claim.source == source; }),
                  all.end());
        if (all.empty()) claims.erase(name);
    };
    for (const std::string& patchId : before->second) {
        remove(archives_, archiveNameOf(patchId));
        remove(files_, patchId);
    }
    patchIds_.erase(before);
}

void WantedPatches::add(Claims& claims, const std::string& name, Claim claim) {
    std::vector<Claim>& all = claims[name];
    // A content may name one patch in thousands of blocks.
    const bool repeated =
        !all.empty() && all.back().source == claim.source && all.back().digest == claim.digest;
    if (!repeated) all.push_back(std::move(claim));
}

std::optional<FileDigest> WantedPatches::archive(const std::string& name, bool required) const {
    const base::MutexLock lock(mutex_);
    return agreed(archives_, name, required);
}

std::optional<FileDigest> WantedPatches::file(const std::string& name, bool required) const {
    const base::MutexLock lock(mutex_);
    return agreed(files_, name, required);
}

std::optional<FileDigest> WantedPatches::agreed(const Claims& claims, const std::string& name,
                                                bool required) {
    const auto found = claims.find(name);
    if (found == claims.end()) {
        if (!required) return std::nullopt;
        throw std::runtime_error("no content that was asked for names " + name +
                                 ", and [Repository] RequireDigests is true");
    }
    const Claim* first = nullptr;
    for (const Claim& claim : found->second) {
        if (!claim.digest) {
            if (!required) continue;
            throw std::runtime_error("the content " + claim.identifier + " gives no digest of " + name +
                                     ", and [Repository] RequireDigests is true; publish the entry again");
        }
        if (first != nullptr && *first->digest != *claim.digest) {
            throw std::runtime_error("the contents " + first->identifier + " and " + claim.identifier +
                                     " give different digests of " + name + "; publish both again");
        }
        first = &claim;
    }
    return first == nullptr ? std::nullopt : first->digest;
}

void requireDigest(const std::string& name, const FileDigest& actual, const FileDigest& wanted) {
    if (actual == wanted) return;
    throw WrongDigest(name + " is not what the content asks for: it has " + describe(actual) + ", not " +
                      describe(wanted) + "; publish the entry again");
}

}  // namespace zelor::agent

#include "authoring/publish/Publisher.h"

#include <openssl/rand.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>

#include "authoring/UsageError.h"
#include "authoring/checks/ContentChecks.h"
#include "authoring/publish/ContentDirectory.h"
#include "authoring/publish/ContentXml.h"
#include "authoring/publish/PatchPublisher.h"
#include "authoring/publish/PublishState.h"
#include "authoring/publish/RepositoryLock.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kSpeedBytes = 2U << 20U;

void requireDirectory(const std::string& directory) {
    if (!base::makeDirectories(directory)) {
        throw UsageError("cannot make " + directory + ": " + base::errorText(errno) +
                         "; choose another --out");
    }
}

void removeLeftovers(const std::string& directory) {
    for (fs::directory_iterator it(directory), end; it != end; ++it) {
        if (base::isStagedName(it->path().filename().string())) fs::remove(it->path());
    }
}

/// Random bytes, which no proxy can compress.
bool writeSpeedFile(const std::string& path) {
    boost::system::error_code ignored;
    if (fs::file_size(path, ignored) == kSpeedBytes) return false;
    std::string bytes(kSpeedBytes, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(bytes.size())) != 1) {
        throw std::runtime_error("OpenSSL cannot make random bytes for " + path);
    }
    base::replaceFile(path, bytes);
    return true;
}

/// Saves the state after a failure too, so that what was written is not written again.
class SavedState {
  public:
    explicit SavedState(const std::string& path) : path_(path), state_(readPublishState(path)) {}
    ~SavedState() {
        try {
            save();
        } catch (const std::exception&) {
            // The next publication writes these archives again.
        }
    }
    SavedState(const SavedState&) = delete;
    SavedState& operator=(const SavedState&) = delete;

    PublishState& get() { return state_; }
    void save() { writePublishState(path_, state_); }

  private:
    std::string path_;
    PublishState state_;
};

using FactsByPatch = std::map<std::string, PatchFacts>;

void fillIn(ContentEntry& entry, const FactsByPatch& facts) {
    for (ContentCre& cre : entry.cres) {
        for (ContentEri& eri : cre.eris) {
            if (eri.check && !eri.check->script.empty()) {
                eri.check->file = facts.at(eri.check->script).file;
                eri.check->archive = facts.at(eri.check->script).archive;
            }
            const auto found = facts.find(eri.patchId);
            if (found == facts.end()) continue;
            eri.md5 = found->second.md5;
            eri.size = found->second.size;
            eri.file = found->second.file;
            eri.archive = found->second.archive;
        }
    }
}

/// One publication, under the repository's lock.
class Publisher {
  public:
    Publisher(Manifest manifest, const SigningKey& key, const Publication& publication,
              const std::function<void(const std::string&)>& report)
        : manifest_(std::move(manifest)),
          key_(key),
          publication_(publication),
          report_(report),
          state_(publishStateFile(publication.repository)),
          content_(publication.repository) {
        if (publication.metadata) {
            metadata_ = std::make_unique<MetadataPublisher>(publication.repository, *publication.metadata);
        } else if (MetadataDirectory(publication.repository).exists()) {
            throw UsageError(
                publication.repository +
                " has signed metadata, which would no longer list what it has; name its keys with "
                "--metadata-keys");
        }
    }

    PublishSummary run() {
        publishPatches();
        if (writeSpeedFile(publication_.repository + "/speed.bin")) report_("wrote speed.bin");
        collectContent();
        const std::set<std::string> withdrawn = collectWithdrawals();
        if (metadata_) metadata_->list(content_.nameByDigest(key_));
        noteFiles(manifest_, state_.get());
        // Saved first: published entries must be recorded so that they can be withdrawn.
        state_.save();
        content_.commit();
        if (metadata_) {
            metadata_->write();
            report_("wrote metadata/timestamp.json");
        }
        for (const std::string& identifier : withdrawn)
            state_.get().entries.erase(identifier);
        summary_.entriesWithdrawn = withdrawn.size();
        summary_.patchesRemoved =
            removeRetiredPatches(publication_.repository, publication_.prune, state_.get().patches,
                                 [this](const std::string& name) { report_("removed " + name); });
        return summary_;
    }

  private:
    void publishPatches() {
        PatchPublisher publisher(publication_.repository, key_, state_.get().patches);
        const auto shown = [this](const std::string& patchId) {
            ++summary_.patchesWritten;
            report_("wrote patches/" + remediation::splitAtLastDot(patchId)->stem + ".zip");
        };
        for (const ManifestPatch& patch : manifest_.patches) {
            if (facts_.count(patch.patchId) != 0) continue;
            facts_[patch.patchId] = publisher.publish(patch);
            if (!patch.omitArchive) ++summary_.patches;
            if (publisher.groupIsFull()) publisher.commit(shown);
        }
        publisher.commit(shown);
    }

    void collectContent() {
        for (ContentEntry& entry : manifest_.entries) {
            fillIn(entry, facts_);
            ++summary_.entries;
            state_.get().entries[entry.identifier] = publication_.manifest;
            if (!content_.put(entry.identifier, contentXml(entry), key_)) continue;
            ++summary_.entriesWritten;
            report_("wrote content/" + entry.identifier + ".xml");
        }
    }

    std::set<std::string> collectWithdrawals() {
        std::set<std::string> withdrawn = content_.identifiers();
        for (const ContentEntry& entry : manifest_.entries)
            withdrawn.erase(entry.identifier);
        const auto& owners = state_.get().entries;
        for (auto it = withdrawn.begin(); it != withdrawn.end();) {
            const auto owner = owners.find(*it);
            const bool own = owner != owners.end() && owner->second == publication_.manifest;
            it = own || publication_.only ? std::next(it) : withdrawn.erase(it);
        }
        for (const std::string& identifier : withdrawn) {
            content_.withdraw(identifier);
            report_("withdrew content/" + identifier + ".xml");
        }
        return withdrawn;
    }

    Manifest manifest_;
    const SigningKey& key_;
    const Publication& publication_;
    const std::function<void(const std::string&)>& report_;
    SavedState state_;
    ContentDirectory content_;
    std::unique_ptr<MetadataPublisher> metadata_;
    FactsByPatch facts_;
    PublishSummary summary_;
};

}  // namespace

PublishSummary publish(Manifest manifest, const SigningKey& key, const Publication& publication,
                       const std::function<void(const std::string&)>& report) {
    const std::string& repository = publication.repository;
    requireDirectory(repository + "/patches");
    const base::LockFile lock = lockRepository(repository);
    removeLeftovers(repository);
    removeLeftovers(repository + "/patches");
    return Publisher(std::move(manifest), key, publication, report).run();
}

}  // namespace zelor::authoring

#include "authoring/Publisher.h"

#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/file.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <map>
#include <stdexcept>

#include "agent/Files.h"
#include "authoring/ContentFolder.h"
#include "authoring/ContentXml.h"
#include "authoring/PatchPublisher.h"
#include "authoring/StagedFile.h"
#include "authoring/UsageError.h"
#include "remediation/PatchName.h"

namespace zelor {

namespace {

namespace fs = boost::filesystem;

constexpr std::size_t speedBytes = 2U << 20U;

void requireFolder(const std::string& folder) {
    if (!makeFolders(folder)) {
        throw UsageError("cannot make " + folder + ": " + errorText(errno) + "; choose another --out");
    }
}

/// Held until the descriptor is closed. Its file stays: removing it would let two hold "the" lock.
UniqueFd lockRepository(const std::string& repository) {
    const std::string path = repository + "/.zelor-content.lock";
    UniqueFd lock = openFile(path, O_RDWR | O_CREAT | O_NOFOLLOW);
    if (!lock.valid()) throw UsageError("cannot write below " + repository + ": " + errorText(errno));
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        throw UsageError("another publication to " + repository + " is under way; wait for its end");
    }
    return lock;
}

void removeLeftovers(const std::string& folder) {
    for (fs::directory_iterator it(folder), end; it != end; ++it) {
        if (isStagedName(it->path().filename().string())) fs::remove(it->path());
    }
}

/// Random, so that no proxy makes it smaller on the way.
bool writeSpeedFile(const std::string& path) {
    boost::system::error_code ignored;
    if (fs::file_size(path, ignored) == speedBytes) return false;
    std::string bytes(speedBytes, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(bytes.size())) != 1) {
        throw std::runtime_error("OpenSSL has no random bytes for " + path);
    }
    replaceFile(path, bytes);
    return true;
}

/// Also what was written before a failure is saved, so that it is not written again.
class SavedState {
  public:
    explicit SavedState(const std::string& path) : path_(path), state_(readPublishState(path)) {}
    ~SavedState() {
        try {
            if (changed_) writePublishState(path_, state_);
        } catch (const std::exception&) {
            // The next publication then writes these archives anew.
        }
    }
    SavedState(const SavedState&) = delete;
    SavedState& operator=(const SavedState&) = delete;

    PublishState& get() { return state_; }
    void setChanged() { changed_ = true; }

  private:
    std::string path_;
    PublishState state_;
    bool changed_ = false;
};

using Wrote = std::function<void(const std::string&)>;
using FactsByPatch = std::map<std::string, PatchFacts>;

FactsByPatch publishPatches(const Manifest& manifest, const SigningKey& key, const std::string& repository,
                            PublishSummary& summary, const Wrote& wrote) {
    SavedState state(repository + "/.zelor-content.json");
    PatchPublisher publisher(repository, key, state.get());
    FactsByPatch facts;
    for (const ManifestPatch& patch : manifest.patches) {
        if (facts.count(patch.patchId) != 0) continue;
        const PatchFacts& published = facts[patch.patchId] = publisher.publish(patch);
        if (patch.omitArchive) continue;
        ++summary.patches;
        if (!published.written) continue;
        ++summary.patchesWritten;
        state.setChanged();
        wrote("patches/" + splitAtLastDot(patch.patchId)->stem + ".zip");
    }
    return facts;
}

void fillIn(ContentEntry& entry, const FactsByPatch& facts) {
    for (ContentCre& cre : entry.cres) {
        for (ContentEri& eri : cre.eris) {
            const auto found = facts.find(eri.patchId);
            if (found == facts.end()) continue;
            eri.md5 = found->second.md5;
            eri.size = found->second.size;
        }
    }
}

}  // namespace

PublishSummary publish(Manifest manifest, const SigningKey& key, const std::string& repository,
                       const Wrote& wrote) {
    requireFolder(repository + "/patches");
    const UniqueFd lock = lockRepository(repository);
    removeLeftovers(repository);
    removeLeftovers(repository + "/patches");
    PublishSummary summary;
    const FactsByPatch facts = publishPatches(manifest, key, repository, summary, wrote);
    if (writeSpeedFile(repository + "/speed.bin")) wrote("speed.bin");
    ContentFolder content(repository);
    for (ContentEntry& entry : manifest.entries) {
        fillIn(entry, facts);
        ++summary.entries;
        if (!content.put(entry.identifier, contentXml(entry), key)) continue;
        ++summary.entriesWritten;
        wrote("content/" + entry.identifier + ".xml");
    }
    content.commit();
    return summary;
}

}  // namespace zelor

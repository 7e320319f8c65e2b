#include "authoring/publish/PatchPublisher.h"

#include <sys/stat.h>

#include <boost/filesystem/operations.hpp>
#include <stdexcept>

#include "authoring/manifest/SizeText.h"
#include "authoring/publish/Digests.h"
#include "authoring/publish/ZipWriter.h"
#include "base/Hex.h"
#include "base/StagedFile.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::authoring {

namespace {

// Flushed together; a group's bytes are on the disk a second time until it is shown.
constexpr std::size_t groupPatches = 500;
constexpr std::uint64_t groupBytes = 256U << 20U;

}  // namespace

PatchPublisher::PatchPublisher(const std::string& repository, const SigningKey& key, PublishedPatches& state)
    : folder_(repository + "/patches/"), key_(key), fingerprint_(key.fingerprint()), state_(state) {}

std::string PatchPublisher::archiveOf(const std::string& patchId) const {
    return folder_ + remediation::splitAtLastDot(patchId)->stem + ".zip";
}

PublishedPatch PatchPublisher::stamped(const std::string& patchId, const std::string& sha256) const {
    const std::string signatureFile = folder_ + remediation::splitAtLastDot(patchId)->stem + ".sig";
    return {base::hexadecimal(sha256), fingerprint_, fileStamp(archiveOf(patchId)), fileStamp(signatureFile)};
}

PatchFacts PatchPublisher::publish(const ManifestPatch& patch) {
    PatchFacts facts;
    if (patch.file.empty()) return {patch.md5, patch.size};
    const Digests& digests = patch.digests;
    facts.md5 = digests.md5;
    if (patch.omitArchive) {
        facts.size = patch.size.empty() ? sizeText(digests.bytes) : patch.size;
        return facts;
    }
    const auto known = state_.find(patch.patchId);
    const bool present = known != state_.end() && known->second == stamped(patch.patchId, digests.sha256);
    const std::uint64_t bytes =
        present ? boost::filesystem::file_size(archiveOf(patch.patchId)) : write(patch);
    facts.size = patch.size.empty() ? sizeText(bytes) : patch.size;
    return facts;
}

std::uint64_t PatchPublisher::write(const ManifestPatch& patch) {
    const remediation::PatchName name = *remediation::splitAtLastDot(patch.patchId);
    const std::string signature = key_.sign(patch.digests.sha256);
    base::StagedFile& zip = group_.add(archiveOf(patch.patchId));
    writePatchArchive(zip.descriptor(), patch.file, patch.patchId,
                      remediation::signaturePath(patch.patchId, name.extension), signature);
    struct stat status {};
    if (::fstat(zip.descriptor(), &status) != 0 ||
        digestsOfSource(patch.file).sha256 != patch.digests.sha256) {
        throw std::runtime_error(patch.file +
                                 " changed while it was published; publish again once it is at rest");
    }
    zip.close();
    base::StagedFile& detached = group_.add(folder_ + name.stem + ".sig");
    detached.write(signature);
    detached.close();
    waiting_.emplace_back(patch.patchId, patch.digests.sha256);
    const auto bytes = static_cast<std::uint64_t>(status.st_size);
    waitingBytes_ += bytes;
    return bytes;
}

bool PatchPublisher::groupIsFull() const {
    return waiting_.size() >= groupPatches || waitingBytes_ >= groupBytes;
}

void PatchPublisher::commit(const std::function<void(const std::string&)>& shown) {
    group_.commit();
    for (const auto& [patchId, sha256] : waiting_) {
        state_[patchId] = stamped(patchId, sha256);
        shown(patchId);
    }
    waiting_.clear();
    waitingBytes_ = 0;
}

}  // namespace zelor::authoring

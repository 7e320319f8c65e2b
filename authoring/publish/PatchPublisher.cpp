#include "authoring/publish/PatchPublisher.h"

#include <boost/filesystem/operations.hpp>
#include <stdexcept>

#include "authoring/manifest/SizeText.h"
#include "authoring/publish/Digests.h"
#include "authoring/publish/StagedFile.h"
#include "authoring/publish/ZipWriter.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::authoring {

PatchPublisher::PatchPublisher(const std::string& repository, const SigningKey& key, PublishedPatches& state)
    : folder_(repository + "/patches/"), key_(key), fingerprint_(key.fingerprint()), state_(state) {}

PatchFacts PatchPublisher::publish(const ManifestPatch& patch) {
    PatchFacts facts;
    if (patch.file.empty()) return {patch.md5, patch.size, false};
    const Digests digests = digestsOfSource(patch.file);
    facts.md5 = digests.md5;
    if (!patch.md5.empty() && patch.md5 != digests.md5) {
        throw std::runtime_error(patch.place + ": field \"md5\" is " + patch.md5 + ", but the file has " +
                                 digests.md5 + "; leave the field out, or check the file");
    }
    if (patch.omitArchive) {
        facts.size = patch.size.empty() ? sizeText(digests.bytes) : patch.size;
        return facts;
    }
    const std::string stem = folder_ + remediation::splitAtLastDot(patch.patchId)->stem;
    const std::string archive = stem + ".zip", signatureFile = stem + ".sig";
    const auto stamped = [&] {
        return PublishedPatch{hexadecimal(digests.sha256), fingerprint_, fileStamp(archive),
                              fileStamp(signatureFile)};
    };
    const auto known = state_.find(patch.patchId);
    facts.written = known == state_.end() || !(known->second == stamped());
    if (facts.written) {
        write(patch, digests.sha256, archive, signatureFile);
        state_[patch.patchId] = stamped();
    }
    facts.size = patch.size.empty() ? sizeText(boost::filesystem::file_size(archive)) : patch.size;
    return facts;
}

void PatchPublisher::write(const ManifestPatch& patch, const std::string& sha256, const std::string& archive,
                           const std::string& signatureFile) {
    const std::string signature = key_.sign(sha256);
    const std::string signatureName =
        remediation::signaturePath(patch.patchId, remediation::splitAtLastDot(patch.patchId)->extension);
    StagedFile zip(archive), detached(signatureFile);
    writePatchArchive(zip.descriptor(), patch.file, patch.patchId, signatureName, signature);
    if (digestsOfSource(patch.file).sha256 != sha256) {
        throw std::runtime_error(patch.file +
                                 " changed while it was published; publish again once it is at rest");
    }
    detached.write(signature);
    detached.finish();
    zip.commit();
    detached.commit();
}

}  // namespace zelor::authoring

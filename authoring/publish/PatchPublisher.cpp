#include "authoring/publish/PatchPublisher.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "authoring/manifest/SizeText.h"
#include "authoring/publish/Digests.h"
#include "base/Deleter.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "base/Strings.h"
#include "platform/macos/InstallerKinds.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::authoring {

namespace {

constexpr unsigned kPermissionBits = 0777;

/// The status of what is at `path`; a link at the top is followed, one inside a bundle is kept.
struct stat statusOf(const std::string& path, bool follow) {
    struct stat status {};
    if ((follow ? ::stat(path.c_str(), &status) : ::lstat(path.c_str(), &status)) != 0) {
        throw std::runtime_error("cannot examine " + path + ": " + base::errorText(errno));
    }
    return status;
}

class ZipWriter {
  public:
    ZipWriter(int descriptor, bool compress) : descriptor_(descriptor), archive_(archive_write_new()) {
        require(archive_ ? ARCHIVE_OK : ARCHIVE_FATAL);
        require(archive_write_set_format_zip(archive_.get()));
        require(compress ? archive_write_zip_set_compression_deflate(archive_.get())
                         : archive_write_zip_set_compression_store(archive_.get()));
        require(archive_write_set_bytes_in_last_block(archive_.get(), 1));
        require(archive_write_open2(archive_.get(), this, nullptr, &ZipWriter::take, nullptr, nullptr));
    }
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;

    void add(const std::string& path, const std::string& name, const struct stat& status) {
        if (S_ISLNK(status.st_mode)) {
            const std::string target = boost::filesystem::read_symlink(path).string();
            begin(name, status, AE_IFLNK, 0, &target);
        } else if (S_ISDIR(status.st_mode)) {
            begin(name + '/', status, AE_IFDIR, 0);
        } else {
            begin(name, status, AE_IFREG, status.st_size);
            base::readInPieces(base::openRegularFile(path, base::Links::follow), path,
                               [&](std::string_view piece) { write(piece); });
        }
    }

    void addText(const std::string& name, const std::string& text, const struct stat& like) {
        struct stat status = like;
        constexpr mode_t kReadable = 0644;
        status.st_mode = kReadable;
        begin(name, status, AE_IFREG, static_cast<la_int64_t>(text.size()));
        write(text);
    }

    /// The digest of the archive.
    agent::FileDigest finish() {
        require(archive_write_close(archive_.get()));
        return digest_.finish();
    }

  private:
    static la_ssize_t take(archive* writer, void* self, const void* bytes, size_t size) {
        auto* zip = static_cast<ZipWriter*>(self);
        const std::string_view piece(static_cast<const char*>(bytes), size);
        if (!base::writeAll(zip->descriptor_, piece)) {
            archive_set_error(writer, errno, "%s", base::errorText(errno).c_str());
            return -1;
        }
        zip->digest_.add(piece);
        return static_cast<la_ssize_t>(size);
    }

    void require(int result) {
        if (result == ARCHIVE_OK) return;
        const char* cause = archive_ ? archive_error_string(archive_.get()) : nullptr;
        throw std::runtime_error(std::string("cannot write the archive: ") +
                                 (cause ? cause : "out of memory"));
    }

    void begin(const std::string& name, const struct stat& status, unsigned type, la_int64_t size,
               const std::string* target = nullptr) {
        const std::unique_ptr<archive_entry, base::Deleter<archive_entry_free>> entry(archive_entry_new());
        require(entry ? ARCHIVE_OK : ARCHIVE_FATAL);
        archive_entry_set_pathname(entry.get(), name.c_str());
        archive_entry_set_filetype(entry.get(), type);
        archive_entry_set_perm(entry.get(), status.st_mode & kPermissionBits);
        archive_entry_set_mtime(entry.get(), status.st_mtime, 0);
        archive_entry_set_size(entry.get(), size);
        if (target != nullptr) archive_entry_set_symlink(entry.get(), target->c_str());
        require(archive_write_header(archive_.get(), entry.get()));
    }

    void write(std::string_view bytes) {
        while (!bytes.empty()) {
            const la_ssize_t written = archive_write_data(archive_.get(), bytes.data(), bytes.size());
            // Nothing is written when the file has grown beyond the size in its header.
            if (written <= 0) require(ARCHIVE_FATAL);
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    int descriptor_;
    agent::Sha256 digest_;
    std::unique_ptr<archive, base::Deleter<archive_write_free>> archive_;
};

std::vector<std::string> pathsBelow(const std::string& directory) {
    std::vector<std::string> names;
    for (boost::filesystem::recursive_directory_iterator it(directory), end; it != end; ++it)
        names.push_back(it->path().string().substr(directory.size() + 1));
    std::sort(names.begin(), names.end());
    return names;
}

/// Writes the archive of a patch to the descriptor: the file or bundle at `source` under the name `patchId`,
/// in byte order of the paths, with the permission bits, modification times and symbolic links of the source,
/// then the signature under `signatureName`. The same input gives the same bytes. Returns the digest of
/// the archive. Throws std::runtime_error.
agent::FileDigest writePatchArchive(int descriptor, const std::string& source, const std::string& patchId,
                                    const std::string& signatureName, const std::string& signature) {
    const struct stat status = statusOf(source, true);
    // Packages and disk images are compressed already.
    const platform::InstallerKind* const kind = platform::installerKindOf(patchId);
    ZipWriter zip(descriptor, S_ISDIR(status.st_mode) || kind == nullptr || !kind->isCompressed);
    zip.add(source, patchId, status);
    if (S_ISDIR(status.st_mode)) {
        for (const std::string& name : pathsBelow(source)) {
            const std::string path = source + '/' + name;
            zip.add(path, patchId + '/' + name, statusOf(path, false));
        }
    }
    zip.addText(signatureName, signature, status);
    return zip.finish();
}

// Patches of a group are flushed together; until then they take twice their size on the disk.
constexpr std::size_t kGroupPatches = 500;
constexpr std::uint64_t kGroupBytes = 256U << 20U;

}  // namespace

PatchPublisher::PatchPublisher(const std::string& repository, const SigningKey& key, PublishedPatches& state)
    : directory_(repository + "/patches/"), key_(key), fingerprint_(key.fingerprint()), state_(state) {}

std::string PatchPublisher::archiveOf(const std::string& patchId) const {
    return directory_ + remediation::splitAtLastDot(patchId)->stem + ".zip";
}

PublishedPatch PatchPublisher::stamped(const std::string& patchId, const std::string& sha256) const {
    const std::string signatureFile = directory_ + remediation::splitAtLastDot(patchId)->stem + ".sig";
    return {base::hexadecimal(sha256), fingerprint_, fileStamp(archiveOf(patchId)), fileStamp(signatureFile)};
}

PatchFacts PatchPublisher::publish(const ManifestPatch& patch) {
    PatchFacts facts;
    if (patch.file.empty()) return {patch.md5, patch.size};
    const Digests& digests = patch.digests;
    facts.md5 = digests.md5;
    facts.file = fileDigest(digests);
    if (patch.omitArchive) {
        facts.size = patch.size.empty() ? sizeText(digests.bytes) : patch.size;
        return facts;
    }
    const auto known = state_.find(patch.patchId);
    const bool present = known != state_.end() && known->second == stamped(patch.patchId, digests.sha256);
    facts.archive = present ? keep(patch) : write(patch);
    facts.size = patch.size.empty() ? sizeText(facts.archive->length) : patch.size;
    return facts;
}

/// The digest of an archive that is not written again.
agent::FileDigest PatchPublisher::keep(const ManifestPatch& patch) {
    PublishedPatch& known = state_.at(patch.patchId);
    const std::string archive = archiveOf(patch.patchId);
    if (!known.archiveSha256.empty()) return {known.archiveSha256, boost::filesystem::file_size(archive)};
    agent::FileDigest digest = fileDigest(digestsOfFile(archive));
    known.archiveSha256 = digest.sha256;
    return digest;
}

agent::FileDigest PatchPublisher::write(const ManifestPatch& patch) {
    const remediation::PatchName name = *remediation::splitAtLastDot(patch.patchId);
    const std::string signature = key_.sign(patch.digests.sha256);
    base::StagedFile& zip = group_.add(archiveOf(patch.patchId));
    agent::FileDigest digest =
        writePatchArchive(zip.descriptor(), patch.file, patch.patchId,
                          remediation::signaturePath(patch.patchId, name.extension), signature);
    if (digestsOfSource(patch.file).sha256 != patch.digests.sha256) {
        throw std::runtime_error(patch.file +
                                 " changed while it was published; publish again when it no longer changes");
    }
    zip.close();
    base::StagedFile& detached = group_.add(directory_ + name.stem + ".sig");
    detached.write(signature);
    detached.close();
    waiting_.push_back({patch.patchId, patch.digests.sha256, digest.sha256});
    waitingBytes_ += digest.length;
    return digest;
}

bool PatchPublisher::groupIsFull() const {
    return waiting_.size() >= kGroupPatches || waitingBytes_ >= kGroupBytes;
}

void PatchPublisher::commit(const std::function<void(const std::string&)>& shown) {
    group_.commit();
    for (const Waiting& patch : waiting_) {
        PublishedPatch& published = state_[patch.patchId];
        published = stamped(patch.patchId, patch.sha256);
        published.archiveSha256 = patch.archiveSha256;
        shown(patch.patchId);
    }
    waiting_.clear();
    waitingBytes_ = 0;
}

}  // namespace zelor::authoring

#include "agent/archive/ArchiveExtractor.h"

#include <archive.h>
#include <archive_entry.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <stdexcept>

#include "agent/archive/ExtractionTree.h"
#include "agent/archive/TreeReplacement.h"
#include "agent/archive/ZipDirectory.h"
#include "agent/content/PatchDigests.h"
#include "base/Deleter.h"
#include "base/Files.h"
#include "base/SystemCalls.h"

namespace zelor::agent {

namespace {

constexpr std::size_t kReadBytes = 1U << 20U;

using Reader = std::unique_ptr<archive, base::Deleter<archive_read_free>>;

/// Entry names marked as UTF-8 stay unchanged only in a UTF-8 locale, which an agent's process seldom sets.
class Utf8Names {
  public:
    Utf8Names() {
        for (const char* name : {"C.UTF-8", "en_US.UTF-8", "UTF-8"}) {
            locale_ = newlocale(LC_CTYPE_MASK, name, locale_t());
            if (locale_ != locale_t()) break;
        }
        if (locale_ != locale_t()) previous_ = uselocale(locale_);
    }
    ~Utf8Names() {
        if (locale_ == locale_t()) return;
        uselocale(previous_);
        freelocale(locale_);
    }
    Utf8Names(const Utf8Names&) = delete;
    Utf8Names& operator=(const Utf8Names&) = delete;

  private:
    locale_t locale_ = locale_t();
    locale_t previous_ = locale_t();
};

/// The extraction of one archive into one directory.
class Extraction {
  public:
    Extraction(const base::UniqueFd& file, std::uint64_t archiveBytes, ExtractionTree& tree,
               const ExtractionLimits& limits)
        : tree_(tree), limits_(limits) {
        allowance_ = unpackedAllowance(archiveBytes, tree.freeBytes(), limits);
        reader_.reset(archive_read_new());
        // Only the central directory has modes and links, and shows whether the archive is complete.
        if (!reader_ || archive_read_support_format_zip_seekable(reader_.get()) != ARCHIVE_OK) failRead();
        archive_read_set_format_option(reader_.get(), "zip", "mac-ext", nullptr);
        if (archive_read_open_fd(reader_.get(), file.get(), kReadBytes) != ARCHIVE_OK) failRead();
    }

    void run() {
        archive_entry* entry = nullptr;
        int result = ARCHIVE_OK;
        while ((result = archive_read_next_header(reader_.get(), &entry)) == ARCHIVE_OK) {
            const char* name = archive_entry_pathname(entry);
            name_ = name == nullptr ? "" : name;
            try {
                takeEntry(entry);
            } catch (const std::exception& e) {
                throw std::runtime_error("entry \"" + name_ + "\" " + e.what());
            }
        }
        if (result != ARCHIVE_EOF) failRead();
        tree_.finish();
    }

  private:
    [[noreturn]] void failRead() const {
        const char* cause = reader_ ? archive_error_string(reader_.get()) : "out of memory";
        throw std::runtime_error(std::string("damaged or no zip archive: ") +
                                 (cause == nullptr ? "unreadable" : cause));
    }

    static void require(const base::Check& check) {
        if (!check) throw std::runtime_error(check.error().text);
    }

    void takeEntry(archive_entry* entry) {
        constexpr const char* kTooMany = "is one more than the entries allowed";
        if (++entries_ > limits_.entries) throw std::runtime_error(kTooMany);
        require(checkEntryName(name_, limits_));
        if (archive_entry_is_encrypted(entry) != 0) throw std::runtime_error("is encrypted");
        if (archive_entry_hardlink(entry) != nullptr) throw std::runtime_error("is a hard link");
        const auto path = pathComponents(name_);
        const auto type = archive_entry_filetype(entry);
        if (path.empty()) {
            if (type != AE_IFDIR) throw std::runtime_error("has no name");
            return;
        }
        require(names_.add(path));
        if (names_.size() > limits_.entries) throw std::runtime_error(kTooMany);
        create(entry, path, type);
    }

    void create(archive_entry* entry, const ExtractionTree::Path& path, unsigned type) {
        const unsigned kept = type == AE_IFREG && path.size() == 1 ? kKeptModeBitsOfLoneFile : kKeptModeBits;
        const auto mode = static_cast<mode_t>(archive_entry_perm(entry) & kept);
        ExtractionTree::Time time;
        if (archive_entry_mtime_is_set(entry) != 0) {
            time = timespec{archive_entry_mtime(entry), archive_entry_mtime_nsec(entry)};
        }
        if (type == AE_IFDIR) {
            tree_.addDirectory(path, mode, time);
        } else if (type == AE_IFLNK) {
            const char* target = archive_entry_symlink(entry);
            require(checkLinkTarget(path, target == nullptr ? "" : target, limits_));
            tree_.addLink(path, target, time);
        } else if (type == AE_IFREG) {
            if (archive_entry_size_is_set(entry) != 0) requireRoom(archive_entry_size(entry));
            base::UniqueFd file = tree_.createFile(path);
            copyData(file);
            ExtractionTree::finishFile(std::move(file), mode, time);
        } else {
            throw std::runtime_error("is a device, FIFO or socket");
        }
    }

    void copyData(const base::UniqueFd& file) {
        const void* bytes = nullptr;
        std::size_t size = 0;
        la_int64_t offset = 0;
        la_int64_t expected = 0;
        int result = ARCHIVE_OK;
        while ((result = archive_read_data_block(reader_.get(), &bytes, &size, &offset)) == ARCHIVE_OK) {
            if (offset != expected) throw std::runtime_error("has holes");
            requireRoom(static_cast<la_int64_t>(size));
            if (!base::writeAll(file.get(), {static_cast<const char*>(bytes), size})) {
                throw std::runtime_error("cannot write the file: " + base::errorText(errno));
            }
            expected += static_cast<la_int64_t>(size);
            unpacked_ += size;
        }
        if (result == ARCHIVE_EOF) return;
        const char* cause = archive_error_string(reader_.get());
        throw std::runtime_error(std::string("is damaged: ") + (cause == nullptr ? "unreadable" : cause));
    }

    void requireRoom(la_int64_t bytes) const {
        if (bytes < 0 || static_cast<std::uint64_t>(bytes) > allowance_.bytes - unpacked_) {
            throw std::runtime_error("unpacks to more than " + allowance_.rule + " (" +
                                     std::to_string(allowance_.bytes) + " bytes)");
        }
    }

    ExtractionTree& tree_;
    const ExtractionLimits& limits_;
    Reader reader_;
    Allowance allowance_;
    std::string name_;
    EntryNames names_;
    std::uint64_t entries_ = 0;
    std::uint64_t unpacked_ = 0;
};

void requireArchiveDigest(const base::UniqueFd& file, const std::string& archive, const FileDigest& wanted) {
    Sha256 sha256;
    base::readInPieces(file, archive, [&](std::string_view piece) { sha256.add(piece); });
    requireDigest("the archive", sha256.finish(), wanted);
    if (::lseek(file.get(), 0, SEEK_SET) != 0)
        throw std::runtime_error("cannot read " + archive + ": " + base::errorText(errno));
}

}  // namespace

void ArchiveExtractor::extract(const std::string& archive, const std::string& destination,
                               const std::optional<FileDigest>& digest) const {
    const Utf8Names names;
    std::uint64_t bytes = 0;
    const base::UniqueFd file = base::openRegularFile(archive, base::Links::refuse, &bytes);
    TreeReplacement replacement(destination);
    if (digest) requireArchiveDigest(file, archive, *digest);
    requirePlainZip(file, bytes, limits_);
    ExtractionTree tree(replacement.source(), ExtractionTree::Undo::none);
    Extraction(file, bytes, tree, limits_).run();
    replacement.commit();
}

}  // namespace zelor::agent

#pragma once

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zelor::test {

/// Builds a zip archive in memory.
class ArchiveBuilder {
  public:
    /// `options`: libarchive's for the zip writer, for example "compression=store" or
    /// "encryption=traditional".
    explicit ArchiveBuilder(const std::string& options = "")
        : writer_(archive_write_new(), archive_write_free) {
        require(archive_write_set_format_zip(writer_.get()));
        if (!options.empty()) require(archive_write_set_options(writer_.get(), options.c_str()));
        archive_write_set_passphrase(writer_.get(), "secret");
        archive_write_set_bytes_per_block(writer_.get(), 0);
        require(archive_write_open2(writer_.get(), &bytes_, nullptr, append, nullptr, nullptr));
    }

    ArchiveBuilder& file(const std::string& name, std::string_view content, mode_t mode = 0644) {
        const auto entry = newEntry(name, S_IFREG | mode);
        archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
        require(archive_write_header(writer_.get(), entry.get()));
        const la_ssize_t written = archive_write_data(writer_.get(), content.data(), content.size());
        if (written != static_cast<la_ssize_t>(content.size())) throw std::runtime_error("short write");
        return *this;
    }
    ArchiveBuilder& directory(const std::string& name, mode_t mode = 0755) {
        require(archive_write_header(writer_.get(), newEntry(name, S_IFDIR | mode).get()));
        return *this;
    }
    ArchiveBuilder& link(const std::string& name, const std::string& target) {
        const auto entry = newEntry(name, S_IFLNK | 0777);
        archive_entry_set_symlink(entry.get(), target.c_str());
        require(archive_write_header(writer_.get(), entry.get()));
        return *this;
    }
    /// The modification time of the entries that follow.
    ArchiveBuilder& at(time_t modified) {
        modified_ = modified;
        return *this;
    }

    /// The finished archive; nothing can be added afterwards.
    std::string finish() {
        require(archive_write_close(writer_.get()));
        return bytes_;
    }

  private:
    using Entry = std::unique_ptr<archive_entry, void (*)(archive_entry*)>;

    static la_ssize_t append(archive* /*writer*/, void* bytes, const void* piece, size_t size) {
        static_cast<std::string*>(bytes)->append(static_cast<const char*>(piece), size);
        return static_cast<la_ssize_t>(size);
    }

    void require(int result) const {
        if (result < ARCHIVE_OK) throw std::runtime_error(archive_error_string(writer_.get()));
    }

    Entry newEntry(const std::string& name, mode_t mode) const {
        Entry entry(archive_entry_new(), archive_entry_free);
        archive_entry_copy_pathname(entry.get(), name.c_str());
        archive_entry_set_mode(entry.get(), mode);
        archive_entry_set_mtime(entry.get(), modified_, 0);
        return entry;
    }

    std::string bytes_;
    time_t modified_ = 1700000000;
    std::unique_ptr<archive, int (*)(archive*)> writer_;
};

/// Replaces every occurrence of `from` in the raw bytes of an archive, names included; both of one length.
inline std::string patched(std::string bytes, const std::string& from, const std::string& to) {
    if (from.size() != to.size()) throw std::runtime_error("a patch must keep the length");
    if (bytes.find(from) == std::string::npos) throw std::runtime_error("nothing to patch: " + from);
    for (auto at = bytes.find(from); at != std::string::npos; at = bytes.find(from, at + to.size())) {
        bytes.replace(at, to.size(), to);
    }
    return bytes;
}

/// Gives the first entry of a zip archive's directory another mode, file type included.
inline std::string withMode(std::string bytes, unsigned mode) {
    const auto entry = bytes.find("PK\x01\x02");
    if (entry == std::string::npos) throw std::runtime_error("no directory in the archive");
    bytes.at(entry + 40) = static_cast<char>(mode & 0xffU);
    bytes.at(entry + 41) = static_cast<char>(mode >> 8U);
    return bytes;
}

}  // namespace zelor::test

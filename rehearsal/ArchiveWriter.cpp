#include "rehearsal/ArchiveWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <ctime>
#include <stdexcept>
#include <vector>

#include "base/Files.h"

namespace fs = boost::filesystem;

namespace zelor::rehearsal {

namespace {

constexpr off_t kVolumeNameAt = 0x8000 + 40;
constexpr std::size_t kVolumeNameBytes = 32;

constexpr mode_t kPlainFile = S_IFREG | 0644;
constexpr mode_t kPlainDirectory = S_IFDIR | 0755;

std::vector<std::string> sortedNames(const std::string& directory) {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// Refuses an archive that would be written into the directory it is made of.
bool isInside(const std::string& path, const std::string& directory) {
    const auto relative =
        fs::weakly_canonical(fs::absolute(path)).lexically_relative(fs::canonical(directory));
    return !relative.empty() && *relative.begin() != "..";
}

}  // namespace

ArchiveWriter::ArchiveWriter(Kind kind, const std::string& path, const std::string& volume)
    : path_(path), volume_(volume), staged_(path, ".unfinished", 0644), writer_(archive_write_new()) {
    if (!writer_) throw std::bad_alloc();
    configure(kind);
}

void ArchiveWriter::configure(Kind kind) {
    archive* writer = writer_.get();
    switch (kind) {
        case Kind::xar:
            require(archive_write_set_format_xar(writer));
            // The payload is compressed already; installers expect the members as they are.
            require(archive_write_set_options(
                writer, "xar:compression=none,xar:checksum=sha1,xar:toc-checksum=sha1"));
            break;
        case Kind::payload:
            require(archive_write_set_format_cpio_odc(writer));
            require(archive_write_add_filter_gzip(writer));
            require(archive_write_set_options(writer, "gzip:!timestamp"));
            break;
        case Kind::iso9660:
            require(archive_write_set_format_iso9660(writer));
            require(archive_write_set_options(writer, "rockridge=strict,!joliet,!pad"));
            require(archive_write_set_format_option(writer, "iso9660", "volume-id", volume_.c_str()));
            break;
    }
    archive_write_set_bytes_in_last_block(writer, 1);
    require(archive_write_open_fd(writer, staged_.descriptor()));
}

void ArchiveWriter::require(int result) const {
    if (result >= ARCHIVE_WARN) return;
    const char* text = archive_error_string(writer_.get());
    throw std::runtime_error("cannot write " + path_ + ": " + (text == nullptr ? "unknown cause" : text));
}

ArchiveWriter::Entry ArchiveWriter::newEntry(const std::string& name, mode_t mode, time_t modified) {
    Entry entry(archive_entry_new());
    if (!entry) throw std::bad_alloc();
    archive_entry_copy_pathname(entry.get(), name.c_str());
    archive_entry_set_mode(entry.get(), mode);
    archive_entry_set_mtime(entry.get(), modified, 0);
    archive_entry_set_nlink(entry.get(), 1);
    archive_entry_set_size(entry.get(), 0);
    archive_entry_set_uid(entry.get(), 0);
    archive_entry_set_gid(entry.get(), 0);
    archive_entry_set_uname(entry.get(), "root");
    archive_entry_set_gname(entry.get(), "wheel");
    return entry;
}

void ArchiveWriter::writeEntry(archive_entry* entry) {
    require(archive_write_header(writer_.get(), entry));
}

void ArchiveWriter::writeData(const void* data, std::size_t size) {
    const la_ssize_t written = archive_write_data(writer_.get(), data, size);
    if (written < 0) require(ARCHIVE_FATAL);
    if (static_cast<std::size_t>(written) != size) throw std::runtime_error("cannot write " + path_);
}

void ArchiveWriter::addText(const std::string& name, const std::string& text) {
    const Entry entry = newEntry(name, kPlainFile, std::time(nullptr));
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(text.size()));
    writeEntry(entry.get());
    writeData(text.data(), text.size());
}

void ArchiveWriter::addDirectoryEntry(const std::string& name) {
    writeEntry(newEntry(name, kPlainDirectory, std::time(nullptr)).get());
}

void ArchiveWriter::addFile(const std::string& name, const std::string& path) {
    const auto size = fs::file_size(path);
    const Entry entry = newEntry(name, kPlainFile, fs::last_write_time(path));
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
    writeEntry(entry.get());
    writeFileData(path, size);
}

void ArchiveWriter::writeFileData(const std::string& path, std::uint64_t size) {
    const base::UniqueFd file = base::openRegularFile(path);
    const auto read = base::readInPieces(
        file, path, [&](std::string_view piece) { writeData(piece.data(), piece.size()); });
    if (read != size) throw std::runtime_error(path + " changed while it was read");
}

DirectoryCount ArchiveWriter::addDirectory(const std::string& directory, const std::string& prefix) {
    if (!fs::is_directory(directory)) throw std::runtime_error(directory + " is no directory");
    if (isInside(path_, directory))
        throw std::runtime_error(path_ + " is inside of " + directory + "; write it elsewhere");
    DirectoryCount count;
    for (const std::string& name : sortedNames(directory))
        addPath(directory + "/" + name, prefix + name, count);
    return count;
}

void ArchiveWriter::addPath(const std::string& path, const std::string& name, DirectoryCount& count) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) throw std::runtime_error(path + ": " + base::errorText(errno));
    const Entry entry = newEntry(name, status.st_mode & (S_IFMT | 0777U), status.st_mtime);
    ++count.files;
    if (S_ISDIR(status.st_mode)) {
        writeEntry(entry.get());
        for (const std::string& inner : sortedNames(path))
            addPath(path + "/" + inner, name + "/" + inner, count);
    } else if (S_ISLNK(status.st_mode)) {
        archive_entry_copy_symlink(entry.get(), fs::read_symlink(path).c_str());
        writeEntry(entry.get());
    } else if (S_ISREG(status.st_mode)) {
        const auto size = static_cast<std::uint64_t>(status.st_size);
        archive_entry_set_size(entry.get(), status.st_size);
        writeEntry(entry.get());
        writeFileData(path, size);
        count.bytes += size;
    } else {
        throw std::runtime_error(path + " is no file, directory or symbolic link");
    }
}

void ArchiveWriter::commit() {
    require(archive_write_close(writer_.get()));
    if (!volume_.empty()) {
        // libarchive writes only capitals here; Macs show the name unchanged.
        std::string name = volume_;
        name.resize(kVolumeNameBytes, ' ');
        if (::pwrite(staged_.descriptor(), name.data(), name.size(), kVolumeNameAt) !=
            static_cast<ssize_t>(name.size())) {
            throw std::runtime_error("cannot write " + path_ + ": " + base::errorText(errno));
        }
    }
    staged_.commit();
}

}  // namespace zelor::rehearsal

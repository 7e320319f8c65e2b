#include "rehearsal/ArchiveReader.h"

#include "base/Files.h"

namespace zelor::rehearsal {

namespace {

constexpr std::size_t kBlockBytes = 1U << 16U;

void supportKind(archive* reader, ArchiveReader::Kind kind) {
    switch (kind) {
        case ArchiveReader::Kind::xar:
            archive_read_support_format_xar(reader);
            break;
        case ArchiveReader::Kind::cpio:
            archive_read_support_format_cpio(reader);
            archive_read_support_filter_gzip(reader);
            archive_read_support_filter_bzip2(reader);
            archive_read_support_filter_xz(reader);
            break;
        case ArchiveReader::Kind::iso9660:
            archive_read_support_format_iso9660(reader);
            break;
    }
}

}  // namespace

ArchiveReader::ArchiveReader(Kind kind, const std::string& path)
    : file_(base::openRegularFile(path, base::Links::follow)), reader_(archive_read_new()) {
    if (!reader_) throw std::bad_alloc();
    supportKind(reader_.get(), kind);
    if (archive_read_open_fd(reader_.get(), file_.get(), kBlockBytes) != ARCHIVE_OK) throw NoArchive(cause());
    // The format is recognised at the first header.
    const int result = archive_read_next_header(reader_.get(), &pending_);
    if (result == ARCHIVE_EOF) {
        atEnd_ = true;
    } else if (result < ARCHIVE_WARN) {
        throw NoArchive(cause());
    }
}

archive_entry* ArchiveReader::next() {
    if (atEnd_) return nullptr;
    if (pending_ != nullptr) return std::exchange(pending_, nullptr);
    archive_entry* entry = nullptr;
    const int result = archive_read_next_header(reader_.get(), &entry);
    if (result == ARCHIVE_EOF) {
        atEnd_ = true;
        return nullptr;
    }
    if (result < ARCHIVE_WARN) throw std::runtime_error("damaged archive: " + cause());
    return entry;
}

std::size_t ArchiveReader::read(char* buffer, std::size_t size) {
    const la_ssize_t count = archive_read_data(reader_.get(), buffer, size);
    if (count < 0) throw std::runtime_error("damaged archive: " + cause());
    return static_cast<std::size_t>(count);
}

std::string ArchiveReader::cause() const {
    const char* text = archive_error_string(reader_.get());
    return text == nullptr ? "unreadable" : text;
}

}  // namespace zelor::rehearsal

#include "agent/archive/ZipDirectory.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zelor::agent {

namespace {

constexpr std::string_view kEndMark{"PK\5\6", 4};
constexpr std::string_view kWideLocatorMark{"PK\6\7", 4};
constexpr std::string_view kWideEndMark{"PK\6\6", 4};
constexpr std::string_view kEntryMark{"PK\1\2", 4};
constexpr std::string_view kHeaderMark{"PK\3\4", 4};
constexpr std::size_t kEndBytes = 22;
constexpr std::size_t kWideLocatorBytes = 20;
constexpr std::size_t kWideEndBytes = 56;
constexpr std::size_t kEntryBytes = 46;
constexpr std::size_t kHeaderBytes = 30;
constexpr std::size_t kLongestComment = 65535;
constexpr std::uint64_t kWide = 0xffffffffU;  ///< the real number is in the wide extra field
constexpr std::uint64_t kWideField = 1;
constexpr std::uint64_t kStored = 0;
constexpr std::uint64_t kDeflated = 8;

[[noreturn]] void failArchive(const std::string& why) {
    throw std::runtime_error("damaged or no zip archive: " + why);
}

std::uint64_t number(std::string_view bytes, std::size_t at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;)
        value = value << 8U | static_cast<unsigned char>(bytes.at(at + i));
    return value;
}

/// Reads pieces of a file; what is near the last piece costs no further read.
class Window {
  public:
    Window(const base::UniqueFd& file, std::uint64_t bytes) : file_(file), bytes_(bytes) {}

    /// Good until the next call.
    std::string_view at(std::uint64_t offset, std::size_t size) {
        if (offset > bytes_ || size > bytes_ - offset) failArchive("it is cut off");
        if (offset < begin_ || offset + size > begin_ + held_.size()) fill(offset, size);
        return std::string_view(held_).substr(offset - begin_, size);
    }

  private:
    void fill(std::uint64_t offset, std::size_t size) {
        constexpr std::size_t kPiece = 64U << 10U;
        begin_ = offset;
        held_.resize(std::min<std::uint64_t>(std::max(size, kPiece), bytes_ - offset));
        for (std::size_t done = 0; done < held_.size();) {
            const ssize_t got = ::pread(file_.get(), held_.data() + done, held_.size() - done,
                                        static_cast<off_t>(offset + done));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) failArchive("it cannot be read");
            done += static_cast<std::size_t>(got);
        }
    }

    const base::UniqueFd& file_;
    std::uint64_t bytes_;
    std::uint64_t begin_ = 0;
    std::string held_;
};

/// Where the directory is.
struct Extent {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
};

Extent extentOf(std::uint64_t begin, std::uint64_t size, std::uint64_t end) {
    if (size > end || begin != end - size) failArchive("its directory is not where its end says");
    return {begin, end};
}

/// The last mark of an end counts, and its comment has to reach to the end of the file.
std::uint64_t findEnd(Window& window, std::uint64_t bytes) {
    const std::uint64_t tail = std::min<std::uint64_t>(bytes, kEndBytes + kLongestComment);
    const std::string_view text = window.at(bytes - tail, tail);
    const auto at = text.size() < kEndBytes ? text.npos : text.rfind(kEndMark, text.size() - kEndBytes);
    if (at == text.npos || number(text, at + 20, 2) != text.size() - at - kEndBytes)
        failArchive("it has no end of its directory");
    return bytes - tail + at;
}

Extent findWideDirectory(Window& window, std::uint64_t locator) {
    const std::string_view where = window.at(locator, kWideLocatorBytes);
    const std::uint64_t at = number(where, 8, 8);
    if (number(where, 4, 4) != 0 || number(where, 16, 4) != 1) failArchive("it has several parts");
    const std::string_view end = window.at(at, kWideEndBytes);
    const bool whole = end.substr(0, 4) == kWideEndMark && number(end, 16, 4) == 0 &&
                       number(end, 20, 4) == 0 && number(end, 24, 8) == number(end, 32, 8);
    if (!whole) failArchive("the end of its directory is damaged");
    return extentOf(number(end, 48, 8), number(end, 40, 8), at);
}

Extent findDirectory(Window& window, std::uint64_t bytes) {
    const std::uint64_t at = findEnd(window, bytes);
    const std::string_view end = window.at(at, kEndBytes);
    if (number(end, 4, 2) != 0 || number(end, 6, 2) != 0 || number(end, 8, 2) != number(end, 10, 2))
        failArchive("it has several parts");
    const std::uint64_t begin = number(end, 16, 4);
    const std::uint64_t size = number(end, 12, 4);
    if (at >= kWideLocatorBytes && window.at(at - kWideLocatorBytes, 4) == kWideLocatorMark)
        return findWideDirectory(window, at - kWideLocatorBytes);
    return extentOf(begin, size, at);
}

/// The place of the entry's own header, from its line of the directory and that line's extra fields.
std::uint64_t headerOffset(std::string_view entry, std::string_view extra) {
    const std::uint64_t offset = number(entry, 42, 4);
    if (offset != kWide) return offset;
    // The field holds those of both sizes and the offset that do not fit into the line, in this order.
    const std::size_t before =
        (number(entry, 24, 4) == kWide ? 8U : 0U) + (number(entry, 20, 4) == kWide ? 8U : 0U);
    std::string_view found;
    for (std::size_t at = 0; at + 4 <= extra.size();) {
        const std::size_t size = number(extra, at + 2, 2);
        if (size > extra.size() - at - 4) break;
        const bool wide = number(extra, at, 2) == kWideField;
        if (wide && !found.empty()) throw std::runtime_error("has its offset twice");
        if (wide) found = extra.substr(at + 4, size);
        at += 4 + size;
    }
    if (found.size() < before + 8) throw std::runtime_error("has no offset");
    return number(found, before, 8);
}

void requireMethod(std::uint64_t method) {
    if (method == kStored || method == kDeflated) return;
    throw std::runtime_error("is packed with method " + std::to_string(method) +
                             "; only stored and deflated entries are unpacked");
}

void requireHeader(Window& window, std::uint64_t offset, std::uint64_t method) {
    const std::string_view header = window.at(offset, kHeaderBytes);
    if (header.substr(0, 4) != kHeaderMark) throw std::runtime_error("has no header where it should be");
    requireMethod(number(header, 8, 2));
    if (number(header, 8, 2) != method) throw std::runtime_error("has two methods of packing");
}

}  // namespace

void requirePlainZip(const base::UniqueFd& file, std::uint64_t bytes, const ExtractionLimits& limits) {
    Window window(file, bytes);
    Window headers(file, bytes);
    const Extent directory = findDirectory(window, bytes);
    if (directory.end - directory.begin > limits.directoryBytes)
        throw std::runtime_error("the archive's directory is larger than " +
                                 std::to_string(limits.directoryBytes) + " bytes");
    std::uint64_t entries = 0;
    for (std::uint64_t at = directory.begin; at < directory.end;) {
        const std::string entry(window.at(at, kEntryBytes));
        if (entry.compare(0, 4, kEntryMark) != 0) failArchive("its directory is damaged");
        const std::size_t nameSize = number(entry, 28, 2);
        const std::size_t extraSize = number(entry, 30, 2);
        const std::string rest(window.at(at + kEntryBytes, nameSize + extraSize));
        try {
            if (++entries > limits.entries) throw std::runtime_error("is one more than the entries allowed");
            requireMethod(number(entry, 10, 2));
            requireHeader(headers, headerOffset(entry, std::string_view(rest).substr(nameSize)),
                          number(entry, 10, 2));
        } catch (const std::exception& e) {
            throw std::runtime_error("entry \"" + rest.substr(0, nameSize) + "\" " + e.what());
        }
        at += kEntryBytes + nameSize + extraSize + number(entry, 32, 2);
        if (at > directory.end) failArchive("its directory is damaged");
    }
}

}  // namespace zelor::agent

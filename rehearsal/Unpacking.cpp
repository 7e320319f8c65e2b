#include "rehearsal/Unpacking.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <limits>
#include <string_view>
#include <vector>

#include "agent/archive/ArchivePolicy.h"
#include "base/Files.h"

namespace zelor::rehearsal {

namespace {

constexpr std::size_t kPieceBytes = 1U << 18U;

agent::ExtractionTree::Time timeOf(archive_entry* entry) {
    if (archive_entry_mtime_is_set(entry) == 0) return std::nullopt;
    return timespec{archive_entry_mtime(entry), archive_entry_mtime_nsec(entry)};
}

mode_t modeOf(archive_entry* entry) {
    return static_cast<mode_t>(archive_entry_perm(entry) & agent::kKeptModeBits);
}

std::string textOrNone(const char* text) {
    return text == nullptr ? "" : text;
}

/// One pass over an archive, with or without unpacking it.
class Pass {
  public:
    Pass(ArchiveReader::Kind kind, const std::string& path, const UnpackRules& rules,
         agent::ExtractionTree* tree, const std::string& destination)
        : reader_(kind, path), rules_(rules), tree_(tree), destination_(destination), buffer_(kPieceBytes) {
        constexpr std::uint64_t kMargin = 64ULL << 20U;
        if (tree != nullptr) room_ = tree->freeBytes() > kMargin ? tree->freeBytes() - kMargin : 0;
    }

    void run() {
        while (archive_entry* entry = reader_.next()) {
            const std::string name = textOrNone(archive_entry_pathname(entry));
            try {
                take(entry, name);
            } catch (const std::exception& e) {
                throw std::runtime_error("entry \"" + name + "\" " + e.what());
            }
        }
        if (tree_ != nullptr) tree_->finish();
    }

  private:
    agent::ExtractionTree::Path below(const std::string& name) const {
        if (const base::Check usable = agent::checkEntryName(name, {}); !usable)
            throw std::runtime_error(usable.error().text);
        agent::ExtractionTree::Path path = rules_.prefix;
        const auto components = agent::pathComponents(name);
        path.insert(path.end(), components.begin(), components.end());
        return path;
    }

    void take(archive_entry* entry, const std::string& name) {
        const auto path = below(name);
        if (path.size() == rules_.prefix.size()) return;  // the top directory itself
        const std::string twin = textOrNone(archive_entry_hardlink(entry));
        const auto type = archive_entry_filetype(entry);
        if (!twin.empty()) {
            takeTwin(entry, path, below(twin));
        } else if (type == AE_IFDIR) {
            if (tree_ != nullptr) takeDirectory(entry, path);
        } else if (type == AE_IFLNK) {
            const auto target = rules_.linkTarget(path, textOrNone(archive_entry_symlink(entry)));
            if (tree_ != nullptr) tree_->addLink(path, target, timeOf(entry));
        } else if (type == AE_IFREG) {
            writeFile(entry, path, [this] { return reader_.read(buffer_.data(), buffer_.size()); });
        } else {
            throw std::runtime_error("is a device, FIFO or socket");
        }
    }

    void takeDirectory(archive_entry* entry, const agent::ExtractionTree::Path& path) {
        tree_->addDirectory(path, modeOf(entry), timeOf(entry));
        // An existing directory may be closed to its owner, who is not root here.
        struct stat status {};
        const std::string place = placeOf(path);
        if (::lstat(place.c_str(), &status) == 0 && (status.st_mode & S_IRWXU) != S_IRWXU) {
            ::chmod(place.c_str(), (status.st_mode & agent::kKeptModeBits) | S_IRWXU);
        }
    }

    std::string placeOf(const agent::ExtractionTree::Path& path) const {
        std::string place = destination_;
        for (const std::string& component : path)
            place += "/" + component;
        return place;
    }

    /// A hard link to an earlier file; becomes a copy of it.
    void takeTwin(archive_entry* entry, const agent::ExtractionTree::Path& path,
                  const agent::ExtractionTree::Path& twin) {
        const bool hasContent = archive_entry_size_is_set(entry) != 0 && archive_entry_size(entry) > 0;
        if (hasContent || tree_ == nullptr) {
            writeFile(entry, path, [this] { return reader_.read(buffer_.data(), buffer_.size()); });
            return;
        }
        if (path == twin) throw std::runtime_error("is a hard link to itself");
        const base::UniqueFd original = base::openRegularFile(placeOf(twin));
        writeFile(entry, path, [&] {
            const auto count = ::read(original.get(), buffer_.data(), buffer_.size());
            if (count < 0) throw std::runtime_error("cannot be copied: " + base::errorText(errno));
            return static_cast<std::size_t>(count);
        });
    }

    template <class Read>
    void writeFile(archive_entry* entry, const agent::ExtractionTree::Path& path, const Read& read) {
        base::UniqueFd file;
        if (tree_ != nullptr) file = tree_->createFile(path);
        while (const std::size_t count = read()) {
            if (count > room_) throw std::runtime_error("does not fit on the disk");
            room_ -= count;
            if (file && !base::writeAll(file.get(), std::string(buffer_.data(), count))) {
                throw std::runtime_error("cannot be written: " + base::errorText(errno));
            }
        }
        if (file) agent::ExtractionTree::finishFile(std::move(file), modeOf(entry), timeOf(entry));
    }

    ArchiveReader reader_;
    const UnpackRules& rules_;
    agent::ExtractionTree* tree_;
    const std::string& destination_;
    std::vector<char> buffer_;
    std::uint64_t room_ = std::numeric_limits<std::uint64_t>::max();
};

}  // namespace

UnpackRules verbatimLinks() {
    return {{}, [](const agent::ExtractionTree::Path&, const std::string& target) {
                if (target.empty()) throw std::runtime_error("is a symbolic link to nothing");
                return target;
            }};
}

UnpackRules linksInside(const std::string& root, const agent::ExtractionTree::Path& prefix) {
    return {prefix, [root](const agent::ExtractionTree::Path& link, const std::string& target) {
                const bool absolute = !target.empty() && target.front() == '/';
                // An absolute path counts from the root, like a relative one in a link in the top directory.
                const std::string relative = absolute ? "./" + target.substr(1) : target;
                const base::Check usable = agent::checkLinkTarget(
                    absolute ? agent::ExtractionTree::Path{"link"} : link, relative, {});
                if (!usable) throw std::runtime_error(usable.error().text);
                return absolute ? root + target : target;
            }};
}

void checkArchive(ArchiveReader::Kind kind, const std::string& path, const UnpackRules& rules) {
    Pass(kind, path, rules, nullptr, "").run();
}

void unpack(ArchiveReader::Kind kind, const std::string& path, const std::string& destination,
            const UnpackRules& rules) {
    agent::ExtractionTree tree(destination);
    try {
        Pass(kind, path, rules, &tree, destination).run();
    } catch (...) {
        tree.rollBack();
        throw;
    }
}

namespace {

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) text.append(width - text.size(), ' ');
    return text;
}

}  // namespace

std::string volumeNameOf(const std::string& image) {
    constexpr off_t kDescriptorAt = 0x8000;
    constexpr std::size_t kNameAt = 40;
    constexpr std::size_t kNameBytes = 32;
    const base::UniqueFd file = base::openRegularFile(image, base::Links::follow);
    std::array<char, kNameAt + kNameBytes> descriptor{};
    const ssize_t count = ::pread(file.get(), descriptor.data(), descriptor.size(), kDescriptorAt);
    if (count != static_cast<ssize_t>(descriptor.size())) return "";
    if (std::string_view(descriptor.data(), 6) != std::string_view("\1CD001", 6)) return "";
    std::string name(descriptor.data() + kNameAt, kNameBytes);
    name.erase(name.find_last_not_of(std::string(" \0", 2)) + 1);
    for (char& c : name) {
        if (c == '/' || static_cast<unsigned char>(c) < 0x20) c = '_';
    }
    return name.empty() || name.front() == '.' ? "Untitled" : name;
}

std::string attachedLine(int disk, const std::string& mountPoint) {
    return padded("/dev/disk" + std::to_string(disk), 20) + "\t" + padded("", 31) + "\t" + mountPoint + "\n";
}

}  // namespace zelor::rehearsal

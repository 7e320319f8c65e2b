#include "rehearsal/DiskImage.h"

#include <unistd.h>

#include <array>
#include <string_view>

#include "base/Files.h"

namespace zelor::rehearsal {

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

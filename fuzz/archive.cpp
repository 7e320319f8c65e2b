#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "agent/ArchiveExtractor.h"
#include "platform/Files.h"

namespace {

namespace fs = boost::filesystem;

/// A folder with a destination in it, and nothing beside; what stands beside it afterwards came out of an
/// archive.
struct Workplace {
    Workplace() {
        std::string pattern = (fs::temp_directory_path() / "zelor-fuzz-XXXXXX").string();
        path = mkdtemp(pattern.data());
    }
    ~Workplace() { fs::remove_all(path); }
    fs::path path;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Workplace place;
    const std::string archive = (place.path / "a.zip").string();
    const fs::path inside = place.path / "inside";
    {
        const auto file = zelor::openFile(archive, O_WRONLY | O_CREAT | O_TRUNC);
        zelor::writeAll(file.get(), std::string(reinterpret_cast<const char*>(data), size));
    }
    try {
        zelor::ArchiveExtractor().extract(archive, inside.string());
    } catch (const std::exception&) {
        // refused, with a reason
    }
    boost::system::error_code ignored;
    fs::remove_all(inside, ignored);
    fs::remove(archive);
    if (!fs::is_empty(place.path)) abort();
    return 0;
}

#include <exception>

#include "Support.h"
#include "agent/archive/ArchiveExtractor.h"

namespace fs = boost::filesystem;

// Nothing stands beside the destination afterwards; what does came out of the archive.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const zelor::test::TempDir place;
    const std::string archive = place / "a.zip", inside = place / "inside";
    zelor::test::writeFile(archive, zelor::fuzz::textOf(data, size));
    try {
        zelor::agent::ArchiveExtractor().extract(archive, inside);
    } catch (const std::exception&) {
        // refused, with a reason
    }
    boost::system::error_code ignored;
    fs::remove_all(inside, ignored);
    fs::remove(archive);
    zelor::fuzz::require(fs::is_empty(place.path()), "everything is inside");
    return 0;
}

#include <exception>

#include "Support.h"
#include "agent/archive/ArchiveExtractor.h"

namespace fs = boost::filesystem;

// Nothing may be left beside the destination.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const zelor::test::TempDir kPlace;
    const std::string archive = kPlace / "a.zip", inside = kPlace / "inside";
    zelor::test::writeFile(archive, zelor::fuzz::textOf(data, size));
    try {
        zelor::agent::ArchiveExtractor().extract(archive, inside);
    } catch (const std::exception&) {
        // refused, with a reason
    }
    boost::system::error_code ignored;
    fs::remove_all(inside, ignored);
    fs::remove(archive);
    zelor::fuzz::require(fs::is_empty(kPlace.path()), "everything is inside");
    return 0;
}

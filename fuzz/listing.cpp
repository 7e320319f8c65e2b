#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/Strings.h"
#include "platform/macos/UpdateSelection.h"

// The first line is the package name, the second the product version, the rest the listing.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto head = zelor::base::splitInTwo(text, "\n");
    const auto body = zelor::base::splitInTwo(head.back(), "\n");
    const auto lines = zelor::platform::starredLines(body.back(), 1999);
    for (const std::string& line : lines) {
        if (line.size() > 1999) std::abort();
        zelor::platform::candidateLabel(line);
    }
    const auto selection = zelor::platform::selectUpdates(lines, head[0], [&body] { return body[0]; });
    if (selection.named && !selection.candidates.empty() &&
        zelor::base::lowerCased(head[0]) == "apple mac os x")
        std::abort();
    return 0;
}

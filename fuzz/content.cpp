#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>

#include "agent/ContentDocument.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const std::string_view text(reinterpret_cast<const char*>(data), size);
        zelor::ContentDocument::parse(text, "CVE-2014-4459")
            .find("cpe:/o:apple:mac_os_x", "cpe:/a:example:editor");
    } catch (const std::exception&) {
        return 0;  // refused, with a reason
    }
    return 0;
}

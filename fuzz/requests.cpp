#include "controller/run/Requests.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "controller/InputError.h"
#include "remediation/intake/RequestParsing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const std::string text(reinterpret_cast<const char*>(data), size);
        for (const auto& request : zelor::controller::parseRequests(text, "fuzz").all) {
            const auto key = zelor::remediation::parseRequestKey(request.first, size % 2 == 0);
            zelor::remediation::requestTarget(key.cpes, "cpe:/o:default", {"cpe:/o:special"});
            zelor::remediation::ProgressKey(request.first).text();
        }
    } catch (const zelor::controller::InputError&) {
        return 0;  // the only exception that it may throw
    }
    return 0;
}

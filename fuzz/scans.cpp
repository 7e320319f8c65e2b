#include <pugixml.hpp>
#include <sstream>

#include "Support.h"
#include "controller/InputError.h"
#include "controller/export/Export.h"
#include "controller/requests/RequestMaker.h"
#include "remediation/intake/RequestParsing.h"

namespace {

using zelor::fuzz::require;

// Every request can be used and is reported under a key of its own.
void makeRequests(const std::string& text) {
    const auto scan = zelor::controller::readScan(text, {});
    if (!scan) return;
    zelor::controller::RequestMaker maker("", "");
    maker.add(*scan, "fuzz");
    for (const auto& [key, identifier] : maker.requests()) {
        const bool configuration = zelor::remediation::isConfiguration(identifier);
        const auto parsed = zelor::remediation::parseRequestKey(key, configuration);
        require(zelor::remediation::cpeCount(parsed) == zelor::remediation::CpeCount::usable,
                "one or two names");
        require(zelor::remediation::ProgressKey(key).text() == key, "a key of its own");
    }
}

// What is exported as XML is well-formed.
void exportResults(const std::string& text) {
    try {
        const auto run = zelor::controller::parseResults(text, "fuzz");
        std::ostringstream xccdf, other;
        zelor::controller::writeXccdf(xccdf, run);
        require(pugi::xml_document().load_string(xccdf.str().c_str()), "well-formed");
        zelor::controller::writeOcsf(other, run);
        zelor::controller::writePrometheus(other, run);
    } catch (const zelor::controller::InputError&) {
        return;  // the only exception that it may throw
    }
}

}  // namespace

// What scanners and runs write.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = zelor::fuzz::textOf(data, size);
    makeRequests(text);
    exportResults(text);
    return 0;
}

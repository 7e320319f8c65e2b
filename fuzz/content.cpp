#include <exception>

#include "Support.h"
#include "agent/content/ContentDocument.h"
#include "authoring/publish/ContentXml.h"

// A content file as agents read it, and as the author's tool reads it to check it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = zelor::fuzz::textOf(data, size);
    const std::string identifier = "CVE-2014-4459";
    bool read = true;
    try {
        zelor::agent::ContentDocument::parse(text, identifier)
            .find("cpe:/o:apple:mac_os_x", "cpe:/a:example:editor");
    } catch (const std::exception&) {
        read = false;  // refused, with a reason
    }
    zelor::authoring::Findings findings;
    const zelor::authoring::ContentEntry entry =
        zelor::authoring::readContentXml(text, "content", identifier, findings);
    zelor::fuzz::require(read != zelor::authoring::anyError(findings),
                         "the author's tool refuses what agents refuse");
    if (read) zelor::agent::ContentDocument::parse(zelor::authoring::contentXml(entry), identifier);
    return 0;
}

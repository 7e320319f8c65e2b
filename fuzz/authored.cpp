#include "Support.h"
#include "authoring/manifest/Manifest.h"
#include "authoring/publish/ContentXml.h"

namespace {

using zelor::fuzz::require;

void compare(const zelor::authoring::ContentEri& one, const zelor::authoring::ContentEri& other) {
    require(one.id == other.id && one.product == other.product && one.impact == other.impact &&
                one.instructions == other.instructions && one.patchId == other.patchId &&
                one.silent == other.silent && one.mskb == other.mskb && one.reboot == other.reboot,
            "a block reads as it was written");
}

}  // namespace

// A valid manifest makes content that agents read with the same meaning.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const zelor::test::TempDir kDirectory;
    zelor::authoring::Findings findings;
    const zelor::authoring::Manifest manifest = zelor::authoring::parseManifest(
        zelor::fuzz::textOf(data, size), kDirectory.path().string(), "manifest", findings);
    if (!zelor::authoring::anyError(findings)) findings = zelor::authoring::manifestFindings(manifest);
    (void)zelor::authoring::findingsText(findings);
    if (zelor::authoring::anyError(findings)) return 0;
    for (const zelor::authoring::ContentEntry& entry : manifest.entries) {
        zelor::authoring::Findings refused;
        const std::string xml = zelor::authoring::contentXml(entry);
        const zelor::authoring::ContentEntry read =
            zelor::authoring::readContentXml(xml, "content", entry.identifier, refused);
        require(!zelor::authoring::anyError(refused) && read.cres.size() == entry.cres.size(),
                "content can be read");
        for (std::size_t i = 0; i < read.cres.size(); ++i) {
            const zelor::authoring::ContentCre &one = entry.cres[i], &other = read.cres[i];
            require(one.id == other.id && one.platform == other.platform && one.product == other.product &&
                        one.eris.size() == other.eris.size(),
                    "an entry reads as it was written");
            for (std::size_t j = 0; j < one.eris.size(); ++j)
                compare(one.eris[j], other.eris[j]);
        }
    }
    return 0;
}

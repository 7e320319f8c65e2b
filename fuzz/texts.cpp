#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/Strings.h"
#include "remediation/buffer/BufferedList.h"
#include "remediation/buffer/PatchSize.h"
#include "remediation/fetch/PatchName.h"

// Size texts, patch names, list lines and shell words: the texts of content that decisions depend on.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    zelor::remediation::parsePatchSize(text);
    zelor::remediation::budgetBytes(text);
    zelor::base::trimmed(text);
    const auto name = zelor::remediation::splitAtLastDot(text);
    if (name && name->stem + name->extension != text) std::abort();
    const auto cut = zelor::remediation::cutFourCharacters(text);
    if (cut.stem + cut.extension != text) std::abort();
    if (zelor::remediation::checkFileName(text) && text.find('/') != std::string::npos) std::abort();
    zelor::remediation::ListDamage damage;
    const std::string kept = zelor::remediation::linesWithout(text, "foo.pkg", damage);
    if (!kept.empty() && kept.back() != '\n') std::abort();
    if (kept.find("foo.pkg") != std::string::npos) std::abort();
    zelor::remediation::bufferedLineMatches(text, "foo.pkg", "00");
    // Inside quotes no quote may be left unescaped: taking out the escaped ones leaves none.
    std::string quoted = zelor::base::insideSingleQuotes(text);
    for (auto at = quoted.find("'\\''"); at != std::string::npos; at = quoted.find("'\\''", at))
        quoted.erase(at, 4);
    if (quoted.find('\'') != std::string::npos) std::abort();
    return 0;
}

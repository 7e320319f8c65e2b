#include "remediation/BufferedList.h"

#include "platform/Strings.h"

namespace zelor {

bool bufferedLineMatches(const std::string& line, const std::string& patchName, const std::string& md5sum) {
    if (!contains(line, patchName)) return false;
    const auto fields = splitCompressed(line, '=');
    return fields.size() > 1 && fields[1] == md5sum;
}

std::string linesWithout(const std::string& list, const std::string& patchName, ListDamage& damage) {
    std::string kept;
    std::size_t start = 0;
    for (auto end = list.find('\n'); end != std::string::npos; end = list.find('\n', start)) {
        const std::string line = list.substr(start, end - start);
        const bool damaged = hasControlCharacter(line);
        damage.damagedLines = damage.damagedLines || damaged;
        if (!damaged && !contains(line, patchName)) kept += line + '\n';
        start = end + 1;
    }
    damage.tornEnd = start < list.size();
    return kept;
}

}  // namespace zelor

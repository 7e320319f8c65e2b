#include "remediation/buffer/BufferedList.h"

#include "base/Strings.h"
#include "base/Utf8.h"

namespace zelor::remediation {

bool bufferedLineMatches(const std::string& line, const std::string& patchName, const std::string& md5sum) {
    if (!base::contains(line, patchName)) return false;
    const auto fields = base::splitCompressed(line, '=');
    return fields.size() > 1 && fields[1] == md5sum;
}

std::string linesWithout(const std::string& list, const std::string& patchName, ListDamage& damage) {
    std::string kept;
    for (std::size_t start = 0; start < list.size();) {
        const auto end = list.find('\n', start);
        damage.tornEnd = end == std::string::npos;
        const std::string line = list.substr(start, end - start);
        const bool damaged = !base::isText(line);
        damage.damagedLines = damage.damagedLines || damaged;
        if (!damaged && !base::contains(line, patchName)) kept += line + '\n';
        start = damage.tornEnd ? list.size() : end + 1;
    }
    return kept;
}

}  // namespace zelor::remediation

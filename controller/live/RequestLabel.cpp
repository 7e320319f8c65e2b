#include "controller/live/RequestLabel.h"

#include "base/Strings.h"
#include "controller/Text.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::controller {

std::string packageNameOf(const std::string& key) {
    const std::string name =
        base::trimmed(remediation::parseRequestKey(base::trimmed(key), false).packageName);
    return base::contains(name, "oval:") ? "" : name;
}

std::string requestLabel(const std::string& key) {
    const std::string name = packageNameOf(key);
    if (!name.empty()) return base::printable(name);
    const remediation::RequestKey parsed = remediation::parseRequestKey(base::trimmed(key), false);
    return base::printable(parsed.cpes.empty() ? key : parsed.cpes.back());
}

}  // namespace zelor::controller

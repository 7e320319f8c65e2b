#include "authoring/manifest/ContentEntry.h"

#include "base/Strings.h"

namespace zelor {

bool isConfiguration(const std::string& identifier) {
    return hasBeginning(identifier, "CCE-");
}

bool isOsRemediation(const ContentEri& eri) {
    const std::string product = lowerCased(eri.product);
    return (hasBeginning(product, "cpe:/a:apple") || hasBeginning(product, "cpe:/o:apple")) &&
           hasBeginning(lowerCased(eri.instructions), "os remediation");
}

bool usesBundleInstaller(const ContentEri& eri) {
    return contains(lowerCased(eri.instructions), "using install option");
}

}  // namespace zelor

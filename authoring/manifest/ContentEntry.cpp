#include "authoring/manifest/ContentEntry.h"

#include "base/Strings.h"

namespace zelor::authoring {

bool isOsRemediation(const ContentEri& eri) {
    const std::string product = base::lowerCased(eri.product);
    return (base::hasBeginning(product, "cpe:/a:apple") || base::hasBeginning(product, "cpe:/o:apple")) &&
           base::hasBeginning(base::lowerCased(eri.instructions), "os remediation");
}

bool usesBundleInstaller(const ContentEri& eri) {
    return base::contains(base::lowerCased(eri.instructions), "using install option");
}

}  // namespace zelor::authoring

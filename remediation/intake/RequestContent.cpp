#include "remediation/intake/RequestContent.h"

#include "collaborators/CreCacher.h"

namespace zelor::remediation {

parseOnlyMetadata RequestContent::get(const std::string& platformCpe, const std::string& productCpe,
                                      const std::string& identifier) {
    return CreCacher::GetInstance(installPath_, platformCpe_)->getCre(platformCpe, productCpe, identifier);
}

void RequestContent::drop(remediateMetadata& row) {
    CreCacher* cache = CreCacher::GetInstance(installPath_, platformCpe_);
    cache->removeCreFromCache(row.getPlatformCpe(), row.getProductCpe(), row.getCveOrCceId());
    cache->removeCreFile(row.getPlatformCpe(), row.getProductCpe(), row.getCveOrCceId());
}

}  // namespace zelor::remediation

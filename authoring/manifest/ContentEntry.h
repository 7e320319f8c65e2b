#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/trust/Sha256.h"

namespace zelor::authoring {

/// How it is proven that an ERI has taken effect: one of a script, a package's receipt and a bundle.
struct EriCheck {
    std::string script;  ///< the name it is published under
    std::string receipt;
    std::string bundle;
    std::string version;                         ///< the least one of package or bundle; "" for any
    std::optional<agent::FileDigest> file{};     ///< of the script
    std::optional<agent::FileDigest> archive{};  ///< of what agents fetch
};

/// One ERI block: one patch or one configuration action for one product.
struct ContentEri {
    std::string id;
    std::string product;
    std::string impact;
    std::string instructions;
    std::string patchId;  ///< "" when there is nothing to fetch, as for an update of the operating system
    std::string size;
    std::string md5;
    std::optional<agent::FileDigest> file;     ///< of the patch: its file, or its bundle's manifest
    std::optional<agent::FileDigest> archive;  ///< of what agents fetch
    std::string silent;
    std::string mskb;
    bool reboot = false;
    std::optional<EriCheck> check;
};

/// One remediation entry; an empty platform or product matches any request.
struct ContentCre {
    std::string id;
    std::string platform;
    std::string product;
    std::vector<ContentEri> eris;
};

/// The content of one CVE or CCE identifier.
struct ContentEntry {
    std::string place;  ///< where it was read, for findings
    std::string identifier;
    std::vector<ContentCre> cres;
};

/// True when the system's updater installs it, without a file from the repository.
bool isOsRemediation(const ContentEri& eri);

/// True when the bundle on its disk image is installed by its own installer, not copied.
bool usesBundleInstaller(const ContentEri& eri);

}  // namespace zelor::authoring

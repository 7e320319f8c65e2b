#pragma once

#include <string>

#include "base/Export.h"
#include "remediation/creEriParsedData.h"

/// One remediation request: a finding of the controller's map with the content that remediates it.
class ZELOR_API remediateMetadata {
  public:
    remediateMetadata();
    remediateMetadata(const remediateMetadata& other);
    remediateMetadata(remediateMetadata&& other) noexcept;
    remediateMetadata& operator=(const remediateMetadata& other);
    remediateMetadata& operator=(remediateMetadata&& other) noexcept;
    ~remediateMetadata();

    /// "CVE-..." or "CCE-...".
    std::string getCveOrCceId();
    void setCveOrCceId(std::string value);
    /// The request's key as the controller gave it; progress is reported under it.
    std::string getCombinedCpes();
    void setCombinedCpes(std::string value);
    /// "cpe:/a..." or empty.
    std::string getProductCpe();
    void setProductCpe(std::string value);
    /// "cpe:/o...".
    std::string getPlatformCpe();
    void setPlatformCpe(std::string value);
    /// What follows "||" in the key of a patch request; "" for configurations.
    std::string getPackageName();
    void setPackageName(std::string value);
    /// True when content was found; `getcreEriData` is empty otherwise.
    bool getCreEriDataPresent();
    void setCreEriDataPresent(bool value);
    /// True for an operating-system update, false for a third-party product or a configuration.
    bool getOsRemediation();
    void setOsRemediation(bool value);
    /// A copy of the entry that remediates the request.
    creEriParsedData getcreEriData();
    void setcreEriData(creEriParsedData value);

  private:
    friend struct RecordAccess;

    std::string cveOrCceId;
    std::string combinedCpes;
    std::string productCpe;
    std::string platformCpe;
    std::string packageName;
    bool creEriDataPresent = false;
    bool osRemediation = false;
    creEriParsedData creEriData;
};

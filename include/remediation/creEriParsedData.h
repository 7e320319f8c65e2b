#pragma once

#include <string>
#include <vector>

#include "base/Export.h"
#include "remediation/parsedEriData.h"

/// One parsed remediation entry (CRE) with its remediation instructions (ERIs).
/// The content library fills it (through RecordAccess); field order and types are shared with that library.
class ZELOR_API creEriParsedData {
  public:
    creEriParsedData();
    creEriParsedData(const creEriParsedData& other);
    creEriParsedData(creEriParsedData&& other) noexcept;
    creEriParsedData& operator=(const creEriParsedData& other);
    creEriParsedData& operator=(creEriParsedData&& other) noexcept;
    ~creEriParsedData();

    /// The entry's identifiers as in the content: one of the two, the other is "".
    std::string getCve();
    std::string getCce();
    /// True once the entry's patch was applied in this run, or found applied before.
    bool getInstalledSuccessfully();
    void setInstalledSuccessfully(bool value);
    /// The entry's own identifier; "" when the content has none.
    std::string getCreId();
    /// Identifiers of the entry's ERIs, in content order.
    std::vector<std::string> getEriIds();
    /// A copy of the parsed ERI blocks, in content order.
    std::vector<parsedEriData> getParsedEriDataBlocks();

  private:
    friend struct RecordAccess;

    std::string cve;
    std::string cce;
    bool installedSuccessfully = false;
    std::string creId;
    std::vector<std::string> eriIds;
    std::string creText1;
    std::vector<std::string> creTextList;
    std::string creText2;
    std::string creText3;
    std::string creText4;
    std::string creText5;
    std::string creText6;
    bool creFlag = false;
    std::vector<parsedEriData> parsedEriDataBlocks;
};

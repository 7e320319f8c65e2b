#pragma once

#include <cstdint>
#include <string>

#include "base/Export.h"
#include "remediation/creEriParsedData.h"

/// What the content cache returns for one request. The content library fills it (through RecordAccess); field
/// order and types are shared with that library.
class ZELOR_API parseOnlyMetadata {
  public:
    parseOnlyMetadata();
    parseOnlyMetadata(const parseOnlyMetadata& other);
    parseOnlyMetadata(parseOnlyMetadata&& other) noexcept;
    parseOnlyMetadata& operator=(const parseOnlyMetadata& other);
    parseOnlyMetadata& operator=(parseOnlyMetadata&& other) noexcept;
    ~parseOnlyMetadata();

    /// True when there is no usable content for the request.
    bool getParsingFailed();
    /// A copy of the parsed entry.
    creEriParsedData getcreEriData();

  private:
    friend struct RecordAccess;

    std::string metaText1;
    std::string metaText2;
    std::string metaText3;
    std::string metaText4;
    std::string metaText5;
    std::string metaText6;
    bool parsingFailed = false;
    bool metaFlag = false;
    std::int64_t metaCount = 0;
    creEriParsedData creEriData;
};

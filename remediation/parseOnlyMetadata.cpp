#include "remediation/parseOnlyMetadata.h"

#include <utility>

parseOnlyMetadata::parseOnlyMetadata() = default;
parseOnlyMetadata::parseOnlyMetadata(const parseOnlyMetadata& other) = default;
parseOnlyMetadata::parseOnlyMetadata(parseOnlyMetadata&& other) noexcept = default;
parseOnlyMetadata& parseOnlyMetadata::operator=(const parseOnlyMetadata& other) = default;
parseOnlyMetadata& parseOnlyMetadata::operator=(parseOnlyMetadata&& other) noexcept = default;

// Deliberate: a record that goes away leaves empty fields behind, not the last request.
parseOnlyMetadata::~parseOnlyMetadata() {
    metaText1 = "";
    metaText2 = "";
    metaText3 = "";
    metaText4 = "";
    metaText5 = "";
    metaText6 = "";
    parsingFailed = false;
    metaFlag = false;
    metaCount = 0;
}

bool parseOnlyMetadata::getParsingFailed() {
    return parsingFailed;
}
creEriParsedData parseOnlyMetadata::getcreEriData() {
    return creEriData;
}

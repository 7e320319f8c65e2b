#include "remediation/parseOnlyMetadata.h"

#include <utility>

parseOnlyMetadata::parseOnlyMetadata() = default;
parseOnlyMetadata::parseOnlyMetadata(const parseOnlyMetadata& other) = default;
parseOnlyMetadata::parseOnlyMetadata(parseOnlyMetadata&& other) noexcept = default;
parseOnlyMetadata& parseOnlyMetadata::operator=(const parseOnlyMetadata& other) = default;
parseOnlyMetadata& parseOnlyMetadata::operator=(parseOnlyMetadata&& other) noexcept = default;

// Deliberate: a record that goes away leaves empty fields behind, not the last request.
parseOnlyMetadata::~parseOnlyMetadata() {
    metaText1.clear();
    metaText2.clear();
    metaText3.clear();
    metaText4.clear();
    metaText5.clear();
    metaText6.clear();
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

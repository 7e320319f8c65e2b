#include "remediation/creEriParsedData.h"

#include <utility>

creEriParsedData::creEriParsedData() = default;
creEriParsedData::creEriParsedData(const creEriParsedData& other) = default;
creEriParsedData::creEriParsedData(creEriParsedData&& other) noexcept = default;
creEriParsedData& creEriParsedData::operator=(const creEriParsedData& other) = default;
creEriParsedData& creEriParsedData::operator=(creEriParsedData&& other) noexcept = default;

// Deliberate: a record that goes away leaves empty fields behind, not the last request.
creEriParsedData::~creEriParsedData() {
    cve.clear();
    cce.clear();
    installedSuccessfully = false;
    creId.clear();
    creText1.clear();
    creText2.clear();
    creText3.clear();
    creText4.clear();
    creText5.clear();
    creText6.clear();
    creFlag = false;
}

std::string creEriParsedData::getCve() {
    return cve;
}
std::string creEriParsedData::getCce() {
    return cce;
}
bool creEriParsedData::getInstalledSuccessfully() {
    return installedSuccessfully;
}
void creEriParsedData::setInstalledSuccessfully(bool value) {
    installedSuccessfully = value;
}
std::string creEriParsedData::getCreId() {
    return creId;
}
std::vector<std::string> creEriParsedData::getEriIds() {
    return eriIds;
}
std::vector<parsedEriData> creEriParsedData::getParsedEriDataBlocks() {
    return parsedEriDataBlocks;
}

#include "remediation/remediateMetadata.h"

#include <utility>

remediateMetadata::remediateMetadata() = default;
remediateMetadata::remediateMetadata(const remediateMetadata& other) = default;
remediateMetadata::remediateMetadata(remediateMetadata&& other) noexcept = default;
remediateMetadata& remediateMetadata::operator=(const remediateMetadata& other) = default;
remediateMetadata& remediateMetadata::operator=(remediateMetadata&& other) noexcept = default;

// Deliberate: a record that goes away leaves empty fields behind, not the last request.
remediateMetadata::~remediateMetadata() {
    cveOrCceId.clear();
    combinedCpes.clear();
    productCpe.clear();
    platformCpe.clear();
    packageName.clear();
    creEriDataPresent = false;
    osRemediation = false;
}

std::string remediateMetadata::getCveOrCceId() {
    return cveOrCceId;
}
void remediateMetadata::setCveOrCceId(std::string value) {
    cveOrCceId = std::move(value);
}
std::string remediateMetadata::getCombinedCpes() {
    return combinedCpes;
}
void remediateMetadata::setCombinedCpes(std::string value) {
    combinedCpes = std::move(value);
}
std::string remediateMetadata::getProductCpe() {
    return productCpe;
}
void remediateMetadata::setProductCpe(std::string value) {
    productCpe = std::move(value);
}
std::string remediateMetadata::getPlatformCpe() {
    return platformCpe;
}
void remediateMetadata::setPlatformCpe(std::string value) {
    platformCpe = std::move(value);
}
std::string remediateMetadata::getPackageName() {
    return packageName;
}
void remediateMetadata::setPackageName(std::string value) {
    packageName = std::move(value);
}
bool remediateMetadata::getCreEriDataPresent() {
    return creEriDataPresent;
}
void remediateMetadata::setCreEriDataPresent(bool value) {
    creEriDataPresent = value;
}
bool remediateMetadata::getOsRemediation() {
    return osRemediation;
}
void remediateMetadata::setOsRemediation(bool value) {
    osRemediation = value;
}
creEriParsedData remediateMetadata::getcreEriData() {
    return creEriData;
}
void remediateMetadata::setcreEriData(creEriParsedData value) {
    creEriData = std::move(value);
}

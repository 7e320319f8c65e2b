#include "remediation/parsedEriData.h"

#include <utility>

parsedEriData::parsedEriData() = default;
parsedEriData::parsedEriData(const parsedEriData& other) = default;
parsedEriData::parsedEriData(parsedEriData&& other) noexcept = default;
parsedEriData& parsedEriData::operator=(const parsedEriData& other) = default;
parsedEriData& parsedEriData::operator=(parsedEriData&& other) noexcept = default;

// Deliberate: a record that goes away leaves empty fields behind, not the last request.
parsedEriData::~parsedEriData() {
    eriId.clear();
    eriText1.clear();
    productCpe.clear();
    eriText2.clear();
    operationImpact.clear();
    instructions.clear();
    patchId.clear();
    mskbId.clear();
    patchSize.clear();
    silentModeCmd.clear();
    md5sum.clear();
    reboot = false;
}

std::string parsedEriData::getEriId() {
    return eriId;
}
std::string parsedEriData::getProductCpe() {
    return productCpe;
}
std::string parsedEriData::getOperationImpact() {
    return operationImpact;
}
std::string parsedEriData::getInstructions() {
    return instructions;
}
std::string parsedEriData::getPatchId() {
    return patchId;
}
std::string parsedEriData::getMskbId() {
    return mskbId;
}
std::string parsedEriData::getPatchSize() {
    return patchSize;
}
std::string parsedEriData::getSilentModeCmd() {
    return silentModeCmd;
}
std::string parsedEriData::getMd5sum() {
    return md5sum;
}
bool parsedEriData::getReboot() {
    return reboot;
}

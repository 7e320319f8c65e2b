#include "base/Strings.h"
#include "remediation/RemediationManager.h"

bool RemediationManager::stringHasEnding(const std::string& text, const std::string& ending) {
    return zelor::base::hasEnding(text, ending);
}

bool RemediationManager::wstringHasEnding(const std::wstring& text, const std::wstring& ending) {
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

bool RemediationManager::stringHasBegining(const std::string& text, const std::string& beginning) {
    return zelor::base::hasBeginning(text, beginning);
}

bool RemediationManager::wstringHasBegining(const std::wstring& text, const std::wstring& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

bool RemediationManager::stringIsSubset(std::string text, std::string beginning) {
    return text.size() > beginning.size() && zelor::base::hasBeginning(text, beginning);
}

std::string RemediationManager::trimString(std::string text) {
    return zelor::base::trimmed(std::move(text));
}

std::vector<std::string> RemediationManager::splitStr(std::string text, std::string delimiter) {
    return zelor::base::splitInTwo(text, delimiter);
}

void RemediationManager::trimTrailingCharacter(std::string& text, char c) {
    if (!text.empty() && text.back() == c) text.pop_back();
}

std::string RemediationManager::getApplicationArchitecture(std::string text) {
    text = zelor::base::lowerCased(std::move(text));
    for (const char* architecture : {"x86", "x64", "ia64"}) {
        if (zelor::base::contains(text, architecture)) return architecture;
    }
    return "";
}

std::string RemediationManager::parseCpeAndGetSearchString(std::string /*cpe*/) {
    return "";
}

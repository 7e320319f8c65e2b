#include "remediation/fetch/PatchName.h"

#include <boost/algorithm/string/replace.hpp>
#include <string_view>
#include <unordered_set>

#include "base/Strings.h"

namespace zelor::remediation {

std::optional<PatchName> splitAtLastDot(const std::string& fileName) {
    const auto dot = fileName.rfind('.');
    if (dot == std::string::npos) return std::nullopt;
    return PatchName{fileName.substr(0, dot), fileName.substr(dot)};
}

PatchName cutFourCharacters(const std::string& fileName) {
    constexpr std::size_t kCut = 4;
    if (fileName.size() < kCut) return {fileName, ""};
    return {fileName.substr(0, fileName.size() - kCut), fileName.substr(fileName.size() - kCut)};
}

base::Check checkFileName(const std::string& fileName) {
    if (fileName == "." || fileName == "..") return base::failure("it names a directory");
    if (base::contains(fileName, "/")) return base::failure("it holds a path separator");
    if (base::hasControlCharacter(fileName)) return base::failure("it holds a control character");
    return {};
}

base::Check checkFetchable(const std::string& fileName) {
    if (!splitAtLastDot(fileName)) return base::failure("it has no extension");
    return checkFileName(fileName);
}

std::string archiveName(const std::string& fileName) {
    const auto name = splitAtLastDot(fileName);
    return name ? name->stem + ".zip" : "";
}

std::string bufferedArchiveName(const std::string& fileName) {
    return cutFourCharacters(fileName).stem + ".zip";
}

std::string signaturePath(const std::string& filePath, const std::string& extension) {
    return boost::algorithm::replace_all_copy(filePath, extension, ".sig");
}

std::vector<std::pair<std::string, std::string>> containedNames(const std::set<std::string>& names) {
    const std::unordered_set<std::string_view> known(names.begin(), names.end());
    std::set<std::size_t> lengths;
    for (const std::string& name : names)
        lengths.insert(name.size());
    std::vector<std::pair<std::string, std::string>> contained;
    for (const std::string& name : names) {
        std::set<std::string_view> inner;
        for (const std::size_t length : lengths) {
            if (length == 0 || length >= name.size()) continue;
            for (std::size_t at = 0; at + length <= name.size(); ++at) {
                const std::string_view part = std::string_view(name).substr(at, length);
                if (known.count(part) != 0) inner.insert(part);
            }
        }
        for (const std::string_view part : inner)
            contained.emplace_back(name, part);
    }
    return contained;
}

}  // namespace zelor::remediation

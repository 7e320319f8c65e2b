#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The XML parts of a flat package: from text to values and back.
namespace zelor::rehearsal {

/// A package's description (its member "PackageInfo").
struct PackageInfo {
    std::string id;
    std::string version;
    std::string installLocation = "/";
    bool restart = false;
    std::string preinstall;  ///< file name in the scripts archive, "" for none
    std::string postinstall;
};

/// Parses "PackageInfo". Throws std::runtime_error for malformed XML, a missing identifier, a location with
/// "..", and a script name that is not a plain file name.
PackageInfo parsePackageInfo(const std::string& xml);
/// The text of "PackageInfo"; `files` and `kilobytes` count what is installed.
std::string packageInfoXml(const PackageInfo& info, std::uint64_t files, std::uint64_t kilobytes);

/// The description of a product of several packages (its member "Distribution").
struct Distribution {
    std::string title;
    std::vector<std::string> components;  ///< members that hold the packages, in order of installation
    bool restart = false;
};

/// Parses "Distribution". Throws std::runtime_error for malformed XML.
Distribution parseDistribution(const std::string& xml);
/// The text of "Distribution" for a product of one package, whose members are in `component`.
std::string distributionXml(const std::string& title, const std::string& component, const PackageInfo& info);

}  // namespace zelor::rehearsal

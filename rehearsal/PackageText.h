#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The XML parts of a flat package; text in, values out, and the other way.
namespace zelor::rehearsal {

/// A package's own description (its member "PackageInfo").
struct PackageInfo {
    std::string id;
    std::string version;
    std::string installLocation = "/";
    bool restart = false;
    std::string preinstall;  ///< file name in the scripts archive, "" for none
    std::string postinstall;
};

/// Throws std::runtime_error for malformed XML, no identifier, or a location or script name that climbs.
PackageInfo parsePackageInfo(const std::string& xml);
std::string packageInfoXml(const PackageInfo& info, std::uint64_t files, std::uint64_t kilobytes);

/// What ties packages to one product (its member "Distribution").
struct Distribution {
    std::string title;
    std::vector<std::string> components;  ///< members that hold the packages, in order of installation
    bool restart = false;
};

/// Throws std::runtime_error for malformed XML.
Distribution parseDistribution(const std::string& xml);
/// A product of one package whose members are in `component`.
std::string distributionXml(const std::string& title, const std::string& component, const PackageInfo& info);

}  // namespace zelor::rehearsal

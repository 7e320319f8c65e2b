#include "authoring/checks/FileChecks.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "authoring/manifest/SizeText.h"
#include "base/Files.h"
#include "platform/macos/InstallerKinds.h"
#include "remediation/buffer/PatchSize.h"

namespace zelor::authoring {

namespace {

/// The signature of a kind of disk image, and its offset; from the end when negative.
struct ImageMark {
    off_t at;
    std::string_view text;
};
constexpr ImageMark kImageMarks[] = {
    {-512, "koly"},     // UDIF, what hdiutil create makes
    {0x8001, "CD001"},  // ISO 9660
    {512, "EFI PART"},  // a raw disk with a GUID partition map
    {0, "ER"},          // one with an Apple partition map
    {1024, "H+"},       // a raw HFS Plus volume
    {1024, "HX"},       // the same, case-sensitive
    {32, "NXSB"},       // a raw APFS container
};

bool hasMark(int file, off_t size, const ImageMark& mark) {
    std::string found(mark.text.size(), '\0');
    const off_t at = mark.at < 0 ? size + mark.at : mark.at;
    if (at < 0) return false;
    return ::pread(file, found.data(), found.size(), at) == static_cast<ssize_t>(found.size()) &&
           found == mark.text;
}

std::uint64_t bigEndian(const std::string& bytes, std::size_t at, std::size_t length) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < length; ++i)
        value = value << 8U | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

/// Why the file cannot be a flat package (a xar archive), "" when it may be one. Reads only the header.
std::string packageProblem(const std::string& path) {
    constexpr std::size_t kHeaderBytes = 28, kSizeAt = 4, kTableAt = 8;
    std::string header(kHeaderBytes, '\0');
    std::uint64_t size = 0;
    const base::UniqueFd file = base::openRegularFile(path, base::Links::follow, &size);
    const ssize_t got = ::pread(file.get(), header.data(), header.size(), 0);
    if (got != static_cast<ssize_t>(kHeaderBytes) || header.compare(0, kSizeAt, "xar!") != 0)
        return "it does not begin as a flat package does (\"xar!\")";
    const std::uint64_t begin = bigEndian(header, kSizeAt, 2), table = bigEndian(header, kTableAt, 8);
    const bool whole = begin >= kHeaderBytes && begin <= size && table != 0 && table <= size - begin;
    return whole ? "" : "its table of contents is cut off";
}

Findings packageFindings(const std::string& place, const std::string& patchId, const std::string& path) {
    try {
        const std::string why = packageProblem(path);
        if (why.empty()) return {};
        return {{Severity::error, place, "\"" + patchId + "\" is not a package: " + why,
                 "publish the package as pkgbuild or productbuild wrote it"}};
    } catch (const std::exception&) {
        return {};  // reported when the whole file is read
    }
}

/// Rounding of the text, and the archive's own bytes around the patch.
constexpr std::uint64_t kSlack = 128U << 10U;
constexpr std::uint64_t kToleranceShare = 20;  // a twentieth

}  // namespace

Findings kindFindings(const std::string& place, const std::string& patchId, bool script,
                      const std::string& path) {
    boost::system::error_code ignored;
    const bool directory = boost::filesystem::is_directory(path, ignored);
    const auto isInstalledBy = [&](platform::InstallMethod method) {
        return !script && platform::isInstalledBy(method, patchId);
    };
    const bool bundle = isInstalledBy(platform::InstallMethod::copyBundle);
    if (directory && (script || isInstalledBy(platform::InstallMethod::mountImage))) {
        return {{Severity::error, place, "\"" + patchId + "\" is a directory, but must be a file",
                 script ? "publish the script itself" : "publish the disk image itself"}};
    }
    if (!directory && bundle) {
        return {{Severity::error, place, "\"" + patchId + "\" is installed as a bundle, but is a file",
                 "publish the bundle as a directory, or a " + platform::installableFileText() +
                     " that holds it"}};
    }
    if (!directory && isInstalledBy(platform::InstallMethod::installPackage))
        return packageFindings(place, patchId, path);
    if (bundle && boost::filesystem::is_directory(path + "/Contents", ignored)) {
        return {{Severity::warning, place,
                 "what \"" + patchId +
                     "\" holds is copied straight into /Applications/, so its Contents would land there "
                     "without a bundle around them",
                 "publish a directory " + patchId + " that holds the bundle " + patchId}};
    }
    return {};
}

Findings imageFindings(const std::string& place, const std::string& patchId, const std::string& path) {
    const base::UniqueFd file = base::openRegularFile(path);
    const off_t size = ::lseek(file.get(), 0, SEEK_END);
    const bool known = std::any_of(std::begin(kImageMarks), std::end(kImageMarks),
                                   [&](const ImageMark& mark) { return hasMark(file.get(), size, mark); });
    if (known) return {};
    return {{Severity::warning, place,
             "\"" + patchId +
                 "\" is not a disk image of a known kind; if it cannot be attached, nothing is installed and "
                 "the request reads success",
             "make it with hdiutil create, and rehearse the entry before you publish it"}};
}

Findings sizeFindings(const std::string& place, const std::string& size, std::uint64_t archiveBytes,
                      std::uint64_t patchBytes) {
    const std::string remedy = "write \"" + sizeText(archiveBytes) + "\", or let publish compute it";
    if (size.empty()) {
        return {
            {Severity::warning, place, "it has no size, so buffering counts the patch as 0 bytes", remedy}};
    }
    // A misleading size is reported by the checks of the content.
    if (!whySizeMisleads(size).empty()) return {};
    const std::uint64_t least = std::min(archiveBytes, patchBytes), most = std::max(archiveBytes, patchBytes);
    const auto announced = static_cast<std::uint64_t>(std::max(0L, remediation::parsePatchSize(size).bytes));
    const bool tooSmall = announced + announced / kToleranceShare < least;
    if (!tooSmall && announced <= most + most / kToleranceShare + kSlack) return {};
    return {{Severity::warning, place,
             "size \"" + size + "\" is too " + (tooSmall ? "small" : "large") + ": the archive has " +
                 std::to_string(archiveBytes) + " bytes",
             remedy}};
}

}  // namespace zelor::authoring

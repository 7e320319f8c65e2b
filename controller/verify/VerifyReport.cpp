#include "controller/verify/VerifyReport.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "base/Files.h"
#include "base/PrintableText.h"
#include "base/StagedFile.h"
#include "base/TrustedDirectory.h"
#include "controller/States.h"
#include "controller/Text.h"
#include "remediation/Version.h"

namespace zelor::controller {

namespace {

using nlohmann::ordered_json;

constexpr Compliance kAll[] = {Compliance::compliant, Compliance::drifted, Compliance::notRecorded,
                               Compliance::notCompliant, Compliance::unknown};

std::string dumped(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

ordered_json truthJson(Truth truth) {
    return truth == Truth::unknown ? ordered_json(nullptr) : ordered_json(truth == Truth::holds);
}

/// The file itself, where its name is a link that the agent follows.
std::string withoutLinks(const std::string& path) {
    boost::system::error_code error;
    const auto real = boost::filesystem::canonical(path, error);
    return error ? path : real.string();
}

}  // namespace

std::size_t VerifyReport::count(Compliance compliance) const {
    return static_cast<std::size_t>(
        std::count_if(requests.begin(), requests.end(),
                      [&](const VerifiedRequest& request) { return request.compliance == compliance; }));
}

std::set<std::string> driftedIds(const std::vector<VerifiedRequest>& requests) {
    std::set<std::string> ids;
    for (const VerifiedRequest& request : requests) {
        if (request.compliance == Compliance::drifted)
            ids.insert(request.recorded.begin(), request.recorded.end());
    }
    return ids;
}

int verifyExitStatus(const VerifyReport& report) {
    return runExitStatus(report.requests.size(),
                         report.count(Compliance::compliant) + report.count(Compliance::notRecorded), false);
}

void writeVerifyText(std::ostream& out, const VerifyReport& report, std::size_t columns) {
    constexpr std::size_t kLabel = 28, kIdentifier = 16, kState = 13;
    constexpr std::size_t kBefore = kLabel + kIdentifier + kState + 6;
    for (const VerifiedRequest& request : report.requests) {
        const std::string row = fitToColumns(requestLabel(request.key), kLabel, "~") + "  " +
                                fitToColumns(base::printable(request.identifier), kIdentifier, "~") + "  " +
                                fitToColumns(complianceName(request.compliance), kState, "~") + "  ";
        const std::size_t room = columns > kBefore + 20 ? columns - kBefore : 0;
        std::string reason = folded(request.proof.reason, room, 0);
        for (std::size_t at = 0; (at = reason.find('\n', at)) != std::string::npos; at += kBefore)
            reason.insert(++at, kBefore, ' ');
        out << row << reason << '\n';
    }
    out << '\n' << countText(report.requests.size(), "request");
    const char* before = ": ";
    for (const Compliance compliance : kAll) {
        out << before << report.count(compliance) << ' ' << complianceName(compliance);
        before = ", ";
    }
    out << ".\n";
    if (!report.forgotten.empty()) {
        out << countText(report.forgotten.size(), "entry")
            << " dropped from the installed-patches record; the next run applies them again:\n";
        for (const std::string& id : report.forgotten)
            out << "  " << base::printable(id) << '\n';
    }
}

void writeVerifyJson(std::ostream& out, const VerifyReport& report) {
    const ordered_json platform = {{"name", report.system.productName},
                                   {"version", report.system.productVersion},
                                   {"cpe", report.system.platformCpe}};
    out << "{\"schema\":1,\"version\":" << dumped(ZELOR_VERSION_STRING) << ",\"host\":" << dumped(report.host)
        << ",\"platform\":" << dumped(platform) << ",\"started\":" << dumped(report.started)
        << ",\"seconds\":" << std::round(report.seconds * 1000) / 1000 << ",\n\"requests\": {";
    const char* before = "\n";
    for (const VerifiedRequest& request : report.requests) {
        out << before << "  " << dumped(request.key) << ": " << dumped(verifiedJson(request));
        before = ",\n";
    }
    ordered_json counts;
    for (const Compliance compliance : kAll)
        counts[complianceName(compliance)] = report.count(compliance);
    out << "\n}, \"counts\": " << dumped(counts) << ", \"forgotten\": " << dumped(report.forgotten) << "}\n";
}

ordered_json verifiedJson(const VerifiedRequest& request) {
    ordered_json eris = ordered_json::array();
    for (const BlockProof& block : request.blocks) {
        eris.push_back({{"eri", block.eriId},
                        {"verified", truthJson(block.proof.truth)},
                        {"reason", block.proof.reason}});
    }
    return {{"identifier", request.identifier},
            {"state", complianceName(request.compliance)},
            {"verified", truthJson(request.proof.truth)},
            {"reason", request.proof.reason},
            {"recorded", request.recorded},
            {"eris", eris}};
}

void dropFromRecord(const std::string& path, const std::set<std::string>& lines) {
    const std::string file = withoutLinks(path);
    const auto opened = base::openOwnFile(path, O_RDONLY | O_NONBLOCK);
    struct stat info {};
    if (!opened || ::fstat(opened->get(), &info) != 0) {
        throw std::runtime_error("the installed-patches record " + path + " cannot be read: " +
                                 (opened ? base::errorText(errno) : opened.error().text));
    }
    std::string text, kept;
    base::readInPieces(*opened, path, [&](std::string_view piece) { text += piece; });
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::size_t next = std::min(end + 1, text.size());
        if (lines.count(text.substr(at, end - at)) == 0) kept.append(text, at, next - at);
        at = next;
    }
    base::StagedFile staged(file, ".forget", info.st_mode & 0777U);
    staged.write(kept);
    if (::fchmod(staged.descriptor(), info.st_mode & 0777U) != 0)
        throw std::runtime_error("the mode of " + file + " cannot be kept: " + base::errorText(errno));
    staged.commit();
}

}  // namespace zelor::controller

#include "authoring/metadata/MetadataStatus.h"

#include <algorithm>

#include "authoring/Finding.h"
#include "authoring/metadata/MetadataKeys.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr const char* kBins = "bins";

RoleReport reportOf(const trust::RoleStatus& status, const trust::Root& root, const trust::Json& content) {
    const bool top = root.roles.count(status.role) != 0;
    RoleReport report;
    report.role = top ? status.role : kBins;
    report.version = status.version;
    report.expires = status.expires;
    report.isSigned = status.isSigned;
    const trust::RoleKeys& keys = root.keysOf(top ? status.role : trust::kTargetsRole);
    report.threshold = keys.threshold;
    for (const std::string& id : keys.ids) {
        report.ids.push_back(id);
        report.labels.push_back(keyLabel(content, id));
    }
    return report;
}

std::string remedyOf(const std::string& role) {
    if (role == trust::kRootRole) return "renew it with zelor-content rotate and its root keys";
    if (role == trust::kTimestampRole || role == trust::kSnapshotRole)
        return "run zelor-content refresh with its key, by a timer";
    return "publish again with its keys";
}

trust::Time usual(const std::string& role) {
    if (role == trust::kRootRole) return 30 * trust::kDay;
    if (role == trust::kTimestampRole) return 2 * trust::kDay;
    return role == trust::kSnapshotRole ? 7 * trust::kDay : 14 * trust::kDay;
}

}  // namespace

std::vector<RoleReport> metadataStatus(const MetadataDirectory& directory) {
    const trust::RoleFiles files = directory.newest();
    const auto writer = trust::RepositoryWriter::open(files, {});
    if (!writer) throw std::runtime_error(writer.error().text);
    const auto root = trust::readSignedFile(files.at(trust::kRootRole), files.at(trust::kRootRole).size());
    if (!root) throw std::runtime_error(root.error().text);
    const trust::Root& trusted = writer->root();
    std::vector<RoleReport> reports = {
        reportOf({trust::kRootRole, trusted.version, trusted.expires, true}, trusted, root->content)};
    for (const trust::RoleStatus& status : writer->roles()) {
        RoleReport report = reportOf(status, trusted, root->content);
        if (reports.back().role != kBins || report.role != kBins) {
            reports.push_back(std::move(report));
            continue;
        }
        RoleReport& bins = reports.back();
        bins.version = std::max(bins.version, report.version);
        bins.expires = std::min(bins.expires, report.expires);
        bins.isSigned = bins.isSigned && report.isSigned;
    }
    return reports;
}

std::string attention(const RoleReport& role, trust::Time now, trust::Time within) {
    std::string what;
    if (!role.isSigned)
        what = " is not signed by the keys that the root names";
    else if (role.expires <= now)
        what = " expired " + trust::timeText(role.expires);
    else if (role.expires - now <= (within < 0 ? usual(role.role) : within))
        what = " expires in " +
               amount(static_cast<std::size_t>((role.expires - now) / trust::kDay), "day", "days");
    return what.empty() ? "" : role.role + what + "; " + remedyOf(role.role);
}

std::string expiryWarnings(const MetadataDirectory& directory, trust::Time now) {
    std::string lines;
    for (const RoleReport& role : metadataStatus(directory)) {
        if (role.role == trust::kTimestampRole || role.role == trust::kSnapshotRole) continue;
        const std::string problem = attention(role, now, -1);
        if (!problem.empty()) lines += "zelor-content: warning: " + problem + '\n';
    }
    return lines;
}

}  // namespace zelor::authoring

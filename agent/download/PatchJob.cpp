#include "agent/download/PatchJob.h"

#include <algorithm>
#include <stdexcept>

#include "agent/AgentSettings.h"
#include "agent/content/PatchDigests.h"
#include "agent/http/RepositoryUrl.h"
#include "collaborators/Common.h"

namespace zelor::agent {

namespace {

/// Why a stem cannot name an archive, "" when it can.
std::string stemProblem(const std::string& stem) {
    const bool control =
        std::any_of(stem.begin(), stem.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; });
    if (stem.empty()) return "it is empty";
    if (stem == "." || stem == "..") return "it names a directory";
    if (stem.find('/') != std::string::npos) return "it holds a path separator";
    if (control) return "it holds a control character";
    return stem.size() > 200 ? "it is longer than 200 bytes" : "";
}

}  // namespace

std::string patchUrl(const Mirror& mirror, const std::string& stem) {
    return mirror.url + "/patches/" + urlSegment(stem) + ".zip";
}

DownloadJob patchJob(const std::string& stem, const std::string& destination,
                     const std::string& installPath) {
    const std::string problem = stemProblem(stem);
    if (!problem.empty()) {
        throw std::runtime_error("cannot fetch the patch \"" + stem + "\": " + problem +
                                 "; correct the patch id in the content");
    }
    const auto settings = AgentSettings::current();
    const std::string archive = stem + ".zip";
    DownloadJob job;
    job.name = archive;
    job.partialDirectory = Common::StripTrailingSeparators(installPath) + "/partial";
    job.destination = destination;
    const bool required = settings->values().requireDigests;
    job.digest = WantedPatches::instance().archive(archive, required);
    return job;
}

DownloadPolicy patchPolicy(const Mirror& mirror, bool othersLeft) {
    const auto settings = AgentSettings::current();
    DownloadPolicy policy;
    policy.pace.bytesPerSecond = std::uint64_t{settings->values().patchKiBPerSecond} << 10U;
    policy.pace.grace = std::chrono::minutes(settings->values().patchMinutes);
    policy.outage = mirror.outage;
    policy.othersLeft = othersLeft;
    return policy;
}

}  // namespace zelor::agent

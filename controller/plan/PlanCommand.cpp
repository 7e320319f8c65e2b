#include <stdlib.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <memory>
#include <stdexcept>

#include "agent/AgentSettings.h"
#include "agent/ContentCacheControl.h"
#include "agent/LogControl.h"
#include "agent/RepositoryStatus.h"
#include "agent/archive/ArchiveExtractor.h"
#include "agent/content/PatchDigests.h"
#include "agent/http/Deadline.h"
#include "agent/http/RepositoryUrl.h"
#include "agent/trust/Signature.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/Strings.h"
#include "base/SystemRoot.h"
#include "collaborators/CacheStore.h"
#include "collaborators/Common.h"
#include "collaborators/CreCacher.h"
#include "controller/Commands.h"
#include "controller/InputError.h"
#include "controller/JobLock.h"
#include "controller/Text.h"
#include "controller/live/LiveTerminal.h"
#include "controller/plan/PlanText.h"
#include "controller/run/Inputs.h"
#include "controller/run/OutputFile.h"
#include "controller/run/Signals.h"
#include "controller/status/Status.h"
#include "controller/verify/Verifier.h"
#include "platform/macos/InstallCommands.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/CallReport.h"
#include "remediation/apply/InstalledRecord.h"
#include "remediation/buffer/BufferedPatches.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::controller {

namespace {

namespace fs = boost::filesystem;

/// Thrown after a signal, and at the time limit.
struct Stopped {};

/// Why a run would refuse a buffered archive, "" when it would use it; unpacks it in a temporary directory.
std::string signatureProblem(const std::string& archive, const std::string& fileName,
                             const agent::AgentSettings& settings) {
    try {
        const base::TemporaryDirectory directory("zelor-plan");
        const agent::WantedPatches& wanted = agent::WantedPatches::instance();
        const bool required = settings.values().requireDigests;
        agent::ArchiveExtractor().extract(archive, directory.path(),
                                          wanted.archive(fs::path(archive).filename().string(), required));
        const std::string signature =
            remediation::signaturePath(fileName, remediation::splitAtLastDot(fileName)->extension);
        const agent::SignatureVerdict verdict =
            agent::verifyPath(directory.path() + '/' + fileName, directory.path() + '/' + signature,
                              settings.values().trustedKey);
        const auto digest = wanted.file(fileName, required);
        if (verdict.good && digest) agent::requireDigest(fileName, verdict.digest, *digest);
        return verdict.reason;
    } catch (const std::exception& e) {
        return e.what();
    }
}

/// Contents that disagree on a file's digest, or give none where one is required, are refused.
std::string digestProblem(const std::string& archive, const std::string& fileName, bool required) {
    const agent::WantedPatches& wanted = agent::WantedPatches::instance();
    try {
        (void)wanted.archive(archive, required);
        (void)wanted.file(fileName, required);
        return "";
    } catch (const std::runtime_error& e) {
        return e.what();
    }
}

std::map<std::string, std::uint64_t> sizesByName(const std::vector<SizedFile>& files) {
    std::map<std::string, std::uint64_t> sizes;
    for (const SizedFile& file : files)
        sizes.emplace(file.name, file.bytes);
    return sizes;
}

/// Collects the facts that a plan needs.
class Collector {
  public:
    Collector(const PlanOptions& options, const Paths& paths, const agent::Deadline& limit)
        : options_(options), paths_(paths), limit_(limit) {}

    Plan plan(const Requests& requests) {
        agent::startNewRun();
        status_ = gatherStatus(paths_);
        const bool buffer = remediation::bufferDirectoriesAreOurs();
        PlanFacts known = facts(buffer);
        known.invalid = requests.invalid;
        Plan plan = makePlan(requests.all, known);
        const auto& unknown = paths_.settings->warnings();
        plan.warnings.insert(plan.warnings.end(), unknown.begin(), unknown.end());
        for (const std::string& warning : agent::indexWarnings(paths_.installPath))
            plan.warnings.push_back(base::printable(warning));
        if (!buffer) {
            plan.warnings.emplace_back(
                "the buffered patches are not used, since other users can modify their directories; the log "
                "says in which");
        }
        plan.productName = status_.productName;
        plan.repository = agent::shownAddresses(paths_.settings->values().repositoryUrl);
        plan.productVersion = status_.productVersion;
        plan.platformCpe = status_.platformCpe;
        return plan;
    }

  private:
    PlanFacts facts(bool buffer) {
        PlanFacts facts;
        facts.platformCpe = status_.platformCpe;
        facts.specialCases = CacheStore::GetSplCaseCPEs();
        facts.vendorInstallation = paths_.settings->values().vendorProducts;
        facts.contentDir = paths_.contentDir;
        facts.applications = underSystemRoot(APPFOLDER);
        facts.mountPoint = underSystemRoot(platform::kDiskImageMountPoint);
        boost::system::error_code unreadable;
        const fs::directory_iterator mounted(facts.mountPoint, unreadable);
        facts.mountPointInUse = !unreadable && mounted != fs::directory_iterator();
        if (buffer) facts.bufferedList = status_.bufferedList;
        if (buffer) facts.bufferFiles = sizesByName(status_.bufferFiles);
        for (const SizedFile& file : status_.partial)
            facts.partialFiles.emplace(file.name.substr(0, file.name.rfind('.')), file.bytes);
        if (!options_.afterScan) record_.refresh(status_.recordFile);
        facts.isRecorded = [this](const std::string& eri) { return record_.hasLine(eri); };
        facts.content = [this](const std::string& platform, const std::string& product,
                               const std::string& identifier) {
            stopIfAsked();
            CallReport report({}, [this] { return isOver(); });
            parseOnlyMetadata content = CreCacher::GetInstance(paths_.installPath, status_.platformCpe)
                                            ->getCre(platform, product, identifier);
            stopIfAsked();
            contentProblem_ = report.reason();
            return content;
        };
        // Only asked about the content that was read last.
        facts.contentProblem = [this](const std::string& /*key*/, const std::string& /*identifier*/) {
            return base::printable(contentProblem_);
        };
        facts.updateListing = [] { return MacPatchManager().getOsCmdline(platform::kListUpdatesCommand); };
        facts.productVersion = [this] { return status_.productVersion; };
        facts.signatureProblem = [this](const std::string& archive, const std::string& fileName) {
            stopIfAsked();
            return signatureProblem(paths_.settings->values().patchesDir + '/' + archive, fileName,
                                    *paths_.settings);
        };
        facts.digestProblem = [this](const std::string& archive, const std::string& fileName) {
            return digestProblem(archive, fileName, paths_.settings->values().requireDigests);
        };
        return facts;
    }

    bool isOver() const { return signals_.endAsked() || limit_.passed(); }
    void stopIfAsked() const {
        if (isOver()) throw Stopped();
    }

    const PlanOptions& options_;
    const Paths& paths_;
    const agent::Deadline& limit_;
    Signals signals_;
    std::string contentProblem_;
    Status status_;
    remediation::InstalledRecord record_;
};

void verify(Plan& plan, const Requests& requests, const Paths& paths, const agent::Deadline& limit) {
    const Signals signals;
    const SystemIdentity system{plan.productName, plan.productVersion, plan.platformCpe};
    const auto isOver = [&] { return signals.endAsked() || limit.passed(); };
    Verifier verifier(paths, system, isOver);
    for (PlannedRequest& request : plan.requests) {
        request.verified = verifier.verify(request.key, request.identifier, requests.problemOf(request.key));
        if (isOver()) throw Stopped();
    }
}

bool wantsColour() {
    const char* noColour = ::getenv("NO_COLOR");
    return ::isatty(STDOUT_FILENO) != 0 && (noColour == nullptr || *noColour == '\0');
}

}  // namespace

int planCommand(const PlanOptions& options) {
    const auto [requests, paths] = readInputs(options.paths, options.requests, {{"--json", options.json}});
    checkContentDir(paths);
    std::unique_ptr<JobLock> lock;
    if (options.check) {
        // Checks run scripts, and no run may change what they look at.
        prepareDirectories(paths, false);
        lock = std::make_unique<JobLock>(Waiting{});
    } else {
        prepareForReading(paths);
    }
    if (options.verbose) agent::logToStandardError("debug");
    // Only what holds the lock keeps runs waiting.
    const agent::Deadline limit(options.check ? runTimeLimit(options.timeLimit, paths)
                                              : std::chrono::milliseconds(0));
    try {
        Plan plan = Collector(options, paths, limit).plan(requests);
        if (options.check) verify(plan, requests, paths, limit);
        const bool text = options.json.empty();
        const std::string problem = writeOutput(text ? "-" : options.json, [&](std::ostream& out) {
            text ? writePlanText(out, plan, wantsColour(), terminalColumns(STDOUT_FILENO))
                 : writePlanJson(out, plan);
        });
        if (!problem.empty()) throw CommandError(exitStatus::kOutputFailed, problem);
        return planExitStatus(plan);
    } catch (const Stopped&) {
        if (limit.passed())
            throw CommandError(exitStatus::kCancelled, std::string("plan --check ") + kReachedTimeLimit);
        return exitStatus::kCancelled;
    }
}

}  // namespace zelor::controller

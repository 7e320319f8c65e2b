#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>

#include "agent/ContentCacheControl.h"
#include "agent/LogControl.h"
#include "agent/Prefetch.h"
#include "agent/RepositoryStatus.h"
#include "agent/http/Deadline.h"
#include "agent/http/RepositoryUrl.h"
#include "controller/Commands.h"
#include "controller/InputError.h"
#include "controller/JobLock.h"
#include "controller/Text.h"
#include "controller/export/Export.h"
#include "controller/live/EventLines.h"
#include "controller/live/LiveProgress.h"
#include "controller/live/PlainLines.h"
#include "controller/live/Watch.h"
#include "controller/report/ReportJson.h"
#include "controller/report/ReportPage.h"
#include "controller/report/RunTimeline.h"
#include "controller/run/Inputs.h"
#include "controller/run/OutputFile.h"
#include "controller/run/RunRecord.h"
#include "controller/status/Status.h"
#include "controller/verify/Verifier.h"
#include "remediation/RemediationManager.h"

namespace zelor::controller {

namespace {

constexpr std::chrono::seconds kLastStep{15};  ///< for a job that stops to finish what it writes

std::string timeLimitReason() {
    return std::string("the run ") + kReachedTimeLimit;
}

std::vector<RequestedOutput> outputsOf(const RunOptions& options) {
    std::vector<RequestedOutput> outputs = {
        {"--json", options.json}, {"--events", options.events}, {"--report", options.report}};
    for (const std::string& text : options.exports)
        outputs.push_back({"--export", requestedExport(text).path});
    return outputs;
}

bool keepsStandardOutput(const RunOptions& options) {
    const std::vector<RequestedOutput> outputs = outputsOf(options);
    return std::any_of(outputs.begin(), outputs.end(),
                       [](const RequestedOutput& output) { return output.path == "-"; });
}

/// Reports the problem, if any; false when there is one.
bool isWritten(const std::string& problem) {
    if (!problem.empty()) std::cerr << "zelor-remediate: " << problem << '\n';
    return problem.empty();
}

/// One run from its inputs to its results.
class Run {
  public:
    Run(const RunOptions& options, const Requests& requests, const Paths& paths)
        : options_(options),
          paths_(paths),
          talkFd_(keepsStandardOutput(options) ? STDERR_FILENO : STDOUT_FILENO),
          usable_(requests.usable()),
          table_(requests.all),
          prefetch_(paths.installPath),
          manager_(paths.installPath) {
        table_.setInvalid(requests.invalid);
        record_.setInvalid(requests);
        manager_.setRunObserver(&record_);
        manager_.setAheadOfNeed(&prefetch_);
        if (!options.events.empty()) {
            eventOutput_ = std::make_unique<LineOutput>(options.events, "--events");
            addListener(std::make_unique<EventLines>(*eventOutput_, record_, facts_));
        }
    }

    int execute() {
        Signals signals;
        addProgress();
        if (!options_.json.empty()) keepContentToVerify();
        agent::startNewRun();
        manager_.setovalIdMap(usable_);
        manager_.setContentDownloadDir(paths_.contentDir);
        manager_.setFirstRemediationAfterScan(options_.afterScan);
        std::vector<RunListener*> listeners;
        for (const auto& listener : listeners_)
            listeners.push_back(listener.get());
        if (!options_.report.empty() || !options_.json.empty() || !options_.exports.empty())
            listeners.push_back(&timeline_);
        gatherFacts();
        const auto start = std::chrono::steady_clock::now();
        const agent::Deadline deadline(runTimeLimit(options_.timeLimit, paths_));
        if (!usable_.empty()) manager_.remediate(true);
        const WatchedRun watched{[this] { return manager_.getRemediationProgressMap(); },
                                 [this] { return usable_.empty() || manager_.getRemDone(); },
                                 [this](EarlyEnd why) { cancel(why); },
                                 [&] { return deadline.passed() ? EarlyEnd::timeLimit : EarlyEnd::none; }};
        end_ = watch(watched, signals, listeners);
        listeners_.clear();
        facts_.finished = std::chrono::system_clock::now();
        facts_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        // Checks take their time: they are run for those who can see what they say.
        if (!options_.json.empty() || !options_.exports.empty() || !options_.report.empty())
            proveResults([&] { return end_ != EarlyEnd::none || signals.endAsked() || deadline.passed(); });
        const bool cancelled = end_ != EarlyEnd::none;
        if (!finish() && !cancelled) return exitStatus::kOutputFailed;
        return runExitStatus(table_.results().size(), table_.count(kSuccessValue), cancelled);
    }

  private:
    void addListener(std::unique_ptr<RunListener> listener) { listeners_.push_back(std::move(listener)); }

    void addProgress() {
        if (options_.talk.quiet) return;
        const ReasonOf reasonOf = [this](const Result& result) { return record_.reason(result); };
        if (isLiveTerminal(talkFd_) && !options_.talk.verbose) {
            addListener(std::make_unique<LiveProgress>(talkFd_, table_.results().size(), reasonOf));
        } else {
            addListener(std::make_unique<PlainLines>(talkFd_, reasonOf));
        }
    }

    void cancel(EarlyEnd why) {
        if (why == EarlyEnd::timeLimit) {
            record_.setAbortReason(timeLimitReason());
            std::cerr << "zelor-remediate: " << timeLimitReason() << "; waiting for the current step\n";
        }
        manager_.setCancelAllRem(true);
    }

    /// The manager must outlive its run, whatever happens to the watcher.
    EarlyEnd watch(const WatchedRun& watched, Signals& signals, const std::vector<RunListener*>& listeners) {
        try {
            return watchRun(watched, table_, signals, listeners);
        } catch (const std::exception& e) {
            std::cerr << "zelor-remediate: the run is cancelled, it cannot be watched: " << e.what() << '\n';
        }
        try {
            watched.cancel(EarlyEnd::signal);
            (void)watchRun({watched.progress, watched.done, watched.cancel, {}}, table_, signals, {});
        } catch (const std::exception&) {
            while (!watched.done())
                signals.wait(std::chrono::milliseconds(50));
        }
        return EarlyEnd::signal;
    }

    void gatherFacts() {
        facts_.host = hostName();
        const SystemIdentity system = systemIdentity();
        facts_.productName = system.productName;
        facts_.productVersion = system.productVersion;
        facts_.platformCpe = system.platformCpe;
        facts_.repository = agent::shownAddresses(paths_.settings->values().repositoryUrl);
        facts_.started = std::chrono::system_clock::now();
    }

    /// Whatever the run reports: installers that say nothing wrong may have done nothing. `stop`: what is
    /// left is not known.
    void proveResults(std::function<bool()> stop) {
        const SystemIdentity system{facts_.productName, facts_.productVersion, facts_.platformCpe};
        Verifier verifier(paths_, system, std::move(stop));
        for (const Result& result : table_.results()) {
            const VerifiedRequest request = verifier.verifyAfterRun(*result.key, *result.identifier);
            proofs_.push_back(request.checked ? std::optional<Proof>(request.proof) : std::nullopt);
        }
    }

    /// False when an output could not be written.
    bool finish() {
        RunFlags flags{manager_.getRebootNeeded(),
                       manager_.getScanNeeded(),
                       usable_.empty() || manager_.getAllRemFailed(),
                       record_.restartNeeded(),
                       end_,
                       end_ == EarlyEnd::timeLimit ? timeLimitReason() : "",
                       outage()};
        for (const std::string& warning : agent::indexWarnings(paths_.installPath))
            flags.warnings.push_back(base::printable(warning));
        flags.contentSigned = agent::keptIndex(paths_.installPath).signedAt;
        bool written = true;
        if (!options_.json.empty()) written &= isWritten(writeResults(flags));
        if (!options_.exports.empty()) written &= isWritten(writeExports(flags));
        if (!options_.report.empty()) written &= isWritten(writeReport(flags));
        if (eventOutput_) written &= isWritten(eventOutput_->problem());
        if (!options_.talk.quiet) {
            const std::string summary = runSummary(table_, valuesBeforeCancel(), flags,
                                                   paths_.settings->values().logFile, facts_.seconds) +
                                        disprovedText();
            written &= isWritten(writeTalk(talkFd_, summary));
        }
        return written;
    }

    std::string disprovedText() const {
        std::size_t disproved = 0;
        for (std::size_t i = 0; i < proofs_.size(); ++i) {
            const bool success = table_.results()[i].value == kSuccessValue;
            disproved += success && proofs_[i] && proofs_[i]->truth == Truth::fails ? 1 : 0;
        }
        if (disproved == 0) return "";
        return "Successes that their check disproves: " + std::to_string(disproved) + ".\n";
    }

    std::vector<ProgressValue> valuesBeforeCancel() const {
        std::vector<ProgressValue> values;
        for (const Result& result : table_.results()) {
            if (result.value != kAbortedValue) continue;
            const auto before = record_.outcome(result).beforeCancel;
            if (before) values.push_back(before->value);
        }
        return values;
    }

    Outage outage() const {
        std::vector<std::string> reasons;
        for (const Result& result : table_.results())
            reasons.push_back(record_.reason(result));
        return outageIn(reasons);
    }

    void writeJson(std::ostream& out, const RunFlags& flags) const {
        const auto spans = timeline_.spans(table_.results().size());
        writeResultJson(out, table_, flags, facts_, [&](std::size_t request) {
            return RequestDetails{record_.outcome(table_.results()[request]), busySeconds(spans[request]),
                                  busySince(spans[request]),
                                  proofs_.empty() ? std::nullopt : proofs_[request]};
        });
    }

    std::string writeResults(const RunFlags& flags) const {
        return writeOutput(options_.json, [&](std::ostream& out) { writeJson(out, flags); });
    }

    /// From the same text that `export` reads. Returns the first problem.
    std::string writeExports(const RunFlags& flags) const {
        std::string problem;
        try {
            std::ostringstream results;
            writeJson(results, flags);
            const ExportedRun run = parseResults(results.str(), "the results");
            for (const std::string& text : options_.exports) {
                const RequestedExport wanted = requestedExport(text);
                const std::string found = writeOutput(
                    wanted.path, [&](std::ostream& out) { writeExport(out, run, wanted.format); });
                if (problem.empty()) problem = found;
            }
        } catch (const std::exception& e) {
            problem = std::string("the results are not exported: ") + e.what();
        }
        return problem;
    }

    /// A failed report does not change the results of the run.
    std::string writeReport(const RunFlags& flags) const {
        try {
            return makeReport(flags);
        } catch (const std::exception& e) {
            return "no report is written to " + options_.report + ": " + e.what();
        }
    }

    std::string makeReport(const RunFlags& flags) const {
        RunReport report{table_, timeline_.spans(table_.results().size()), flags, end_ != EarlyEnd::none,
                         facts_, paths_.settings->values().logFile,        {},    {}};
        report.reasonOf = [this](const Result& result) { return record_.reason(result); };
        report.outcomeOf = [this](const Result& result) { return record_.outcome(result); };
        report.proofs = proofs_;
        return writeOutput(options_.report, [&](std::ostream& out) { writeReportPage(out, report); });
    }

    const RunOptions& options_;
    const Paths& paths_;
    int talkFd_;
    RequestMap usable_;
    ResultTable table_;
    RunFacts facts_;
    RunRecord record_;  // outlives the run, which reports to it
    agent::Prefetch prefetch_;
    RemediationManager manager_;
    std::unique_ptr<LineOutput> eventOutput_;
    RunTimeline timeline_;
    std::vector<std::optional<Proof>> proofs_;  ///< by request, where outputs show them
    EarlyEnd end_ = EarlyEnd::none;
    std::vector<std::unique_ptr<RunListener>> listeners_;
};

}  // namespace

int runCommand(const RunOptions& options) {
    const auto [requests, paths] = readInputs(options.paths, options.requests, outputsOf(options));
    checkContentDir(paths);
    prepareDirectories(paths, true);
    const JobLock lock(
        {std::chrono::seconds(options.waitSeconds), options.talk.quiet, kGiveWayTime + kLastStep});
    emptyContentDir(paths);
    if (options.talk.verbose) agent::logToStandardError("debug");
    const int status = Run(options, requests, paths).execute();
    try {
        emptyContentDir(paths);
    } catch (const InputError& e) {
        std::cerr << "zelor-remediate: " << e.what() << '\n';  // the next run tries again
    }
    return status;
}

}  // namespace zelor::controller

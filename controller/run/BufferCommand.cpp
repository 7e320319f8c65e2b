#include <unistd.h>

#include <atomic>
#include <boost/thread/thread.hpp>
#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

#include "agent/ContentCacheControl.h"
#include "agent/LogControl.h"
#include "agent/RepositoryStatus.h"
#include "controller/Commands.h"
#include "controller/JobLock.h"
#include "controller/Text.h"
#include "controller/live/BufferProgress.h"
#include "controller/live/OutageReason.h"
#include "controller/live/Watch.h"
#include "controller/run/GiveWay.h"
#include "controller/run/Inputs.h"
#include "controller/run/OutputFile.h"
#include "controller/run/RunRecord.h"
#include "remediation/RemediationManager.h"

namespace zelor::controller {

namespace {

using nlohmann::ordered_json;
using Kind = BufferOutcome;

/// One buffering job from its inputs to its results.
class Job {
  public:
    Job(const BufferOptions& options, const Requests& requests, const Paths& paths)
        : options_(options),
          installPath_(paths.installPath),
          sign_(lockDirectory()),
          talkFd_(options.json == "-" ? STDERR_FILENO : STDOUT_FILENO),
          usable_(requests.usable()),
          table_(requests.all),
          manager_(paths.installPath) {
        table_.setInvalid(requests.invalid);
        record_.setInvalid(requests);
        manager_.setRunObserver(&record_);
    }

    int execute() {
        Signals signals;
        agent::startNewRun();
        const EarlyEnd end = watch(signals);
        const bool cancelled = end == EarlyEnd::signal;
        const bool gaveWay = end == EarlyEnd::waitingRun;
        record_.end(cancelled ? "cancelled"
                    : gaveWay ? "a run was waiting; the next job resumes it"
                              : "the job ended before it");
        const Counts counts = count();
        std::string problem;
        if (!options_.json.empty()) {
            problem = writeOutput(options_.json, [&](std::ostream& out) {
                out << json(end).dump(2, ' ', false, ordered_json::error_handler_t::replace) << '\n';
            });
        }
        if (!options_.talk.quiet)
            problem += writeTalk(talkFd_, (gaveWay ? "Stopped for a waiting run. " : "") + summary(counts));
        if (!problem.empty()) std::cerr << "zelor-remediate: " << problem << '\n';
        for (const std::string& warning : agent::indexWarnings(installPath_))
            std::cerr << "zelor-remediate: warning: " << base::printable(warning) << '\n';
        if (cancelled) return exitStatus::kCancelled;
        if (!problem.empty()) return exitStatus::kOutputFailed;
        if (counts.missing == 0 && !gaveWay) return exitStatus::kAllSucceeded;
        return counts.there > 0 ? exitStatus::kSomeSucceeded : exitStatus::kNoneSucceeded;
    }

  private:
    struct Counts {
        std::size_t there = 0;    ///< patches in the buffer
        std::size_t missing = 0;  ///< patches that are not, and requests whose patches are not known
    };

    EarlyEnd watch(Signals& signals) {
        std::unique_ptr<BufferProgress> progress;
        std::vector<RunListener*> listeners;
        if (!options_.talk.quiet) {
            const bool live = isLiveTerminal(talkFd_) && !options_.talk.verbose;
            progress = std::make_unique<BufferProgress>(talkFd_, live, record_);
            listeners.push_back(progress.get());
        }
        std::atomic<bool> done{false};
        boost::thread thread([this, &done] {
            try {
                if (!usable_.empty()) manager_.bufferPatches(usable_);
            } catch (const boost::thread_interrupted&) {
                // This is how a cancel stops the current download.
            }
            done = true;
        });
        const auto cancel = [&](EarlyEnd /*why*/) {
            manager_.setCancelAllRem(true);
            thread.interrupt();
        };
        EarlyEnd end = EarlyEnd::none;
        try {
            end = watchRun({[this] { return manager_.getRemediationProgressMap(); },
                            [&] { return done.load(); }, cancel, [this] { return giveWay(); }},
                           table_, signals, listeners);
        } catch (...) {
            cancel(EarlyEnd::signal);
            thread.join();
            throw;
        }
        thread.join();
        return end;
    }

    /// Stops for a waiting run after the current patch, or at once when that takes too long.
    EarlyEnd giveWay() {
        if (!sign_.runWaits()) {
            waitsSince_.reset();
            return EarlyEnd::none;
        }
        const auto now = std::chrono::steady_clock::now();
        if (!waitsSince_) {
            waitsSince_ = now;
            inHand_ = record_.inHand();
        }
        const bool goesOn =
            !inHand_.empty() && record_.inHand() == inHand_ && now - *waitsSince_ < options_.giveWayTime;
        return goesOn ? EarlyEnd::none : EarlyEnd::waitingRun;
    }

    static bool isUnusable(const Result& result) {
        return result.value == kContentFailedValue || result.value == kInvalidRequestValue;
    }
    static bool isThere(const PatchOutcome& outcome) {
        return outcome.kind == Kind::buffered || outcome.kind == Kind::alreadyBuffered;
    }

    Counts count() const {
        Counts counts;
        for (const PatchOutcome& outcome : record_.outcomes())
            ++(isThere(outcome) ? counts.there : counts.missing);
        counts.missing += table_.count(kContentFailedValue) + table_.count(kInvalidRequestValue);
        return counts;
    }

    ordered_json json(EarlyEnd end) const {
        ordered_json all = {
            {"buffered", ordered_json::array()},    {"alreadyBuffered", ordered_json::array()},
            {"skipped", ordered_json::array()},     {"unusable", ordered_json::array()},
            {"cancelled", end == EarlyEnd::signal}, {"gaveWay", end == EarlyEnd::waitingRun}};
        for (const PatchOutcome& outcome : record_.outcomes()) {
            if (outcome.kind == Kind::buffered) all["buffered"].push_back(outcome.patch);
            if (outcome.kind == Kind::alreadyBuffered) all["alreadyBuffered"].push_back(outcome.patch);
            if (!isThere(outcome)) {
                all["skipped"].push_back({{"patch", outcome.patch}, {"reason", outcome.reason}});
            }
        }
        for (const Result& result : table_.results()) {
            if (!isUnusable(result)) continue;
            all["unusable"].push_back({{"key", *result.key},
                                       {"identifier", *result.identifier},
                                       {"value", result.value},
                                       {"state", stateName(result.value)},
                                       {"reason", record_.reason(result)}});
        }
        const Outage down = outage();
        if (!down.reason.empty())
            all["outage"] = {{"reason", down.reason}, {"patches", down.patches}, {"requests", down.requests}};
        return all;
    }

    std::string summary(const Counts& counts) const {
        const std::size_t unusable = table_.count(kContentFailedValue) + table_.count(kInvalidRequestValue);
        std::string text = std::to_string(counts.there) + (counts.there == 1 ? " patch is" : " patches are") +
                           " in the buffer";
        if (counts.missing > unusable) text += ", " + std::to_string(counts.missing - unusable) + " skipped";
        if (unusable > 0) text += "; " + countText(unusable, "request") + " without usable content";
        const std::string down = outageText(outage());
        return text + ".\n" + (down.empty() ? "" : down + ".\n");
    }

    Outage outage() const {
        std::vector<std::string> ofRequests;
        std::vector<std::string> ofPatches;
        for (const Result& result : table_.results())
            ofRequests.push_back(record_.reason(result));
        for (const PatchOutcome& outcome : record_.outcomes())
            ofPatches.push_back(outcome.reason);
        return outageIn(ofRequests, ofPatches);
    }

    const BufferOptions& options_;
    std::string installPath_;
    BufferingSign sign_;
    int talkFd_;
    RequestMap usable_;
    ResultTable table_;
    BufferRecord record_;
    RemediationManager manager_;
    std::optional<std::chrono::steady_clock::time_point> waitsSince_;  ///< since when a run waits
    std::string inHand_;                                               ///< the patch then
};

}  // namespace

int bufferCommand(const BufferOptions& options) {
    const auto [requests, paths] = readInputs(options.paths, options.requests, {{"--json", options.json}});
    prepareDirectories(paths, false);
    const JobLock lock({std::chrono::seconds(options.waitSeconds), options.talk.quiet});
    if (options.talk.verbose) agent::logToStandardError("debug");
    return Job(options, requests, paths).execute();
}

}  // namespace zelor::controller

#include <unistd.h>

#include <atomic>
#include <boost/thread/thread.hpp>
#include <iostream>
#include <nlohmann/json.hpp>

#include "agent/ContentCacheControl.h"
#include "agent/LogControl.h"
#include "controller/Commands.h"
#include "controller/Text.h"
#include "controller/live/BufferProgress.h"
#include "controller/live/Watch.h"
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
        const bool cancelled = watch(signals);
        record_.end(cancelled ? "cancelled" : "the job ended before it");
        const Counts counts = count();
        std::string problem;
        if (!options_.json.empty()) {
            problem = writeOutput(options_.json, [&](std::ostream& out) {
                out << json(cancelled).dump(2, ' ', false, ordered_json::error_handler_t::replace) << '\n';
            });
        }
        if (!options_.talk.quiet) problem += writeTalk(talkFd_, summary(counts));
        if (!problem.empty()) std::cerr << "zelor-remediate: " << problem << '\n';
        if (cancelled) return exitStatus::kCancelled;
        if (!problem.empty()) return exitStatus::kOutputFailed;
        if (counts.missing == 0) return exitStatus::kAllSucceeded;
        return counts.there > 0 ? exitStatus::kSomeSucceeded : exitStatus::kNoneSucceeded;
    }

  private:
    struct Counts {
        std::size_t there = 0;    ///< patches in the buffer
        std::size_t missing = 0;  ///< patches that are not, and requests whose patches are not known
    };

    bool watch(Signals& signals) {
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
                // The way in which a cancel reaches a download in hand.
            }
            done = true;
        });
        const auto cancel = [&] {
            manager_.setCancelAllRem(true);
            thread.interrupt();
        };
        bool cancelled = false;
        try {
            cancelled = watchRun({[this] { return manager_.getRemediationProgressMap(); },
                                  [&] { return done.load(); }, cancel},
                                 table_, signals, listeners);
        } catch (...) {
            cancel();
            thread.join();
            throw;
        }
        thread.join();
        return cancelled;
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

    ordered_json json(bool cancelled) const {
        ordered_json all = {{"buffered", ordered_json::array()},
                            {"alreadyBuffered", ordered_json::array()},
                            {"skipped", ordered_json::array()},
                            {"unusable", ordered_json::array()},
                            {"cancelled", cancelled}};
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
        return all;
    }

    std::string summary(const Counts& counts) const {
        const std::size_t unusable = table_.count(kContentFailedValue) + table_.count(kInvalidRequestValue);
        std::string text = std::to_string(counts.there) + (counts.there == 1 ? " patch is" : " patches are") +
                           " in the buffer";
        if (counts.missing > unusable) text += ", " + std::to_string(counts.missing - unusable) + " skipped";
        if (unusable > 0) text += "; " + countText(unusable, "request") + " without usable content";
        return text + ".\n";
    }

    const BufferOptions& options_;
    int talkFd_;
    RequestMap usable_;
    ResultTable table_;
    BufferRecord record_;
    RemediationManager manager_;
};

}  // namespace

int bufferCommand(const BufferOptions& options) {
    requireSystem(options.paths, true);
    const Requests requests = loadRequests(options.requests);
    checkOutputs({{"--json", options.json}}, options.requests);
    const Paths paths = resolvePaths(options.paths);
    requireUsableSettings(paths);
    prepareDirectories(paths, false);
    const JobLock lock(paths, {std::chrono::seconds(options.waitSeconds), options.talk.quiet});
    if (options.talk.verbose) agent::logToStandardError("debug");
    return Job(options, requests, paths).execute();
}

}  // namespace zelor::controller

#include <unistd.h>

#include <array>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>

#include "agent/ContentCacheControl.h"
#include "agent/LogControl.h"
#include "controller/Commands.h"
#include "controller/InputError.h"
#include "controller/live/EventLines.h"
#include "controller/live/LiveProgress.h"
#include "controller/live/PlainLines.h"
#include "controller/live/Watch.h"
#include "controller/report/ReportJson.h"
#include "controller/report/ReportPage.h"
#include "controller/report/RunTimeline.h"
#include "controller/run/OutputFile.h"
#include "controller/run/RunLog.h"
#include "remediation/RemediationManager.h"

namespace zelor::controller {

namespace {

constexpr std::size_t columnsInReport = 1000;

void checkOutputs(const RunOptions& options) {
    if ((options.json == "-") + (options.events == "-") + (options.report == "-") > 1) {
        throw InputError(
            "--json -, --events - and --report - cannot share standard output; give all but one of them a "
            "file");
    }
    checkOutput(options.json, "--json");
    checkOutput(options.events, "--events");
    checkOutput(options.report, "--report");
}

std::string hostName() {
    std::array<char, 256> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0) return "this machine";
    return name.data();
}

bool keepsStandardOutput(const RunOptions& options) {
    return options.json == "-" || options.events == "-" || options.report == "-";
}

void complain(const std::string& problem) {
    if (!problem.empty()) std::cerr << "zelor-remediate: " << problem << '\n';
}

/// One run from its inputs to its results.
class Run {
  public:
    Run(const RunOptions& options, RequestMap requests, const Place& place)
        : options_(options),
          place_(place),
          talkFd_(keepsStandardOutput(options) ? STDERR_FILENO : STDOUT_FILENO),
          table_(std::move(requests)),
          tap_([this](bool error, const std::string& line) { log_.take(error, line); }),
          manager_(place.installPath) {
        if (!options.events.empty()) {
            eventOutput_ = std::make_unique<LineOutput>(options.events, "--events");
            addListener(std::make_unique<EventLines>(*eventOutput_));
        }
    }

    int execute() {
        Signals signals;
        addProgress();
        agent::startNewRun();
        manager_.setovalIdMap(table_.requests());
        manager_.setContentDownloadDir(place_.contentDir);
        manager_.setFirstRemediationAfterScan(options_.afterScan);
        std::vector<RunListener*> listeners;
        for (const auto& listener : listeners_)
            listeners.push_back(listener.get());
        if (!options_.report.empty()) listeners.push_back(&timeline_);
        started_ = std::chrono::system_clock::now();
        const auto start = std::chrono::steady_clock::now();
        manager_.remediate(true);
        const WatchedRun watched{[this] { return manager_.getRemediationProgressMap(); },
                                 [this] { return manager_.getRemDone(); },
                                 [this] { manager_.setCancelAllRem(true); }};
        cancelled_ = watch(watched, signals, listeners);
        listeners_.clear();
        finish(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        return runExitStatus(table_.results().size(), table_.count(successValue), cancelled_);
    }

  private:
    void addListener(std::unique_ptr<RunListener> listener) { listeners_.push_back(std::move(listener)); }

    void addProgress() {
        if (options_.talk.quiet) return;
        const ReasonOf reasonOf = [this](const Result& result) { return reason(result); };
        if (isLiveTerminal(talkFd_) && !options_.talk.verbose) {
            addListener(std::make_unique<LiveProgress>(talkFd_, table_.results().size(), reasonOf));
        } else {
            addListener(std::make_unique<PlainLines>(talkFd_, reasonOf));
        }
    }

    /// The manager must outlive its run, whatever happens to the watcher.
    bool watch(const WatchedRun& watched, Signals& signals, const std::vector<RunListener*>& listeners) {
        try {
            return watchRun(watched, table_, signals, listeners);
        } catch (const std::exception& e) {
            std::cerr << "zelor-remediate: the run is cancelled, it cannot be watched: " << e.what() << '\n';
        }
        try {
            watched.cancel();
            return watchRun(watched, table_, signals, {});
        } catch (const std::exception&) {
            while (!watched.done())
                signals.wait(std::chrono::milliseconds(50));
            return true;
        }
    }

    std::string reason(const Result& result, std::size_t columns = 160) const {
        if (result.value == successValue || result.value == abortedValue) return "";
        return shortReason(log_.notes(*result.key, *result.identifier), columns);
    }

    void finish(double seconds) {
        const RunFlags flags{manager_.getRebootNeeded(), manager_.getScanNeeded(),
                             manager_.getAllRemFailed()};
        if (!options_.json.empty()) {
            complain(
                writeOutput(options_.json, [&](std::ostream& out) { writeResultJson(out, table_, flags); }));
        }
        if (!options_.report.empty()) complain(writeReport(flags, seconds));
        if (eventOutput_) complain(eventOutput_->problem());
        if (!options_.talk.quiet) {
            base::writeAll(talkFd_,
                           runSummary(table_, flags.rebootNeeded, place_.settings->get("Log.File"), seconds));
        }
    }

    /// What was applied stands, whatever becomes of the report.
    std::string writeReport(const RunFlags& flags, double seconds) const {
        try {
            return makeReport(flags, seconds);
        } catch (const std::exception& e) {
            return "no report is written to " + options_.report + ": " + e.what();
        }
    }

    std::string makeReport(const RunFlags& flags, double seconds) const {
        RunReport report{
            table_,     timeline_.spans(table_.results().size()), flags, cancelled_, started_, seconds,
            hostName(), place_.settings->get("Log.File"),         {},    {}};
        report.reasonOf = [this](const Result& result) { return reason(result, columnsInReport); };
        report.outputOf = [this](const Result& result) {
            if (result.value == successValue) return std::string();
            return outputTail(log_.notes(*result.key, *result.identifier));
        };
        return writeOutput(options_.report, [&](std::ostream& out) { writeReportPage(out, report); });
    }

    const RunOptions& options_;
    const Place& place_;
    int talkFd_;
    ResultTable table_;
    RunLog log_;
    LogTap tap_;
    RemediationManager manager_;
    std::unique_ptr<LineOutput> eventOutput_;
    RunTimeline timeline_;
    std::chrono::system_clock::time_point started_;
    bool cancelled_ = false;
    std::vector<std::unique_ptr<RunListener>> listeners_;
};

}  // namespace

int runCommand(const RunOptions& options) {
    RequestMap requests = loadRequests(options.requests);
    checkOutputs(options);
    const Place place = enterPlace(options.place);
    requireUsableSettings(place);
    checkContentDir(place);
    prepareFolders(place, true);
    const JobLock lock(place);
    if (options.talk.verbose) agent::logToStandardError("debug");
    return Run(options, std::move(requests), place).execute();
}

}  // namespace zelor::controller

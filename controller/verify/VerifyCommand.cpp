#include <unistd.h>

#include <iostream>

#include "agent/ContentCacheControl.h"
#include "agent/LogControl.h"
#include "agent/http/Deadline.h"
#include "controller/Commands.h"
#include "controller/InputError.h"
#include "controller/JobLock.h"
#include "controller/Text.h"
#include "controller/live/LiveTerminal.h"
#include "controller/run/Inputs.h"
#include "controller/run/OutputFile.h"
#include "controller/run/Requests.h"
#include "controller/run/Signals.h"
#include "controller/status/Status.h"
#include "controller/verify/VerifyReport.h"

namespace zelor::controller {

namespace {

enum class VerifyEnd { complete, signal, timeLimit };

/// At the time limit, what is left is unknown.
VerifyEnd verifyAll(const Requests& requests, const Paths& paths, const agent::Deadline& limit,
                    VerifyReport& report) {
    const Signals signals;
    const auto start = std::chrono::steady_clock::now();
    report.system = systemIdentity();
    report.host = hostName();
    report.started = utcText(std::chrono::system_clock::now());
    Verifier verifier(paths, report.system, [&] { return signals.endAsked() || limit.passed(); });
    for (const auto& [key, identifier] : requests.all) {
        report.requests.push_back(verifier.verify(key, identifier, requests.problemOf(key)));
        if (signals.endAsked()) return VerifyEnd::signal;
    }
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return limit.passed() ? VerifyEnd::timeLimit : VerifyEnd::complete;
}

void forget(VerifyReport& report) {
    const std::set<std::string> ids = driftedIds(report.requests);
    if (ids.empty()) return;
    try {
        dropFromRecord(installedRecordFile(), ids);
    } catch (const std::exception& e) {
        throw InputError(std::string(e.what()) + "; nothing was dropped from it");
    }
    report.forgotten = ids;
}

}  // namespace

int verifyCommand(const VerifyOptions& options) {
    const auto [requests, paths] = readInputs(options.paths, options.requests, {{"--json", options.json}});
    prepareDirectories(paths, false);
    const JobLock lock({std::chrono::seconds(options.waitSeconds), false, std::chrono::seconds(0)});
    if (options.verbose) agent::logToStandardError("debug");
    agent::startNewRun();
    VerifyReport report;
    const agent::Deadline limit(runTimeLimit(options.timeLimit, paths));
    const VerifyEnd end = verifyAll(requests, paths, limit, report);
    if (end == VerifyEnd::signal) return exitStatus::kCancelled;
    if (options.forget) forget(report);
    const bool text = options.json.empty();
    const std::string problem = writeOutput(text ? "-" : options.json, [&](std::ostream& out) {
        text ? writeVerifyText(out, report, terminalColumns(STDOUT_FILENO)) : writeVerifyJson(out, report);
    });
    if (!problem.empty()) throw CommandError(exitStatus::kOutputFailed, problem);
    if (end == VerifyEnd::timeLimit)
        throw CommandError(exitStatus::kCancelled, std::string("verify ") + kReachedTimeLimit);
    return verifyExitStatus(report);
}

}  // namespace zelor::controller

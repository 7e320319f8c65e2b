#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "controller/Setup.h"

/// The commands of zelor-remediate. Each returns the exit status and throws CommandError.
namespace zelor::controller {

/// What a command shows people: progress and a summary unless `quiet`; with `verbose`, also log lines on
/// standard error.
struct TalkOptions {
    bool quiet = false;
    bool verbose = false;
};

/// Runs the requests of the file `requests` ("-": standard input). `waitSeconds`: how long to wait for
/// another job to end. `json`, `events` and `report` are files for results, events and an HTML report: "-"
/// for standard output, "" for none. Cancelled by a signal. The status is that of `runExitStatus`, or
/// `kOutputFailed`.
struct RunOptions {
    std::string requests;
    PathOptions paths;
    TalkOptions talk;
    bool afterScan = false;
    int waitSeconds = 0;
    std::string json;
    std::string events;
    std::string report;
    std::vector<std::string> exports;  ///< "FORMAT=FILE" each, see `requestedExport`
    /// How long the run may take, zero for any time; none: as the agent's settings say.
    std::optional<std::chrono::milliseconds> timeLimit;
};
int runCommand(const RunOptions& options);

/// How long a buffering job continues with the current patch when a run waits.
inline constexpr std::chrono::seconds kGiveWayTime{60};

/// What `buffer` was asked for.
struct BufferOptions {
    std::string requests;
    PathOptions paths;
    TalkOptions talk;
    int waitSeconds = 0;
    std::string json;
    std::chrono::milliseconds giveWayTime = kGiveWayTime;
};
/// Buffers patches ahead of a run; returns the exit status.
int bufferCommand(const BufferOptions& options);

/// Shows settings, installed patches and the buffer.
struct StatusOptions {
    PathOptions paths;
    std::string json;  ///< "": text on standard output; else the file for JSON, "-" for standard output
};
int statusCommand(const StatusOptions& options);

/// Writes the results in the file `results` ("-": standard input) in another format, one of
/// `exportFormatNames`.
struct ExportOptions {
    std::string results;
    std::string format;
    std::string out = "-";  ///< "-": standard output
};
int exportCommand(const ExportOptions& options);

/// Writes the requests for what scans found: `files` are XCCDF or ARF results, audits of the macOS Security
/// Compliance Project and lists of identifiers, "-" for standard input. What is left out is explained on
/// standard error.
struct RequestsOptions {
    std::vector<std::string> files;
    std::vector<std::string> rules;  ///< reports of `zelor-content import`
    std::string platform;            ///< CPE names in place of those of the files, "" for theirs
    std::string product;
    std::string out = "-";  ///< "-": standard output
};
int requestsCommand(const RequestsOptions& options);
/// Proves by the checks of content whether what the requests ask for has taken effect, and changes nothing;
/// with `forget`, drops from the installed-patches record what is proven to have no effect any more. The
/// status is that of `verifyExitStatus`.
struct VerifyOptions {
    std::string requests = "-";
    PathOptions paths;
    std::string json;  ///< as for `status`
    bool forget = false;
    int waitSeconds = 0;
    bool verbose = false;
    std::optional<std::chrono::milliseconds> timeLimit;  ///< as for `run`
};
int verifyCommand(const VerifyOptions& options);

/// Shows what a run of the requests would do, and changes nothing. The status is that of `planExitStatus`.
struct PlanOptions {
    std::string requests;
    PathOptions paths;
    std::string json;  ///< as for `status`
    bool afterScan = false;
    bool check = false;  ///< also prove what holds now, as `verify` does
    bool verbose = false;
    std::optional<std::chrono::milliseconds> timeLimit;  ///< with `check`, as for `run`
};
int planCommand(const PlanOptions& options);

}  // namespace zelor::controller

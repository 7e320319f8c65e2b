#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The commands of zelor-content. Each returns the exit status and throws UsageError, or std::runtime_error
/// when something fails on the way.
namespace zelor::authoring {

namespace exitStatus {
constexpr int kGood = 0;
constexpr int kFailed = 1;  ///< or check found errors, or import no rule to import
constexpr int kUnusable = 2;
constexpr int kInterrupted = 130;  ///< rehearse, by a signal
}  // namespace exitStatus

struct KeygenOptions {
    std::string out;
    std::string type = "ec";
};
int runKeygen(const KeygenOptions& options);

struct PublishOptions {
    std::string manifest;
    std::string key;
    std::string out;
    bool only = false;
    bool prune = false;
    bool strict = false;
};
int runPublish(const PublishOptions& options);

struct ServeOptions {
    std::string directory;
    std::string address = "127.0.0.1";
    std::uint16_t port = 8000;
    bool verbose = false;
};
/// Serves until SIGINT or SIGTERM, which must not be handled elsewhere in the process.
int runServe(const ServeOptions& options);

struct CheckOptions {
    std::string directory;
    std::string key;
    std::vector<std::string> manifests;
    bool json = false;
    bool warningsAsErrors = false;
};
int runCheck(const CheckOptions& options);

struct ImportMscpOptions {
    std::string directory;
    std::string os;
    std::string benchmark;  ///< "" for all rules, with the recommended values
    std::string out;
};
/// Imports rules of the macOS Security Compliance Project.
int runImportMscp(const ImportMscpOptions& options);

struct ImportXccdfOptions {
    std::string dataStream;
    std::string profile;  ///< "" for all rules, with the default values
    std::string out;
};
/// Imports the bash fixes of an XCCDF benchmark.
int runImportXccdf(const ImportXccdfOptions& options);

struct RehearseOptions {
    std::string manifest;
    std::string identifier;             ///< "" takes the manifest's only one
    std::vector<std::string> requests;  ///< keys; none: one for each CRE
    std::string os = "10.10.5";
    std::vector<std::string> updates;
    std::string root;
    std::string tools;
    std::string report;
    bool afterScan = false;
    bool noSandbox = false;
    bool keep = false;
    bool verbose = false;
};
/// SIGINT, SIGTERM and SIGHUP must not be handled elsewhere in the process.
int runRehearse(const RehearseOptions& options);

/// Runs the author's tool with the arguments after its name; messages go to standard error. Returns the exit
/// status.
int runContentTool(const std::vector<std::string>& arguments);

}  // namespace zelor::authoring

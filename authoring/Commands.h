#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The commands of zelor-content. Each returns the exit status and throws UsageError, or std::runtime_error
/// when something fails on the way.
namespace zelor::authoring {

/// The exit statuses of zelor-content.
namespace exitStatus {
/// The command succeeded; failed on the way; cannot use its arguments, manifest, key or directory, and has
/// changed nothing; was interrupted.
constexpr int kGood = 0;
constexpr int kFailed = 1;  ///< also: check found errors, status a role to sign, import no rule to import,
                            ///< fleet files that cannot be read
constexpr int kUnusable = 2;
constexpr int kInterrupted = 130;  ///< rehearse, by a signal
}  // namespace exitStatus

/// Makes a key pair of `type`, "ec" or "rsa", in the directory `out`; never overwrites one. With `roles` it
/// makes a key for each of these roles of metadata instead, named for `holder` unless that is ""; "ed25519"
/// is a type too then.
struct KeygenOptions {
    std::string out;
    std::string type = "ec";
    std::vector<std::string> roles;
    std::string holder;
};
int runKeygen(const KeygenOptions& options);

/// Publishes the manifest file to the repository directory `out`, signed with the private key file `key`.
/// `only` withdraws all content that the manifest does not name, `prune` removes unnamed archives at once,
/// and `strict` treats warnings as errors. `metadataKeys`: the directory of the keys that sign metadata, ""
/// for none; `expires`: "ROLE=DAYS" where a role's files are good for other than the default time.
struct PublishOptions {
    std::string manifest;
    std::string key;
    std::string out;
    std::string metadataKeys;
    std::vector<std::string> expires;
    bool only = false;
    bool prune = false;
    bool strict = false;
};
int runPublish(const PublishOptions& options);

/// Signs the timestamp of a repository anew, and the snapshot when it is due.
struct RefreshOptions {
    std::string repository;
    std::string metadataKeys;
    std::vector<std::string> expires;
};
int runRefresh(const RefreshOptions& options);

/// Changes who signs for `role` ("": nothing, the root is renewed): `add` are key files, `remove` key files
/// or the first digits of key ids, `threshold` how many must sign, 0 for as many as now. `sign` adds
/// signatures to a change that waits for them.
struct RotateOptions {
    std::string repository;
    std::string metadataKeys;
    std::string role;
    std::vector<std::string> add;
    std::vector<std::string> remove;
    std::int64_t threshold = 0;
    bool sign = false;
    std::vector<std::string> expires;
};
int runRotate(const RotateOptions& options);

/// Shows which metadata expires when, and who can sign it again. `metadataKeys`: keys to look for, or "".
/// `within`: days before its expiry from which a role needs attention; negative: a number for each role.
struct StatusOptions {
    std::string repository;
    std::string metadataKeys;
    int within = -1;
};
int runStatus(const StatusOptions& options);

/// Serves a repository directory over HTTP. `address`: numeric IPv4; `port` 0: any free one; `verbose`: a
/// line on standard error for each request.
struct ServeOptions {
    std::string directory;
    std::string address = "127.0.0.1";
    std::uint16_t port = 8000;
    bool verbose = false;
};
/// Blocks until SIGINT or SIGTERM, which must not be handled elsewhere in the process.
int runServe(const ServeOptions& options);

/// Checks a repository directory as agents that trust the public key file `key` would see it. `manifests`:
/// the files that name all that should be published; none: those that published it.
struct CheckOptions {
    std::string directory;
    std::string key;
    std::vector<std::string> manifests;
    bool json = false;
    std::string
        sarif;  ///< file for the findings as SARIF, "-": standard output in place of the text, "": none
    bool warningsAsErrors = false;
};
int runCheck(const CheckOptions& options);

/// What `import mscp` was asked for.
struct ImportMscpOptions {
    std::string directory;
    std::string os;
    std::string benchmark;  ///< "" for all rules, with the recommended values
    std::string out;
};
/// Imports rules of the macOS Security Compliance Project.
int runImportMscp(const ImportMscpOptions& options);

/// What `import xccdf` was asked for.
struct ImportXccdfOptions {
    std::string dataStream;
    std::string profile;  ///< "" for all rules, with the default values
    std::string out;
};
/// Imports the bash fixes of an XCCDF benchmark.
int runImportXccdf(const ImportXccdfOptions& options);

/// Runs one entry of a manifest on a rehearsal Mac: the one of the directory `tools` or, when that is "", a
/// new one with system version `os` and the labels in `updates`, whose disk is the directory `root` ("": a
/// temporary one). `report`: file for the run's report, "" for none.
struct RehearseOptions {
    std::string manifest;
    std::string identifier;             ///< "": the manifest's only one
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

/// Shows the results of many machines on one page: `results` are files and directories, `out` is the file of
/// the page, "-": standard output.
struct FleetOptions {
    std::vector<std::string> results;
    std::string out = "-";
};
int runFleet(const FleetOptions& options);

/// Runs the author's tool with the arguments after its name; messages go to standard error. Returns the exit
/// status.
int runContentTool(const std::vector<std::string>& arguments);

}  // namespace zelor::authoring

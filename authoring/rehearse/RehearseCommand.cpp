#include <boost/filesystem.hpp>
#include <iostream>
#include <nlohmann/json.hpp>

#include "authoring/Commands.h"
#include "authoring/UsageError.h"
#include "authoring/checks/RepositoryCheck.h"
#include "authoring/manifest/ManifestFile.h"
#include "authoring/metadata/MetadataDirectory.h"
#include "authoring/metadata/MetadataKeys.h"
#include "authoring/publish/Publisher.h"
#include "authoring/rehearse/RehearsalMac.h"
#include "authoring/rehearse/RehearsalReport.h"
#include "authoring/rehearse/Sandbox.h"
#include "authoring/rehearse/SignalRelay.h"
#include "authoring/serve/StaticServer.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/StagedFile.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kShownChanges = 40;
constexpr std::size_t kShownLogLines = 12;
constexpr const char* kMetadataScheme = "ecdsa-sha2-nistp256";
constexpr trust::Time kMetadataLifetime = 365 * trust::kDay;  ///< for a rehearsal that is kept
constexpr std::size_t kReportBytesLimit = 256U << 20U;

/// The identifier asked for, or the manifest's only one.
std::string chosenIdentifier(const RehearseOptions& options) {
    if (!options.identifier.empty()) return options.identifier;
    const auto identifiers = manifestIdentifiers(options.manifest);
    if (!identifiers) {
        readManifest(options.manifest);  // throws what is wrong with it
    } else if (identifiers->size() == 1) {
        return *identifiers->begin();
    }
    std::string known;
    for (const std::string& identifier : identifiers.value_or(std::set<std::string>{}))
        known += ' ' + identifier;
    throw UsageError("name one of the manifest's entries with --identifier:" + known);
}

/// Throws UsageError when a sandbox is wanted and cannot be made.
void requireSandbox(const RehearseOptions& options) {
    if (options.noSandbox) {
        std::cout << "No sandbox: a script that uses absolute paths changes this machine\n";
        return;
    }
    const std::string why = whyNoSandbox();
    if (why.empty()) return;
    throw UsageError(
        "no sandbox can be made here, so nothing was run: " + why +
        "; on Linux install bubblewrap and allow user namespaces, or read what the entry runs and "
        "use --no-sandbox");
}

/// One rehearsal, from the manifest to the report on the Mac. The destructor removes everything temporary.
class Rehearsal {
  public:
    explicit Rehearsal(const RehearseOptions& options)
        : options_(options),
          identifier_(chosenIdentifier(options)),
          repository_(scratch_.path() + "/repository"),
          requests_(scratch_.path() + "/requests.json") {}

    int run() {
        requireSandbox(options_);
        Manifest manifest = readManifest(options_.manifest, {identifier_, {}, false});
        const bool hasFiles = !manifest.patches.empty();
        writeRequests(manifest);
        relay_.requireNone();
        RehearsalMac mac(scratch_.path(), {options_.tools, options_.root, options_.os, options_.updates});
        publishAll(std::move(manifest));
        const StaticServer server({repository_, "127.0.0.1", 0, {}, {}});
        mac.configure(server.url(), key_.publicPem(), MetadataDirectory(repository_).root(1));
        std::cout << "Rehearsal Mac: " << mac.system() << ", its disk is " << mac.root() << std::endl;
        const DiskState before = diskState(mac.root());
        const int status = runController(mac);
        if (status != exitStatus::kUnusable) {
            tellChanges(diskChanges(before, diskState(mac.root()), kShownChanges), status == 0 && hasFiles);
            if (status != 0) tellLogs(mac);
        }
        if (options_.keep) {
            keep(mac, server.port());
        } else {
            std::cout << scratch_.path() << " is removed now; --keep keeps it.\n";
        }
        const bool reported =
            status == 0 || status == exitStatus::kInterrupted || status == exitStatus::kUnusable;
        return reported ? status : exitStatus::kFailed;
    }

  private:
    void writeRequests(const Manifest& manifest) const {
        nlohmann::ordered_json json = nlohmann::ordered_json::object();
        for (const std::string& key : options_.requests)
            json[key] = identifier_;
        if (options_.requests.empty()) json = requestsFor(manifest.entries.front());
        base::replaceFile(requests_, json.dump(2) + '\n');
        for (const auto& [key, identifier] : json.items())
            std::cout << "Request: " << key << '\n';
    }

    void publishAll(Manifest manifest) {
        MetadataOptions metadata{scratch_.path() + "/metadata-keys"};
        writeMetadataKeys(metadata.keys, roleNames(), "", kMetadataScheme);
        for (const std::string& role : roleNames())
            metadata.lifetimes[role] = kMetadataLifetime;
        const PublishSummary summary =
            publish(std::move(manifest), key_, {repository_, options_.manifest, false, false, metadata},
                    [this](const std::string&) { relay_.requireNone(); });
        const std::string publicKey = scratch_.path() + "/repository.pem";
        base::replaceFile(publicKey, key_.publicPem());
        std::cout << "Published " << identifier_ << " with " << amount(summary.patches, "patch", "patches")
                  << ", signed only for this rehearsal\n"
                  << findingsText(checkRepository(repository_, publicKey).findings);
    }

    std::vector<std::string> controllerCommand(const RehearsalMac& mac) const {
        std::vector<std::string> words = {siblingProgram("zelor-remediate"),
                                          "run",
                                          requests_,
                                          "--root",
                                          mac.root(),
                                          "--tools",
                                          mac.tools()};
        if (options_.afterScan) words.emplace_back("--after-scan");
        if (options_.verbose) words.emplace_back("--verbose");
        if (!options_.report.empty()) words.insert(words.end(), {"--report", report()});
        return words;
    }

    /// The sandbox cannot write to the report's final path.
    std::string report() const {
        return options_.noSandbox ? options_.report : scratch_.path() + "/out/report";
    }

    int runController(const RehearsalMac& mac) {
        const std::vector<std::string> command = controllerCommand(mac);
        if (options_.noSandbox) return relay_.run(command);
        fs::create_directory(scratch_.path() + "/out");
        const std::string programs = fs::path(command.front()).parent_path().parent_path().string();
        const Sandbox sandbox(
            {mac.root(), {mac.tools(), scratch_.path() + "/out"}, {programs, scratch_.path()}});
        const int status = relay_.run(sandbox.words(command));
        if (fs::exists(report()))
            base::replaceFile(options_.report,
                              base::readBounded(report(), kReportBytesLimit, base::Links::refuse));
        return status;
    }

    static void tellChanges(const std::string& changes, bool expected) {
        if (changes.empty()) {
            std::cout << "Nothing changed on its disk.\n";
            if (!expected) return;
            std::cout << findingsText(
                {{Severity::warning, "the run", "success, nothing changed",
                  "check that the entry's file does what it should; --after-scan applies again what is "
                  "recorded as applied"}});
        } else {
            std::cout << "What changed on its disk:\n" << changes;
        }
    }

    static void tellLogs(const RehearsalMac& mac) {
        const std::string log = indentedTail(mac.root() + "/var/log/zelor/remediation.log", kShownLogLines);
        const std::string installer = indentedTail(mac.tools() + "/state/install.log", kShownLogLines);
        if (!log.empty()) std::cout << "The end of the log:\n" << log;
        if (!installer.empty()) std::cout << "The end of the installer's log:\n" << installer;
    }

    void keep(RehearsalMac& mac, std::uint16_t port) {
        scratch_.keep();
        if (options_.root.empty() && options_.tools.empty()) mac.keepSettings();
        std::cout << "Kept in " << scratch_.path() << ". To run it again:\n"
                  << "  zelor-content serve " << repository_ << " --port " << port << " &\n"
                  << "  zelor-remediate run " << requests_ << " --root " << mac.root() << " --tools "
                  << mac.tools() << " --after-scan\n"
                  << "That has no sandbox: absolute paths lead to this machine's own files.\n";
    }

    const RehearseOptions& options_;
    std::string identifier_;
    SignalRelay relay_;  // destroyed last, so that no signal prevents the removal of a directory
    base::TemporaryDirectory scratch_{"zelor-rehearse"};
    std::string repository_;
    std::string requests_;
    SigningKey key_ = SigningKey::generate(SigningKey::Type::ec);
};

}  // namespace

int runRehearse(const RehearseOptions& options) {
    try {
        return Rehearsal(options).run();
    } catch (const Interrupted&) {
        std::cerr << "zelor-content: interrupted before the run began\n";
        return exitStatus::kInterrupted;
    }
}

}  // namespace zelor::authoring

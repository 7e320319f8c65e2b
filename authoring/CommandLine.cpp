
#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <iostream>

#include "authoring/Commands.h"
#include "authoring/HelpTexts.h"
#include "authoring/UsageError.h"
#include "remediation/Version.h"

namespace zelor::authoring {

namespace {

using Action = std::function<int()>;

std::string whyNoVersion(const std::string& text) {
    const auto fits = [](char c) { return (c >= '0' && c <= '9') || c == '.'; };
    const bool version = !text.empty() && text.size() <= 16 && std::all_of(text.begin(), text.end(), fits);
    return version ? "" : "\"" + text + "\" is not a version; write it as 15 or 10.15";
}

void addKeygen(CLI::App& app, KeygenOptions& options, Action& action) {
    CLI::App* command =
        app.add_subcommand("keygen", "Make the key pair of a repository; never overwrites one");
    command->add_option("--out", options.out, "Directory for repository.key (mode 0600) and repository.pem")
        ->required()
        ->type_name("DIR");
    command->add_option("--type", options.type, "ec (P-256), rsa (3072 bits) or, with --role, ed25519")
        ->check(CLI::IsMember({"ec", "rsa", "ed25519"}))
        ->type_name("TYPE")
        ->capture_default_str();
    command
        ->add_option("--role", options.roles,
                     "Make ROLE.key and ROLE.pem for metadata instead: root, targets, snapshot, timestamp or "
                     "all; may be repeated")
        ->check(CLI::IsMember({"root", "targets", "snapshot", "timestamp", "all"}))
        ->type_name("ROLE")
        ->allow_extra_args(false);
    command->add_option("--holder", options.holder, "Who keeps them: the names become ROLE-NAME.key")
        ->type_name("NAME");
    command->callback([&] { action = [&] { return runKeygen(options); }; });
}

CLI::Option* addMetadataKeys(CLI::App& command, std::string& keys, std::vector<std::string>& expires) {
    CLI::Option* option = command
                              .add_option("--metadata-keys", keys,
                                          "Directory with the private keys that sign metadata (ROLE.key)")
                              ->type_name("DIR");
    command
        .add_option("--expires", expires,
                    "Days for which new files of a role are good, such as timestamp=7; may be repeated")
        ->type_name("ROLE=DAYS")
        ->allow_extra_args(false)
        ->needs(option);
    return option;
}

void addRefresh(CLI::App& app, RefreshOptions& options, Action& action) {
    CLI::App* command = app.add_subcommand("refresh", kRefreshHelp);
    command->add_option("DIR", options.repository, "The repository")->required()->type_name("");
    addMetadataKeys(*command, options.metadataKeys, options.expires)->required();
    command->callback([&] { action = [&] { return runRefresh(options); }; });
}

void addRotate(CLI::App& app, RotateOptions& options, Action& action) {
    CLI::App* command = app.add_subcommand("rotate", kRotateHelp);
    command->add_option("DIR", options.repository, "The repository")->required()->type_name("");
    addMetadataKeys(*command, options.metadataKeys, options.expires)->required();
    CLI::Option* sign =
        command->add_flag("--sign", options.sign, "Add signatures to a change that waits for them");
    command->add_option("--role", options.role, "The role whose keys change; without it the root is renewed")
        ->check(CLI::IsMember({"root", "targets", "snapshot", "timestamp"}))
        ->type_name("ROLE")
        ->excludes(sign);
    command->add_option("--add", options.add, "File with a public key to add; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false)
        ->excludes(sign);
    command
        ->add_option("--remove", options.remove,
                     "Key to remove: its file, or the first digits of its id; may be repeated")
        ->type_name("KEY")
        ->allow_extra_args(false)
        ->excludes(sign);
    command->add_option("--threshold", options.threshold, "How many keys of the role must sign")
        ->check(CLI::Range(1, 100))
        ->type_name("N")
        ->excludes(sign);
    command->callback([&] { action = [&] { return runRotate(options); }; });
}

void addStatus(CLI::App& app, StatusOptions& options, Action& action) {
    CLI::App* command = app.add_subcommand("status", kStatusHelp);
    command->add_option("DIR", options.repository, "The repository")->required()->type_name("");
    command
        ->add_option("--metadata-keys", options.metadataKeys,
                     "Directory with keys: those that are there are marked")
        ->type_name("DIR");
    command
        ->add_option(
            "--within", options.within,
            "Days before an expiry from which the status is 1; by default 30 (root), 14 (targets), 7 "
            "(snapshot), 2 (timestamp)")
        ->check(CLI::Range(0, 9999))
        ->type_name("DAYS");
    command->callback([&] { action = [&] { return runStatus(options); }; });
}

void addPublish(CLI::App& app, PublishOptions& options, Action& action) {
    CLI::App* command = app.add_subcommand("publish", kPublishHelp);
    command->add_option("MANIFEST.json", options.manifest, "What to publish")->required()->type_name("");
    command->add_option("--key", options.key, "The repository's private key")->required()->type_name("FILE");
    command->add_option("--out", options.out, "The repository; created when it is missing")
        ->required()
        ->type_name("DIR");
    addMetadataKeys(*command, options.metadataKeys, options.expires);
    command->add_flag("--only", options.only,
                      "Withdraw all content that the manifest does not name, also of other manifests");
    command->add_flag("--prune", options.prune, "Remove unused archives at once instead of a day later");
    command->add_flag("--strict", options.strict, "Publish nothing when there is a warning");
    command->callback([&] { action = [&] { return runPublish(options); }; });
}

void addServe(CLI::App& app, ServeOptions& options, Action& action) {
    CLI::App* command = app.add_subcommand(
        "serve", "Serve a repository over HTTP, for rehearsals; prints its URL when it is ready");
    command->add_option("DIR", options.directory, "The repository")->required()->type_name("");
    command->add_option("--port", options.port, "TCP port; 0 takes any free one")
        ->type_name("N")
        ->capture_default_str();
    command->add_option("--address", options.address, "IPv4 address to listen on")
        ->type_name("A")
        ->capture_default_str();
    command->add_flag("--verbose", options.verbose, "Log every request to standard error");
    command->callback([&] { action = [&] { return runServe(options); }; });
}

void addCheck(CLI::App& app, CheckOptions& options, Action& action) {
    CLI::App* command = app.add_subcommand("check", kCheckHelp);
    command->add_option("DIR", options.directory, "The repository")->required()->type_name("");
    command->add_option("--key", options.key, "The public key (or certificate) that agents trust")
        ->required()
        ->type_name("FILE");
    command
        ->add_option("--manifest", options.manifests,
                     "Content that is in none of these manifests is a finding; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    CLI::Option* json = command->add_flag("--json", options.json, "Print the findings as JSON");
    command
        ->add_option("--sarif", options.sarif,
                     "Write the findings as SARIF 2.1.0; - is standard output, in place of the text")
        ->type_name("FILE")
        ->excludes(json);
    command->add_flag("--warnings-as-errors", options.warningsAsErrors,
                      "Exit with status 1 for warnings too");
    command->callback([&] { action = [&] { return runCheck(options); }; });
}

void addRehearse(CLI::App& app, RehearseOptions& options, Action& action) {
    CLI::App* command = app.add_subcommand("rehearse", kRehearseHelp);
    command->add_option("MANIFEST.json", options.manifest, "What to rehearse")->required()->type_name("");
    command->add_option("--identifier", options.identifier, "The entry; optional when there is only one")
        ->type_name("ID");
    command
        ->add_option("--request", options.requests,
                     "Key of the request to make, such as \"cpe:/a:x:y||Name\", instead of one for each cre; "
                     "may be repeated")
        ->type_name("KEY")
        ->allow_extra_args(false);
    CLI::Option* tools =
        command->add_option("--tools", options.tools, "Use the Mac of this tools directory as it is")
            ->type_name("DIR");
    command->add_option("--os", options.os, "System version of the new Mac")
        ->type_name("VERSION")
        ->capture_default_str()
        ->excludes(tools);
    command->add_option("--update", options.updates, "Label of an update to offer; may be repeated")
        ->type_name("LABEL")
        ->allow_extra_args(false)
        ->excludes(tools);
    command->add_option("--root", options.root, "Directory for its disk, which is kept")
        ->type_name("DIR")
        ->excludes(tools);
    command->add_flag("--after-scan", options.afterScan, "Apply again what is recorded as applied");
    command->add_flag("--no-sandbox", options.noSandbox,
                      "Run without a sandbox: the entry can change this machine");
    command->add_option("--report", options.report, "Write the run's HTML report")->type_name("FILE");
    command->add_flag("--keep", options.keep,
                      "Keep the repository, the Mac and the requests, and print where they are");
    command->add_flag("--verbose", options.verbose, "Also log to standard error");
    command->callback([&] { action = [&] { return runRehearse(options); }; });
}

void addImport(CLI::App& app, ImportMscpOptions& mscp, ImportXccdfOptions& xccdf, Action& action) {
    CLI::App* command = app.add_subcommand("import", kImportHelp);
    command->require_subcommand(1);
    const auto addOut = [](CLI::App* source, std::string& out) {
        source->add_option("--out", out, "Directory for manifest.json, scripts and import.json")
            ->required()
            ->type_name("DIR");
    };
    CLI::App* rules = command->add_subcommand("mscp", "Rules of the macOS Security Compliance Project");
    rules->add_option("DIRECTORY", mscp.directory, "The project's files, or their directory of rules")
        ->required()
        ->type_name("");
    rules->add_option("--os", mscp.os, "Version of macOS, such as 15")
        ->required()
        ->check(CLI::Validator(whyNoVersion, ""))
        ->type_name("VERSION");
    rules->add_option("--benchmark", mscp.benchmark, "Only its rules, with its values, such as cis_lvl1")
        ->type_name("NAME");
    addOut(rules, mscp.out);
    rules->callback([&] { action = [&] { return runImportMscp(mscp); }; });
    CLI::App* stream = command->add_subcommand("xccdf", "Bash fixes of an XCCDF 1.2 benchmark");
    stream->add_option("DATASTREAM.xml", xccdf.dataStream, "A SCAP data stream, or a single benchmark")
        ->required()
        ->type_name("");
    stream->add_option("--profile", xccdf.profile, "Only its rules, with its values; the id or its end")
        ->type_name("ID");
    addOut(stream, xccdf.out);
    stream->callback([&] { action = [&] { return runImportXccdf(xccdf); }; });
}

void addFleet(CLI::App& app, FleetOptions& options, Action& action) {
    CLI::App* command = app.add_subcommand("fleet", kFleetHelp);
    command->add_option("RESULTS", options.results, "Files with results, and directories of them")
        ->required()
        ->type_name("");
    command->add_option("--out", options.out, "File for the page; - is standard output")
        ->type_name("FILE.html")
        ->capture_default_str();
    command->callback([&] { action = [&] { return runFleet(options); }; });
}

/// The list of commands shows the first sentence of each help.
std::string shortened(const CLI::App* command) {
    const std::string text = command->get_description();
    const auto begin = text.find("\n\n");
    const std::string body = begin == std::string::npos ? text : text.substr(begin + 2);
    const auto end = body.find(". ");
    return body.substr(0, end);
}

class HelpFormat : public CLI::Formatter {
  public:
    std::string make_footer(const CLI::App* app) const override {
        return CLI::Formatter::make_footer(app) + '\n';
    }
    std::string make_subcommand(const CLI::App* command) const override {
        return "  " + command->get_name() + std::string(10 - command->get_name().size(), ' ') +
               shortened(command) + '\n';
    }
};

/// CLI11 would only report that a command is missing.
void refuseUnknownCommand(const CLI::App& app, const std::vector<std::string>& arguments) {
    if (arguments.empty() || arguments[0].rfind('-', 0) == 0) return;
    const auto named = [&](const CLI::App* command) { return command->get_name() == arguments[0]; };
    if (!app.get_subcommands(named).empty()) return;
    throw UsageError(
        "there is no command \"" + arguments[0] +
        "\"; use keygen, import, publish, refresh, rotate, status, serve, check, rehearse or fleet");
}

}  // namespace

int runContentTool(const std::vector<std::string>& arguments) {
    CLI::App app(kExamples, "zelor-content");
    app.formatter(std::make_shared<HelpFormat>());
    app.set_version_flag("--version", "zelor-content " ZELOR_VERSION_STRING);
    app.require_subcommand(1);
    app.footer(kExitStatuses);
    KeygenOptions keygenOptions;
    PublishOptions publishOptions;
    RefreshOptions refreshOptions;
    RotateOptions rotateOptions;
    StatusOptions statusOptions;
    ServeOptions serveOptions;
    CheckOptions checkOptions;
    RehearseOptions rehearseOptions;
    FleetOptions fleetOptions;
    ImportMscpOptions mscpOptions;
    ImportXccdfOptions xccdfOptions;
    Action action;
    addKeygen(app, keygenOptions, action);
    addImport(app, mscpOptions, xccdfOptions, action);
    addPublish(app, publishOptions, action);
    addRefresh(app, refreshOptions, action);
    addRotate(app, rotateOptions, action);
    addStatus(app, statusOptions, action);
    addServe(app, serveOptions, action);
    addCheck(app, checkOptions, action);
    addRehearse(app, rehearseOptions, action);
    addFleet(app, fleetOptions, action);
    try {
        refuseUnknownCommand(app, arguments);
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        return action();
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? exitStatus::kGood : exitStatus::kUnusable;
    } catch (const UsageError& e) {
        std::cerr << "zelor-content: " << e.what() << '\n';
        return exitStatus::kUnusable;
    } catch (const std::exception& e) {
        std::cerr << "zelor-content: " << e.what() << '\n';
        return exitStatus::kFailed;
    }
}

}  // namespace zelor::authoring

#include "controller/CommandLine.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>

#include "controller/Commands.h"
#include "controller/InputError.h"
#include "controller/States.h"
#include "controller/Text.h"
#include "remediation/Version.h"

namespace zelor::controller {

namespace {

constexpr const char* examples = R"(Examples:
  zelor-remediate plan requests.json                       what a run would do, and why
  zelor-remediate run requests.json                        apply what the requests ask for
  zelor-remediate run requests.json --report report.html   and keep a page on how it went
  zelor-remediate buffer requests.json                     fetch the patches ahead of time
  zelor-remediate status                                   settings, installed patches, buffer
  zelor-remediate run requests.json --root /tmp/mac --tools mac    on a rehearsal Mac

requests.json is an object from request key to CVE or CCE identifier:
  {"cpe:/o:apple:mac_os_x,cpe:/a:example:editor||Example Editor": "CVE-2014-4459",
   "cpe:/o:apple:mac_os_x||": "CCE-26932-4"}

Remediates vulnerabilities and misconfigurations with signed content from the agent's repository.)";

constexpr const char* exitStatuses = R"(Exit status:
    0  every request succeeded (buffer: every patch is buffered; plan: nothing stands in the way)
    1  some succeeded and some did not
    2  unusable arguments, requests or configuration: nothing was changed
    3  none succeeded
  130  cancelled by a signal

The first SIGINT (Ctrl-C), SIGTERM or SIGHUP cancels and waits for the step in hand; the second leaves at once.)";

/// Every command refers to the one place that explains them.
constexpr const char* exitStatusHint = "Exit status 0, 1, 2, 3 or 130: see zelor-remediate --help.";

constexpr const char* runHelp = R"(Examples:
  zelor-remediate run requests.json
  zelor-remediate run requests.json --report report.html
  zelor-remediate run requests.json --json - | jq .rebootNeeded
  zelor-remediate run requests.json --events - | jq -c '[.t, .state, .key]'
  zelor-remediate run requests.json --after-scan

Applies what the requests ask for and tells how it goes. Hardening scripts come first, then updates of the operating
system, then patches of products. What the installed-patches record holds is not applied again.)";

constexpr const char* planHelp = R"(Examples:
  zelor-remediate plan requests.json
  zelor-remediate plan requests.json --json | jq '.requests[] | select(.warnings != [])'
  zelor-remediate plan requests.json && zelor-remediate run requests.json

Tells what a run would do, and why. It fetches the content, asks softwareupdate what it lists, and looks at the record and
at the buffer, where it checks signatures. Shown for each request: the files, the updates, the commands, the result to
expect, and what in it may surprise. Installs and removes nothing; writes lines of the log and the cache of verified
content. Whether a download or an installer will fail, only a run can tell.)";

constexpr const char* bufferHelp = R"(Examples:
  zelor-remediate buffer requests.json
  zelor-remediate buffer requests.json --json buffered.json

Fetches the patches of the requests ahead of time. It keeps to the configured share of the bandwidth and to the configured
size of the buffer. A later run takes them without a download. An interrupted download is resumed the next time.)";

constexpr const char* statusHelp = R"(Examples:
  zelor-remediate status
  zelor-remediate status --json | jq .buffer

Shows settings, installed patches, buffer and unfinished downloads. Beside each setting stands whether the agent's file
or a default gives it, beside each buffered patch its size. Writes nothing but lines of the log.)";

using Action = std::function<int()>;

CLI::App* addCommand(CLI::App& app, const char* name, const char* help) {
    CLI::App* command = app.add_subcommand(name, help);
    command->footer(exitStatusHint);
    return command;
}

void addRequests(CLI::App* command, std::string& requests) {
    command->add_option("REQUESTS.json", requests, "The requests; - reads standard input")
        ->required()
        ->type_name("");
}

void addPlace(CLI::App* command, PlaceOptions& place, bool contentDir) {
    const std::string group = "Place";
    command->add_option("--root", place.root, "Take every path of the agent below this folder")
        ->type_name("DIR")
        ->group(group);
    command->add_option("--tools", place.tools, "Look for the system's tools in this folder first")
        ->type_name("DIR")
        ->group(group);
    command
        ->add_option("--install-path", place.installPath,
                     "The agent's folder, below the root [its setting, /opt/zelor]")
        ->type_name("DIR")
        ->group(group);
    if (!contentDir) return;
    command
        ->add_option("--content-dir", place.contentDir,
                     "Where patches are unpacked; emptied at the end; below the root")
        ->type_name("DIR")
        ->capture_default_str()
        ->group(group);
}

void addTalk(CLI::App* command, TalkOptions& talk) {
    CLI::Option* quiet = command->add_flag("-q,--quiet", talk.quiet, "No progress and no summary");
    command->add_flag("-v,--verbose", talk.verbose, "The log's trail on standard error")->excludes(quiet);
}

void addRun(CLI::App& app, RunOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "run", runHelp);
    addRequests(command, options.requests);
    command->add_flag("--after-scan", options.afterScan,
                      "The first run after a scan: begin with an empty installed-patches record");
    command->add_option("--json", options.json, "Write the results there at the end; - is standard output")
        ->type_name("FILE");
    command
        ->add_option("--events", options.events,
                     "Write a line of JSON there at every change; - is standard output")
        ->type_name("FILE");
    command
        ->add_option("--report", options.report,
                     "Write a page (HTML) on how it went there at the end; - is standard output")
        ->type_name("FILE");
    addTalk(command, options.talk);
    addPlace(command, options.place, true);
    command->callback([&] { action = [&] { return runCommand(options); }; });
}

void addBuffer(CLI::App& app, BufferOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "buffer", bufferHelp);
    addRequests(command, options.requests);
    command
        ->add_option("--json", options.json, "Write what was buffered there at the end; - is standard output")
        ->type_name("FILE");
    addTalk(command, options.talk);
    addPlace(command, options.place, false);
    command->callback([&] { action = [&] { return bufferCommand(options); }; });
}

void addPlan(CLI::App& app, PlanOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "plan", planHelp);
    addRequests(command, options.requests);
    command->add_flag("--after-scan", options.afterScan,
                      "Plan the first run after a scan: as if the installed-patches record were empty");
    command->add_flag("--json", options.json, "Print JSON");
    command->add_flag("-v,--verbose", options.verbose, "The log's trail on standard error");
    addPlace(command, options.place, true);
    command->callback([&] { action = [&] { return planCommand(options); }; });
}

void addStatus(CLI::App& app, StatusOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "status", statusHelp);
    command->add_flag("--json", options.json, "Print JSON");
    addPlace(command, options.place, false);
    command->callback([&] { action = [&] { return statusCommand(options); }; });
}

/// In the list of commands each has the first sentence of its help.
std::string firstSentence(const CLI::App* command) {
    const std::string text = command->get_description();
    const auto begin = text.find("\n\n");
    const std::string body = begin == std::string::npos ? text : text.substr(begin + 2);
    std::string sentence = body.substr(0, body.find('.'));
    for (char& letter : sentence)
        letter = letter == '\n' ? ' ' : letter;
    return sentence;
}

class HelpFormat : public CLI::Formatter {
  public:
    std::string make_footer(const CLI::App* app) const override {
        return CLI::Formatter::make_footer(app) + '\n';
    }
    std::string make_subcommand(const CLI::App* command) const override {
        return "  " + command->get_name() + std::string(10 - command->get_name().size(), ' ') +
               firstSentence(command) + '\n';
    }
};

/// CLI11 would only say that a command is missing.
void refuseUnknownCommand(const CLI::App& app, const std::vector<std::string>& arguments) {
    if (arguments.empty() || arguments[0].rfind('-', 0) == 0) return;
    const auto named = [&](const CLI::App* command) { return command->get_name() == arguments[0]; };
    if (!app.get_subcommands(named).empty()) return;
    std::string known;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        known += (known.empty() ? "" : ", ") + command->get_name();
    throw InputError("there is no command \"" + base::printable(arguments[0]) + "\"; use one of: " + known);
}

int execute(CLI::App& app, const std::vector<std::string>& arguments, const Action& action) {
    try {
        refuseUnknownCommand(app, arguments);
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        return action();
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? exitStatus::allSucceeded : exitStatus::unusable;
    } catch (const std::exception& e) {
        // An unexpected failure comes before anything was applied: a run keeps its own to itself.
        std::cerr << "zelor-remediate: " << e.what() << '\n';
        return exitStatus::unusable;
    }
}

}  // namespace

int runController(const std::vector<std::string>& arguments) {
    CLI::App app(examples, "zelor-remediate");
    app.formatter(std::make_shared<HelpFormat>());
    app.set_version_flag("--version", "zelor-remediate " ZELOR_VERSION_STRING);
    app.require_subcommand(1);
    app.footer(exitStatuses);
    RunOptions run;
    PlanOptions plan;
    BufferOptions buffer;
    StatusOptions status;
    Action action;
    addRun(app, run, action);
    addPlan(app, plan, action);
    addBuffer(app, buffer, action);
    addStatus(app, status, action);
    return execute(app, arguments, action);
}

}  // namespace zelor::controller

#include "controller/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <iostream>
#include <utility>

#include "base/Strings.h"
#include "controller/ArgumentOrder.h"
#include "controller/Commands.h"
#include "controller/HelpTexts.h"
#include "controller/InputError.h"
#include "controller/States.h"
#include "controller/Text.h"
#include "controller/export/Export.h"
#include "remediation/Version.h"

namespace zelor::controller {

namespace {

using Action = std::function<int()>;

CLI::App* addCommand(CLI::App& app, const char* name, const char* help) {
    CLI::App* command = app.add_subcommand(name, help);
    command->footer(kExitStatusHint);
    return command;
}

CLI::Option* addRequests(CLI::App* command, std::string& requests) {
    return command->add_option("REQUESTS.json", requests, "The requests; - reads standard input")
        ->required()
        ->type_name("");
}

/// --json of a command that prints its result; without FILE it writes to standard output.
CLI::Option* addJson(CLI::App* command, std::string& json) {
    return command->add_option("--json", json, "Write JSON instead of text, to FILE or standard output (-)")
        ->expected(0, 1)
        ->default_str("-")
        ->type_name("[FILE]");
}

void addWait(CLI::App* command, int& seconds) {
    constexpr int kMostSeconds = 31 * 24 * 60 * 60;
    command->add_option("--wait", seconds, "Wait up to SECONDS for another run or buffering job to end [0]")
        ->check(CLI::Range(0, kMostSeconds))
        ->type_name("SECONDS");
}

void addPathOptions(CLI::App* command, PathOptions& paths, bool contentDir) {
    const std::string group = "Paths";
    command->add_option("--root", paths.root, "Prefix every path of the agent with this directory")
        ->type_name("DIR")
        ->group(group);
    command->add_option("--tools", paths.tools, "Look for the system's tools in this directory first")
        ->type_name("DIR")
        ->group(group);
    command
        ->add_option("--install-path", paths.installPath,
                     "The agent's directory, below the root [its setting, /opt/zelor]")
        ->type_name("DIR")
        ->group(group);
    if (!contentDir) return;
    command
        ->add_option("--content-dir", paths.contentDir,
                     "Where patches are unpacked, below the root; emptied at the end")
        ->type_name("DIR")
        ->capture_default_str()
        ->group(group);
}

void addTalk(CLI::App* command, TalkOptions& talk) {
    CLI::Option* quiet = command->add_flag("-q,--quiet", talk.quiet, "No progress and no summary");
    command->add_flag("-v,--verbose", talk.verbose, "Also log to standard error")->excludes(quiet);
}

void addRun(CLI::App& app, RunOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "run", kRunHelp);
    addRequests(command, options.requests);
    command->add_flag("--after-scan", options.afterScan,
                      "The first run after a scan: start with an empty installed-patches record");
    command
        ->add_option("--json", options.json,
                     "Write the results as JSON when the run ends; - is standard output")
        ->type_name("FILE");
    command
        ->add_option("--events", options.events,
                     "Write a line of JSON for every change; - is standard output")
        ->type_name("FILE");
    command
        ->add_option("--report", options.report,
                     "Write an HTML report when the run ends; - is standard output")
        ->type_name("FILE");
    command
        ->add_option("--export", options.exports,
                     "Write the results as xccdf, ocsf or prometheus when the run ends; may be repeated")
        ->type_name("FORMAT=FILE")
        ->allow_extra_args(false);
    addWait(command, options.waitSeconds);
    addTalk(command, options.talk);
    addPathOptions(command, options.paths, true);
    command->callback([&] { action = [&] { return runCommand(options); }; });
}

void addBuffer(CLI::App& app, BufferOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "buffer", kBufferHelp);
    addRequests(command, options.requests);
    command
        ->add_option("--json", options.json,
                     "Write the results as JSON when the job ends; - is standard output")
        ->type_name("FILE");
    addWait(command, options.waitSeconds);
    addTalk(command, options.talk);
    addPathOptions(command, options.paths, false);
    command->callback([&] { action = [&] { return bufferCommand(options); }; });
}

void addPlan(CLI::App& app, PlanOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "plan", kPlanHelp);
    CLI::Option* requests = addRequests(command, options.requests);
    command->add_flag("--after-scan", options.afterScan,
                      "Plan the first run after a scan: as if the installed-patches record were empty");
    command->add_flag("--check", options.check,
                      "Also run the checks of the content: show beside the plan what holds now");
    // In "--json FILE" without a further argument FILE is the requests, and the plan goes to standard output.
    addJson(command, options.json)->each([requests](const std::string&) { requests->required(false); });
    command->add_flag("-v,--verbose", options.verbose, "Also log to standard error");
    addPathOptions(command, options.paths, true);
    command->callback([&] {
        if (options.requests.empty()) options.requests = std::exchange(options.json, "-");
        action = [&] { return planCommand(options); };
    });
}

void addVerify(CLI::App& app, VerifyOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "verify", kVerifyHelp);
    CLI::Option* requests = addRequests(command, options.requests)->required(false);
    command->add_flag(
        "--forget", options.forget,
        "Drop what has drifted from the installed-patches record: the next run applies it again");
    CLI::Option* json = addJson(command, options.json);
    addWait(command, options.waitSeconds);
    command->add_flag("-v,--verbose", options.verbose, "Also log to standard error");
    addPathOptions(command, options.paths, false);
    command->callback([&options, &action, requests, json] {
        // As for a plan: in "--json FILE" without a further argument FILE is the requests.
        if (requests->count() == 0 && json->count() != 0) options.requests = std::exchange(options.json, "-");
        action = [&options] { return verifyCommand(options); };
    });
}

void addStatus(CLI::App& app, StatusOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "status", kStatusHelp);
    addJson(command, options.json);
    addPathOptions(command, options.paths, true);
    command->callback([&] { action = [&] { return statusCommand(options); }; });
}

void addExport(CLI::App& app, ExportOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "export", kExportHelp);
    command->add_option("RESULTS.json", options.results, "What run --json wrote; - reads standard input")
        ->required()
        ->type_name("");
    command->add_option("--format", options.format, "xccdf, ocsf or prometheus")
        ->required()
        ->check(CLI::IsMember(exportFormatNames()))
        ->type_name("FORMAT");
    command->add_option("--out", options.out, "Write to FILE instead of standard output")->type_name("FILE");
    command->callback([&] { action = [&] { return exportCommand(options); }; });
}

void addMakeRequests(CLI::App& app, RequestsOptions& options, Action& action) {
    CLI::App* command = addCommand(app, "requests", kRequestsHelp);
    command->add_option("FILE", options.files, "What a scan found; - reads standard input")
        ->required()
        ->type_name("");
    command->add_option("--platform", options.platform, "The operating system, in place of the file's")
        ->type_name("CPE");
    command->add_option("--product", options.product, "The product, in place of the file's")
        ->type_name("CPE");
    command
        ->add_option(
            "--rules", options.rules,
            "import.json of zelor-content import, for identifiers that the file lacks; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    command->add_option("--out", options.out, "Write to FILE instead of standard output")->type_name("FILE");
    command->callback([&] { action = [&] { return requestsCommand(options); }; });
}

/// For the list of commands and for `help --help`; arrangedArguments() has replaced any other use of it.
void addHelp(CLI::App& app) {
    addCommand(app, "help", kHelpHelp)->add_option("COMMAND", "The command")->type_name("");
}

/// The list of commands shows the first sentence of each help.
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

std::vector<std::string> optionNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
        for (const std::string& name : option->get_snames())
            names.push_back('-' + name);
    }
    return names;
}

CommandWords wordsOf(const CLI::App& app) {
    CommandWords words;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        words.commands.push_back(command->get_name());
        for (const CLI::Option* option : command->get_options()) {
            if (option->get_items_expected_max() == 0) continue;
            for (const std::string& name : option->get_lnames()) {
                words.valued.insert("--" + name);
                if (option->get_items_expected_min() == 0) words.optionalValued.insert("--" + name);
            }
        }
    }
    return words;
}

/// What is wrong with the arguments of a command; the caller appends the command that shows its help.
std::string parseProblem(const CLI::App& command, const CLI::ParseError& error) {
    const std::vector<std::string> extra = command.remaining(true);
    if (extra.empty()) return error.what() + std::string("; see");
    const auto isOption = [](const std::string& one) { return one.size() > 1 && one.front() == '-'; };
    const auto option = std::find_if(extra.begin(), extra.end(), isOption);
    if (option == extra.end()) return "unexpected argument \"" + extra.front() + "\"; see";
    const std::string name = option->substr(0, option->find('='));
    const std::string nearest = base::nearestWord(name, optionNames(command));
    return "there is no option " + name + (nearest.empty() ? "; see" : "; did you mean " + nearest + "? See");
}

int endParsing(CLI::App& app, const std::vector<std::string>& arguments, const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
        app.exit(error);
        std::cout.flush();
        if (!std::cout) throw CommandError(exitStatus::kOutputFailed, "cannot write standard output");
        return exitStatus::kAllSucceeded;
    }
    const std::string& command = arguments.front();
    std::cerr << "zelor-remediate " << command << ": "
              << base::printable(parseProblem(*app.get_subcommand(command), error)) << " \"zelor-remediate "
              << command << " --help\"\n";
    return exitStatus::kUnusable;
}

int execute(CLI::App& app, const std::vector<std::string>& given, const Action& action) {
    try {
        std::vector<std::string> arguments = arrangedArguments(given, wordsOf(app));
        try {
            app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        } catch (const CLI::ParseError& e) {
            return endParsing(app, arguments, e);
        }
        return action();
    } catch (const CommandError& e) {
        std::cerr << "zelor-remediate: " << e.what() << '\n';
        return e.status();
    } catch (const std::exception& e) {
        // Nothing was applied yet: a run handles its own failures.
        std::cerr << "zelor-remediate: " << e.what() << '\n';
        return exitStatus::kUnusable;
    }
}

}  // namespace

int runController(const std::vector<std::string>& arguments) {
    CLI::App app(kExamples, "zelor-remediate");
    app.formatter(std::make_shared<HelpFormat>());
    app.set_version_flag("-V,--version", "zelor-remediate " ZELOR_VERSION_STRING);
    app.require_subcommand(1);
    app.footer(kExitStatuses);
    RunOptions run;
    PlanOptions plan;
    BufferOptions buffer;
    StatusOptions status;
    ExportOptions exporting;
    RequestsOptions requests;
    VerifyOptions verify;
    Action action;
    addRun(app, run, action);
    addPlan(app, plan, action);
    addVerify(app, verify, action);
    addBuffer(app, buffer, action);
    addStatus(app, status, action);
    addMakeRequests(app, requests, action);
    addExport(app, exporting, action);
    addHelp(app);
    return execute(app, arguments, action);
}

}  // namespace zelor::controller

#include <algorithm>
#include <optional>

#include "agent/archive/ArchivePolicy.h"
#include "agent/archive/ExtractionTree.h"
#include "rehearsal/OsVersion.h"
#include "rehearsal/Tools.h"

namespace zelor::rehearsal {

namespace {

struct UpdateCommand {
    enum class Verb { usage, list, install } verb = Verb::usage;
    UpdateChoice choice;
};

/// Short options may be joined ("-ia"); what is not an option is a label.
std::string shortOptions(const std::string& argument) {
    if (argument == "--list") return "l";
    if (argument == "--install") return "i";
    if (argument == "--all") return "a";
    if (argument == "--recommended") return "r";
    if (argument == "--restart") return "R";
    if (argument == "--verbose" || argument == "--no-scan") return "v";
    return argument.size() > 1 && argument[0] == '-' && argument[1] != '-' ? argument.substr(1) : "?";
}

std::optional<UpdateCommand> parseUpdate(const Arguments& arguments) {
    UpdateCommand command;
    for (const std::string& argument : arguments) {
        if (argument.empty() || argument.front() != '-') {
            command.choice.labels.push_back(argument);
            continue;
        }
        for (const char option : shortOptions(argument)) {
            if (option == 'l') command.verb = UpdateCommand::Verb::list;
            if (option == 'i') command.verb = UpdateCommand::Verb::install;
            if (option == 'a') command.choice.all = true;
            if (option == 'r') command.choice.recommended = true;
            if (std::string("liarRv").find(option) == std::string::npos) return std::nullopt;
        }
    }
    return command;
}

ToolText offline() {
    return {"", "The Internet connection appears to be offline.\n", 1};
}
ToolText notRoot() {
    return {"", "softwareupdate: Must be run as root.\n", 1};
}

ToolText list(const MacState& state, Outcome fault) {
    if (fault == Outcome::noNetwork) return offline();
    if (fault == Outcome::fail) return {"", "Can't load data from the Software Update server.\n", 1};
    return listing(state.updates, parseOsVersion(state.productVersion));
}

void applyToolFault(std::vector<Update>& updates, Outcome fault) {
    if (fault != Outcome::fail && fault != Outcome::doneThenError && fault != Outcome::notFound) return;
    for (Update& update : updates)
        update.outcome = fault;
}

void writePayloads(const std::vector<Update>& updates, const std::string& root) {
    for (const Update& update : updates) {
        if (update.payload.empty() || !installs(update.outcome)) continue;
        agent::ExtractionTree tree(root);
        auto file = tree.createFile(agent::pathComponents(update.payload));
        base::writeAll(file.get(), update.label + "\n");
        agent::ExtractionTree::finishFile(std::move(file), 0644, std::nullopt);
        tree.finish();
    }
}

/// Removes the installed updates from the listing; another process may have removed some already.
void recordInstalled(MacState& state, const std::vector<Update>& updates) {
    for (const Update& update : updates) {
        const auto it = std::find_if(state.updates.begin(), state.updates.end(),
                                     [&](const Update& listed) { return listed.label == update.label; });
        if (!installs(update.outcome) || it == state.updates.end()) continue;
        state.installedUpdates.push_back(*it);
        state.updates.erase(it);
    }
}

int install(const StateDirectory& directory, const MacState& state, Outcome fault,
            const UpdateChoice& choice) {
    std::vector<Update> updates = state.updates;
    applyToolFault(updates, fault);
    const ChosenUpdates chosen = chooseUpdates(updates, choice);
    const auto meets = [&](Outcome outcome) {
        return fault == outcome ||
               std::any_of(chosen.updates.begin(), chosen.updates.end(),
                           [&](const Update& update) { return update.outcome == outcome; });
    };
    if (meets(Outcome::notRoot)) return say(notRoot());
    if (meets(Outcome::noNetwork)) return say(offline());
    for (const Update& update : chosen.updates)
        disturb(update.outcome);
    writePayloads(chosen.updates, state.root);
    directory.update([&](MacState& now) { recordInstalled(now, chosen.updates); });
    return say(installTranscript(chosen, parseOsVersion(state.productVersion)));
}

}  // namespace

int runSoftwareUpdate(const StateDirectory& directory, const Arguments& arguments) {
    const auto command = parseUpdate(arguments);
    const bool chooses =
        command && (command->choice.all || command->choice.recommended || !command->choice.labels.empty());
    if (!command || command->verb == UpdateCommand::Verb::usage ||
        (command->verb == UpdateCommand::Verb::install && !chooses)) {
        return say({"", "usage: softwareupdate -l | -i <label> ... | -i -a | -i -r\n", 1});
    }
    const MacState state = directory.load();
    const Outcome fault = faultFor(state, FaultScope::tool, nameOf(Tool::softwareupdate));
    disturb(fault);
    if (command->verb == UpdateCommand::Verb::list) return say(list(state, fault));
    return install(directory, state, fault, command->choice);
}

}  // namespace zelor::rehearsal

#include "rehearsal/UpdateText.h"

#include <algorithm>

namespace zelor::rehearsal {

namespace {

std::string header(const OsVersion& version) {
    std::string text = "Software Update Tool\n";
    if (!version.atLeast(10, 13)) {
        text +=
            version.atLeast(10, 12) ? "Copyright 2002-2015 Apple Inc.\n" : "Copyright 2002-2012 Apple Inc.\n";
    }
    return text + "\n";
}

/// When they install, 10.13 and 10.14 do not report the search and the start of a download.
bool isTerseInstaller(const OsVersion& version) {
    return version.atLeast(10, 13) && !version.atLeast(10, 15);
}

std::string starredItem(const Update& update) {
    return std::string("   ") + (update.recommended ? "* " : "- ") + update.label + "\n\t" + update.title +
           " (" + update.version + "), " + std::to_string(update.sizeK) + "K" +
           (update.recommended ? " [recommended]" : "") + (update.restart ? " [restart]" : "") + "\n";
}

std::string labelledItem(const Update& update) {
    return std::string(update.recommended ? "* " : "- ") + "Label: " + update.label +
           "\n\tTitle: " + update.title + ", Version: " + update.version +
           ", Size: " + std::to_string(update.sizeK) +
           "K, Recommended: " + (update.recommended ? "YES, " : "NO, ") +
           (update.restart ? "Action: restart, " : "") + "\n";
}

bool any(const std::vector<Update>& updates, bool (*test)(const Update&)) {
    return std::any_of(updates.begin(), updates.end(), test);
}

std::string stepLines(const std::vector<Update>& updates, bool terse) {
    std::string text;
    for (const Update& update : updates) {
        if (!terse && !update.osUpdate) text += "Downloading " + update.title + "\n";
        text += "Downloaded " + update.title + "\n";
    }
    for (const Update& update : updates) {
        if (update.outcome != Outcome::doneThenError) text += "Installing " + update.title + "\n";
    }
    for (const Update& update : updates) {
        if (installs(update.outcome) && !update.osUpdate) text += "Done with " + update.title + "\n";
    }
    return text;
}

}  // namespace

bool installs(Outcome outcome) {
    return outcome == Outcome::ok || outcome == Outcome::flood || outcome == Outcome::binary;
}

ToolText listing(const std::vector<Update>& updates, const OsVersion& version) {
    ToolText text;
    text.out = header(version) + "Finding available software\n";
    if (updates.empty()) {
        text.err = "No new software available.\n";
        return text;
    }
    text.out += "Software Update found the following new or updated software:\n";
    for (const Update& update : updates) {
        text.out += version.atLeast(10, 15) ? labelledItem(update) : starredItem(update);
    }
    return text;
}

ChosenUpdates chooseUpdates(const std::vector<Update>& updates, const UpdateChoice& choice) {
    ChosenUpdates chosen;
    const auto named = [&](const std::string& label) {
        return std::find(choice.labels.begin(), choice.labels.end(), label) != choice.labels.end();
    };
    for (const Update& update : updates) {
        const bool wanted = choice.all || (choice.recommended && update.recommended) || named(update.label);
        if (wanted && update.outcome != Outcome::notFound) chosen.updates.push_back(update);
    }
    for (const std::string& label : choice.labels) {
        const bool known = std::any_of(updates.begin(), updates.end(), [&](const Update& update) {
            return update.label == label && update.outcome != Outcome::notFound;
        });
        if (!known) chosen.unknownLabels.push_back(label);
    }
    return chosen;
}

ToolText installTranscript(const ChosenUpdates& chosen, const OsVersion& version) {
    const bool terse = isTerseInstaller(version);
    ToolText text;
    text.out = header(version) + (terse ? "" : "Finding available software\n");
    for (const std::string& label : chosen.unknownLabels)
        text.out += label + ": No such update\n";
    if (chosen.updates.empty()) {
        text.err = "No updates are available.\n";
        return text;
    }
    text.out += "\n" + stepLines(chosen.updates, terse);
    if (any(chosen.updates, [](const Update& update) { return update.outcome == Outcome::fail; })) {
        text.out += "Error installing updates.\n";
        text.status = 1;
        return text;
    }
    text.out += "Done.\n";
    if (any(chosen.updates, [](const Update& update) { return update.outcome == Outcome::doneThenError; })) {
        text.out += "\nError installing updates.\n";
    }
    if (any(chosen.updates,
            [](const Update& update) { return update.restart && installs(update.outcome); })) {
        text.out +=
            "You have installed one or more updates that requires that you restart your\n"
            "computer.  Please restart immediately.\n";
    }
    return text;
}

}  // namespace zelor::rehearsal

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "controller/Text.h"
#include "controller/status/Status.h"

namespace zelor::controller {

namespace {

using nlohmann::ordered_json;

constexpr std::size_t kRecordedShown = 20;
constexpr std::size_t kLeftoversShown = 20;

std::string row(const std::string& name, std::size_t columns, const std::string& value) {
    return "  " + base::printable(name) +
           std::string(columns - std::min(columns, columnsOf(base::printable(name))), ' ') + "  " +
           base::printable(value) + '\n';
}

std::string orNone(const std::string& text, const std::string& none) {
    return text.empty() ? none : text;
}

std::string platformText(const Status& status) {
    return "Platform\n" + row("Product", 8, orNone(status.productName, "unknown: sw_vers printed nothing")) +
           row("Version", 8, orNone(status.productVersion, "unknown")) +
           row("CPE", 8, orNone(status.platformCpe, "none")) +
           row("Build", 8, orNone(status.buildPlatform, "unknown: no platform in " + status.buildFile));
}

std::string settingsText(const Status& status) {
    std::size_t widest = 0;
    for (const agent::Setting& setting : status.settings)
        widest = std::max(widest, setting.key.size());
    std::string text =
        "\nSettings (* from " + base::printable(status.iniFile) + ", the others are defaults)\n";
    for (const agent::Setting& setting : status.settings) {
        text += (setting.fromFile ? "* " : "  ") +
                row(setting.key, widest, orNone(setting.value, "not set")).substr(2);
    }
    for (const std::string& problem : status.problems)
        text += "  ! " + base::printable(problem) + '\n';
    return text;
}

std::string indexText(const Status& status) {
    if (!status.index.configured) return "";
    std::string text = "\nIndex of the repository: ";
    text += status.index.roles.empty() ? "none yet, a run fetches it\n" : "\n";
    for (const agent::KeptIndex::Role& role : status.index.roles)
        text += row(role.name, 9, "version " + std::to_string(role.version) + ", until " + role.expires);
    for (const std::string& warning : status.index.warnings)
        text += "  ! " + base::printable(warning) + '\n';
    return text;
}

ordered_json indexJson(const agent::KeptIndex& index) {
    ordered_json roles = ordered_json::object();
    for (const agent::KeptIndex::Role& role : index.roles)
        roles[role.name] = {{"version", role.version}, {"expires", role.expires}};
    return {{"roles", roles}, {"warnings", index.warnings}};
}

std::string recordText(const Status& status) {
    std::string text = "\nInstalled: " + countText(status.recorded.size(), "entry") + " in " +
                       base::printable(status.recordFile) + '\n';
    const std::size_t first =
        status.recorded.size() > kRecordedShown ? status.recorded.size() - kRecordedShown : 0;
    if (first > 0) text += "  ... " + std::to_string(first) + " before (all with --json)\n";
    for (std::size_t i = first; i < status.recorded.size(); ++i)
        text += "  " + base::printable(status.recorded[i]) + '\n';
    return text;
}

std::string bufferText(const Status& status) {
    std::string text = "\nBuffer: " + bytesText(status.bufferBytes) + " of ";
    if (status.budgetBytes < 0) {
        text += "nothing: PatchesDirSizeMB is too large, use 2047 or less\n";
    } else {
        text += bytesText(static_cast<std::uint64_t>(status.budgetBytes)) + '\n';
    }
    for (const BufferedPatch& patch : status.buffered) {
        text += row(patch.patch, 32,
                    patch.present ? bytesText(patch.bytes) : "its archive is missing, it will be fetched");
    }
    for (const SizedFile& file : status.unlisted)
        text += row(file.name, 32, bytesText(file.bytes) + ", in no list");
    return text;
}

std::string partialText(const Status& status) {
    std::string text = "\nUnfinished downloads: " + std::to_string(status.partial.size()) + '\n';
    for (const SizedFile& file : status.partial)
        text += row(file.name, 32, bytesText(file.bytes) + " so far");
    return text;
}

std::string leftoversText(const Status& status) {
    std::string text = "\nLeft in the content directory " + base::printable(status.contentDir) + ": ";
    if (!status.leftoversProblem.empty()) return text + "unknown: " + status.leftoversProblem + '\n';
    text += std::to_string(status.leftovers.size()) +
            (status.leftovers.empty() ? "\n" : ", which the next run removes\n");
    const std::size_t shown = std::min(status.leftovers.size(), kLeftoversShown);
    for (std::size_t i = 0; i < shown; ++i)
        text += "  " + base::printable(status.leftovers[i]) + '\n';
    if (shown < status.leftovers.size())
        text += "  ... " + std::to_string(status.leftovers.size() - shown) + " more (all with --json)\n";
    return text;
}

/// The id of a process, or of a process group, where it is negative.
std::string processText(std::optional<long> process) {
    return process ? "process " + std::to_string(std::abs(*process)) : "an unknown process";
}

std::string lockText(const Status& status) {
    const std::string file = " (" + base::printable(status.lockFile) + ")\n";
    switch (status.lock.kind) {
        case base::LockState::Kind::free:
            if (status.killedCommand.kind != base::LockState::Kind::held) return "\nLock: free" + file;
            return "\nLock: free" + file +
                   "The next run waits for a command of an earlier one that was killed: " +
                   processText(status.killedCommand.process) + '\n';
        case base::LockState::Kind::unknown:
            return "\nLock: unknown, " + status.lock.problem + file;
        case base::LockState::Kind::held:
            break;
    }
    return "\nLock: held by " + processText(status.lock.process) + file;
}

ordered_json lockJson(const Status& status) {
    const char* const states[] = {"free", "held", "unknown"};
    ordered_json lock = {{"file", status.lockFile},
                         {"state", states[static_cast<std::size_t>(status.lock.kind)]},
                         {"process", nullptr}};
    if (status.lock.process) lock["process"] = *status.lock.process;
    const base::LockState& killed = status.killedCommand;
    if (killed.kind == base::LockState::Kind::held)
        lock["killedCommand"] = {
            {"process", killed.process ? ordered_json(std::abs(*killed.process)) : nullptr}};
    return lock;
}

ordered_json filesJson(const std::vector<SizedFile>& files) {
    ordered_json all = ordered_json::array();
    for (const SizedFile& file : files)
        all.push_back({{"name", file.name}, {"bytes", file.bytes}});
    return all;
}

}  // namespace

std::string statusText(const Status& status) {
    return platformText(status) + settingsText(status) + indexText(status) + recordText(status) +
           bufferText(status) + partialText(status) + leftoversText(status) + lockText(status);
}

ordered_json statusJson(const Status& status) {
    ordered_json all;
    all["platform"] = {{"product", status.productName},
                       {"version", status.productVersion},
                       {"cpe", status.platformCpe},
                       {"build", status.buildPlatform}};
    all["settingsFile"] = status.iniFile;
    all["settings"] = ordered_json::object();
    for (const agent::Setting& setting : status.settings) {
        all["settings"][setting.key] = {{"value", setting.value},
                                        {"source", setting.fromFile ? "file" : "default"}};
    }
    all["problems"] = status.problems;
    if (status.index.configured) all["index"] = indexJson(status.index);
    all["installed"] = status.recorded;
    ordered_json patches = ordered_json::array();
    for (const BufferedPatch& patch : status.buffered) {
        patches.push_back(
            {{"patch", patch.patch}, {"md5", patch.md5}, {"present", patch.present}, {"bytes", patch.bytes}});
    }
    all["buffer"] = {{"bytes", status.bufferBytes},
                     {"budget", status.budgetBytes},
                     {"patches", patches},
                     {"unlisted", filesJson(status.unlisted)}};
    all["partial"] = filesJson(status.partial);
    all["leftovers"] = status.leftovers;
    all["lock"] = lockJson(status);
    return all;
}

}  // namespace zelor::controller

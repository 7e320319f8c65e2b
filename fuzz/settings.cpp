#include <algorithm>
#include <chrono>

#include "Support.h"
#include "agent/AgentSettings.h"
#include "agent/settings/SettingsTable.h"
#include "base/CommandRunner.h"
#include "platform/AgentIni.h"
#include "platform/ShellCommand.h"

namespace {

using zelor::fuzz::require;

void judge(const zelor::agent::Setting& setting, const std::string& root) {
    const auto& table = zelor::agent::settingsTable();
    const auto entry = std::find_if(table.begin(), table.end(), [&](const zelor::agent::SettingEntry& one) {
        return one.name() == setting.key;
    });
    require(entry != table.end(), "a setting is in the table");
    const bool path = entry->type == zelor::agent::SettingType::path && !setting.value.empty();
    const bool number = entry->type == zelor::agent::SettingType::number;
    if (!setting.value.empty()) {
        require(path || zelor::agent::checkValue(entry->type, setting.value).has_value(),
                "a value is usable");
    }
    if (path) {
        require(setting.value.compare(0, root.size() + 1, root + "/") == 0, "a path is below the root");
        require((setting.value + "/").find("/../") == std::string::npos, "a path does not climb");
    }
    if (number) {
        require(!setting.value.empty() && setting.value.size() <= 9, "a number has one to nine digits");
        require(setting.value.find_first_not_of("0123456789") == std::string::npos, "a number is digits");
    }
}

}  // namespace

// The agent's ini file, as the agent and as the library read it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const zelor::fuzz::QuietRoot kRoot;
    static const std::size_t kKnown = zelor::agent::AgentSettings::load(kRoot / "none")->all().size();
    const std::string file = underSystemRoot(zelor::agent::kAgentIniFile);
    zelor::test::writeFile(file, zelor::fuzz::textOf(data, size));
    const auto settings = zelor::agent::AgentSettings::load(file);
    require(settings->all().size() == kKnown, "every setting is there");
    require(settings->warnings().size() <= 22, "warnings are bounded");
    for (const zelor::agent::Setting& setting : settings->all())
        judge(setting, getSystemRoot());
    require(zelor::platform::readIniFile(file) != nullptr, "a file that is there has a tree");
    const auto limit = zelor::platform::commandLimit();
    require(limit.count() >= 0 && limit <= std::chrono::hours(366 * 24), "a command's limit is sane");
    return 0;
}

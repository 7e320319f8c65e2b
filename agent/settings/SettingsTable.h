#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "agent/AgentSettings.h"
#include "base/Result.h"

/// The list of everything that the agent's ini file may hold: the reader, `status`, the test of the
/// documentation and the fuzz target use it.
namespace zelor::agent {

/// What a setting's text must be: anything, an absolute path, a decimal number, true or false, a log level,
/// the address of a proxy, a list of hosts, a word of Freshness.
enum class SettingType { text, path, number, flag, level, proxy, hosts, freshness };

/// One setting that the ini file may hold.
struct SettingEntry {
    const char* section;
    const char* key;
    SettingType type;
    const char* fallback;  ///< the text that counts when the file has none; "" for none
    const char* meaning;   ///< one sentence, which the documentation and the man page begin with
    std::variant<std::string Settings::*, std::uint32_t Settings::*, bool Settings::*, LogLevel Settings::*,
                 Freshness Settings::*>
        field;

    /// The setting's name as "Section.Key".
    std::string name() const { return std::string(section) + '.' + key; }
};

/// All settings in documented order. Any thread.
const std::vector<SettingEntry>& settingsTable();

/// Fails, with the reason, when `value`, which is not empty, cannot be used for a setting of this type.
base::Check checkValue(SettingType type, const std::string& value);

/// Stores a usable value in its field; a path is put below the system root.
void storeValue(const SettingEntry& entry, const std::string& value, Settings& settings);

/// Whether the table has that key; the case of letters counts.
bool isKnownKey(const std::string& section, const std::string& key);
/// The known key with the most similar spelling, as "[Section] Key"; "" when none is near.
std::string nearestKey(const std::string& section, const std::string& key);

}  // namespace zelor::agent

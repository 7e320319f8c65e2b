#pragma once

#include <memory>
#include <string>
#include <vector>

namespace zelor {

/// One setting in force and whether the ini file set it (else: the documented default).
struct Setting {
    std::string key;  ///< "Section.Key" as in the ini file
    std::string value;
    bool fromFile = false;
};

/// The agent's settings, read once from one ini file. Immutable; paths are below the system root already.
class AgentSettings {
  public:
    /// Reads `iniFile`. A missing or malformed file gives all defaults, with an error line on the log.
    static std::shared_ptr<const AgentSettings> load(const std::string& iniFile);
    /// The settings of the agent's own ini file below the system root in force; read again only when the root
    /// or the file's time or size changed. Never null. Any thread.
    static std::shared_ptr<const AgentSettings> current();

    const std::string& iniFile() const { return iniFile_; }
    /// The value of "Section.Key", "" for an unknown or unset one.
    const std::string& get(const std::string& key) const;
    /// Every documented setting in documented order.
    const std::vector<Setting>& all() const { return settings_; }

  private:
    std::string iniFile_;
    std::vector<Setting> settings_;
};

}  // namespace zelor

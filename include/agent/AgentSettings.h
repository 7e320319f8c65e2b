#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Export.h"

namespace zelor::agent {

/// The agent's own ini file, before the system root.
inline constexpr const char* agentIniFile = "/etc/zelor/zelor.ini";

/// One setting in force and whether the ini file set it (else: the documented default).
struct Setting {
    std::string key;  ///< "Section.Key" as in the ini file
    std::string value;
    bool fromFile = false;
};

/// The agent's settings, read once from one ini file. Immutable; paths are below the system root already.
class ZELOR_API AgentSettings {
  public:
    /// Reads `iniFile` without logging; `reportProblems` tells what was wrong. A missing, malformed or
    /// oversized (above 1 MiB) file gives all defaults; an unusable value gives the default of its key. Never
    /// null, never throws for what the file holds.
    static std::shared_ptr<const AgentSettings> load(const std::string& iniFile);
    /// The settings of `iniFile`, read again only when the system root or the file's time or size changed;
    /// problems go to the log once per reading. Never null. Any thread.
    static std::shared_ptr<const AgentSettings> cached(const std::string& iniFile);
    /// `cached` for the agent's own ini file below the system root in force.
    static std::shared_ptr<const AgentSettings> current();
    /// `current` without a word on the log: for the log itself, which needs the settings before it can speak.
    static std::shared_ptr<const AgentSettings> currentUnreported();

    const std::string& iniFile() const { return iniFile_; }
    /// The value of "Section.Key", "" for an unknown or unset one.
    const std::string& get(const std::string& key) const;
    /// Every documented setting in documented order.
    const std::vector<Setting>& all() const { return settings_; }
    /// Hands each problem of the reading to `report`, the first time it is called; later calls do nothing.
    void reportProblems(const std::function<void(const std::string& line)>& report) const;

  private:
    std::string iniFile_;
    std::vector<Setting> settings_;
    std::vector<std::string> problems_;
    mutable std::atomic<bool> reported_{false};
};

}  // namespace zelor::agent

#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Export.h"

namespace zelor::agent {

/// The agent's ini file, without the system root.
inline constexpr const char* kAgentIniFile = "/etc/zelor/zelor.ini";

/// The value of `Settings::proxy` for the proxy of the system's network settings.
inline constexpr const char* kSystemProxy = "system";

struct SettingEntry;

/// The least serious lines that the log file keeps.
enum class LogLevel { debug, info, error };

/// What is made of a repository whose signed index has expired or is older than what this machine has seen.
enum class Freshness { off, warn, require };

/// The values in force. Paths are absolute and below the system root.
struct Settings {
    std::string profileId;  ///< "" when the file names none
    std::string installPath;
    std::string repositoryUrl;  ///< one or more, as in the file; "" when it names none
    std::string trustedKey;     ///< "" when the file names none
    bool requireDigests = false;
    std::string root;  ///< "" when the file names none: then there is no index
    Freshness freshness = Freshness::warn;
    std::string proxy;    ///< with its credentials, "" for none; or `kSystemProxy`
    std::string noProxy;  ///< as in the file
    std::string caFile;   ///< "" for the system's
    std::string unzipDirectory;
    std::string patchesDir;
    std::uint32_t patchesDirSizeMB = 0;
    std::uint32_t speedPercent = 0;
    std::string vendorProducts;
    std::string thirdPartyProducts;
    std::uint32_t commandMinutes = 0;     ///< 0: no limit
    std::uint32_t runMinutes = 0;         ///< 0: no limit
    std::uint32_t contentSeconds = 0;     ///< 0: no limit
    std::uint32_t patchKiBPerSecond = 0;  ///< 0: no limit
    std::uint32_t patchMinutes = 0;
    std::uint32_t aheadMegabytes = 0;  ///< 0: no archive is fetched ahead
    std::string logFile;
    LogLevel logLevel = LogLevel::debug;
};

/// One setting in force and whether the ini file set it (else: the documented default).
struct Setting {
    std::string key;    ///< "Section.Key" as in the ini file
    std::string value;  ///< as text
    bool fromFile = false;
};

/// The agent's settings, read once from one ini file. Immutable; paths are below the system root already.
class ZELOR_API AgentSettings {
  public:
    /// Reads `iniFile` without logging; `reportProblems` reports what was wrong. A missing, malformed or
    /// oversized (above 1 MiB) file gives all defaults; an unusable value gives the default of its key. Never
    /// null, never throws for what the file holds.
    static std::shared_ptr<const AgentSettings> load(const std::string& iniFile);
    /// The settings of `iniFile`, read again only when the system root or the file's time or size changed;
    /// problems are logged once per reading. Never null. Any thread.
    static std::shared_ptr<const AgentSettings> cached(const std::string& iniFile);
    /// `cached` for the agent's ini file below the current system root.
    static std::shared_ptr<const AgentSettings> current();
    /// `current` without logging: for the log itself, which needs the settings before it can write.
    static std::shared_ptr<const AgentSettings> currentUnreported();

    /// The file that was read, and the values in force. Valid as long as this object.
    const std::string& iniFile() const { return iniFile_; }
    const Settings& values() const { return values_; }
    /// Every documented setting in documented order.
    const std::vector<Setting>& all() const { return settings_; }
    /// What makes the file, or a value in it, unusable.
    const std::vector<std::string>& problems() const { return problems_; }
    /// Unused parts of the file: unknown keys, with the nearest known one.
    const std::vector<std::string>& warnings() const { return warnings_; }
    /// Passes each problem and each warning to `report` on the first call; later calls do nothing.
    void reportProblems(const std::function<void(const std::string& line)>& report) const;

  private:
    void take(const SettingEntry& known, std::string value);

    std::string iniFile_;
    Settings values_;
    std::vector<Setting> settings_;
    std::vector<std::string> problems_;
    std::vector<std::string> warnings_;
    mutable std::atomic<bool> reported_{false};
};

}  // namespace zelor::agent

#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "agent/RepositoryStatus.h"
#include "base/LockFile.h"
#include "controller/Setup.h"

namespace zelor::controller {

/// A patch of the buffered-patches list.
struct BufferedPatch {
    std::string patch;
    std::string md5;
    bool present = false;  ///< its archive exists
    std::uint64_t bytes = 0;
};

/// A file's name in its directory, and its size.
struct SizedFile {
    std::string name;
    std::uint64_t bytes = 0;
};

/// What the system says about itself; "" where it does not.
struct SystemIdentity {
    std::string productName;
    std::string productVersion;
    std::string platformCpe;
};
/// Asks sw_vers and the library; blocks on the command.
SystemIdentity systemIdentity();

/// The name of this machine on the network.
std::string hostName();

/// What `status` shows.
struct Status {
    std::string productName;
    std::string productVersion;
    std::string platformCpe;
    std::string buildFile;
    std::string buildPlatform;  ///< from the agent's build file; "" when it has none
    std::string iniFile;
    std::vector<agent::Setting> settings;
    std::vector<std::string> problems;  ///< of the settings, and unknown keys in them
    agent::KeptIndex index;             ///< of the repository
    std::string recordFile;
    std::vector<std::string> recorded;  ///< ERI ids, oldest first
    std::string bufferedList;           ///< the text of the buffered-patches list
    std::vector<BufferedPatch> buffered;
    std::vector<SizedFile> bufferFiles;  ///< all files in the buffer
    std::vector<SizedFile> unlisted;     ///< files in the buffer that no line of the list names
    std::uint64_t bufferBytes = 0;
    std::int64_t budgetBytes = 0;  ///< the limit of buffering; negative when the setting is too large for it
    std::vector<SizedFile> partial;
    std::string contentDir;
    std::vector<std::string> leftovers;  ///< names in the content directory, which a run empties
    std::string leftoversProblem;        ///< why they cannot be listed, "" when they can
    std::string lockFile;
    base::LockState lock;  ///< of runs and buffering jobs
    /// When that is free: a command of a run that was killed, `held` while the next run would wait for it.
    base::LockState killedCommand;
};

/// The file of the installed-patches record.
std::string installedRecordFile();

/// Gathers the status at these paths. Blocks on a command; writes nothing but lines of the log.
Status gatherStatus(const Paths& paths);

/// The entries of a buffered-patches list, without their archives.
std::vector<BufferedPatch> parseBufferedList(const std::string& text);

/// The status as printable lines, and as JSON.
std::string statusText(const Status& status);
nlohmann::ordered_json statusJson(const Status& status);

}  // namespace zelor::controller

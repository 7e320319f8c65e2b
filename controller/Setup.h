#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "agent/AgentSettings.h"
#include "base/Result.h"

namespace zelor::controller {

/// Where a command works, as given on the command line.
struct PathOptions {
    std::string root;         ///< "": the system itself
    std::string tools;        ///< "": the system's tools
    std::string installPath;  ///< below the root; "": the agent's
    std::string contentDir = "/var/zelor/content";
};

/// What `checkSystem` needs to know about the system.
struct SystemFacts {
    bool rootNamed = false;  ///< with --root: every path is below it, and any user and system is fine
    bool mac = false;
    bool superuser = false;
};

/// Fails, with the remedy, when a command cannot work on this system. `changes`: it writes more than lines of
/// the log.
base::Check checkSystem(const SystemFacts& facts, bool changes);

/// Throws InputError when a command cannot work on this system. Call it first.
void requireSystem(const PathOptions& options, bool changes);

/// The remedy for a directory that cannot be written because of `error`, an errno value.
std::string writeRemedy(int error, bool superuser);

/// Resolved paths: every path is absolute and below the root.
struct Paths {
    bool belowRoot = false;
    std::string installPath;
    std::string contentDir;
    std::shared_ptr<const agent::AgentSettings> settings;
};

/// Sets the system root and the environment of every program started from now on (sets PATH, removes
/// variables that make a shell read files), and reads the agent's settings. Changes nothing on disk. Throws
/// InputError. Call it before other threads run.
Paths resolvePaths(const PathOptions& options);

/// Throws InputError when the settings do not let anything be fetched and verified, or when another user
/// could change them. Changes nothing.
void requireUsableSettings(const Paths& paths);

/// Fails, with the remedy, when another user than root, this one and the root's owner could change the
/// settings file, the trusted key, the root of the index or their directories. Changes nothing.
base::Check checkSettingsFiles(const Paths& paths);

/// Throws InputError when the content directory is one that must not be emptied, or is open to others.
/// Changes nothing.
void checkContentDir(const Paths& paths);

/// How long a command that holds the lock may take, zero for any time: `asked`, or as the settings say.
std::chrono::milliseconds runTimeLimit(std::optional<std::chrono::milliseconds> asked, const Paths& paths);
/// What such a command did then.
inline constexpr const char* kReachedTimeLimit = "reached its time limit, RunMinutes in section Limits";

/// Empties the content directory as a tree; it must have passed `checkContentDir`. Nothing that an earlier
/// run or a run that was killed left there can be in the way of this one. Throws InputError when something is
/// left.
void emptyContentDir(const Paths& paths);

/// Makes the directories that a command writes to where they are missing; on the system itself for their
/// owner only, and an InputError when another user could replace one. `contentDir` is made for its owner
/// only.
void prepareDirectories(const Paths& paths, bool contentDir);

/// The same for a command that only reads: it writes nothing but the log and the cache of content.
void prepareForReading(const Paths& paths);

}  // namespace zelor::controller

#pragma once

#include <memory>
#include <string>

#include "agent/AgentSettings.h"
#include "base/Files.h"

namespace zelor::controller {

/// Where a command works, as a person said it.
struct PlaceOptions {
    std::string root;         ///< "": the system itself
    std::string tools;        ///< "": the system's own
    std::string installPath;  ///< below the root; "": the agent's own
    std::string contentDir = "/var/zelor/content";
};

/// The same, ready to use: every path absolute and below the root.
struct Place {
    bool belowRoot = false;
    std::string installPath;
    std::string contentDir;
    std::shared_ptr<const agent::AgentSettings> settings;
};

/// Sets the system root and the environment of every program that is started from now on (PATH; what makes a
/// shell read files goes), and reads the agent's settings. Changes nothing on disk. Throws InputError. Call
/// it before other threads run.
Place enterPlace(const PlaceOptions& options);

/// Throws InputError when the settings do not let anything be fetched and verified. Changes nothing.
void requireUsableSettings(const Place& place);

/// Throws InputError when the content directory is one that must not be emptied, or is open to others.
/// Changes nothing.
void checkContentDir(const Place& place);

/// Makes the directories that a command writes to where they are missing; on the system itself for their
/// owner alone, and an InputError when another user could replace one. `contentDir` is made for its owner
/// alone.
void prepareFolders(const Place& place, bool contentDir);

/// The same for a command that only looks: what it writes is the log and the cache of content.
void prepareLooking(const Place& place);

/// Holds the only right to run or buffer at this place for its life. Throws InputError when another process
/// has it.
class JobLock {
  public:
    explicit JobLock(const Place& place);

  private:
    base::UniqueFd folder_;
};

}  // namespace zelor::controller

#pragma once

#include <string>
#include <vector>

namespace zelor {

/// Content that a run will ask for: the arguments of the `CreCacher::getCre` to come, and the request's key.
struct NeededContent {
    std::string key;
    std::string platformCpe;
    std::string productCpe;
    std::string identifier;
};

/// An archive that a run will ask for: arguments of the `getResource` to come, and the request's key.
struct NeededArchive {
    std::string key;
    std::string stem;
    std::string extension;
};

/// Hears what a run will need before it asks for it, so that an agent may fetch it ahead; see
/// `RemediationManager::setAheadOfNeed`. A run without one, or with one that does nothing, does the same work
/// and gives the same results, only later: it asks the collaborators for everything in any case. A buffering
/// job announces nothing.
///
/// Threads: `contentNeeded`, `archivesNeeded` and `ended` come on the run's thread, the others also on those
/// that cancel, at any moment. Return at once: the run waits. The calls hold no lock of the library, and must
/// not throw; what leaves one is logged and dropped.
class AheadOfNeed {
  public:
    AheadOfNeed() = default;
    AheadOfNeed(const AheadOfNeed&) = delete;
    AheadOfNeed& operator=(const AheadOfNeed&) = delete;
    virtual ~AheadOfNeed() = default;

    /// The content of all requests of the run, in the order in which it will be asked for.
    virtual void contentNeeded(const std::vector<NeededContent>& content) = 0;
    /// The archives that the run will ask for, in that order, once all content is known and if every request
    /// succeeds: those of requests that are applied or cancelled, and those in the buffer, are left out. One
    /// archive may be there several times.
    virtual void archivesNeeded(const std::vector<NeededArchive>& archives) { (void)archives; }
    /// The request with that key is cancelled, and needs nothing more. It may come for keys that were never
    /// announced, several times, and for a cancel that is withdrawn later: the run then asks all the same.
    virtual void notNeeded(const std::string& key) = 0;
    /// The whole run is cancelled: everything is to stop within a second.
    virtual void cancelled() = 0;
    /// The run is over and asks for nothing more.
    virtual void ended() = 0;
};

}  // namespace zelor

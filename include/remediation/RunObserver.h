#pragma once

#include <cstdint>
#include <string>

namespace zelor {

/// Whether a request's remediation was installed by this run.
enum class Applied {
    no,     ///< also when a success installed nothing, see `RequestResult::warning`
    now,    ///< by this run
    before  ///< already applied: it is in the installed-patches record, or there was nothing to install
};

/// A result of one request. Texts come from content, files, servers and tools and are not escaped.
struct RequestResult {
    std::string key;          ///< as in the request map
    std::string identifier;   ///< as in the request map
    unsigned long value = 0;  ///< a RemediationManager::REM_PROGRESS from REM_SUCCESS on
    std::string reason;       ///< why it did not succeed, in plain words; "" after a success or a cancel
    std::string output;       ///< the end of what the installer or script wrote, at most 4096 bytes
    Applied applied = Applied::no;
    bool restartNeeded =
        false;  ///< it was applied by this run, and its content or its installer asks for a restart
    std::string warning{};  ///< after a success: why nothing was installed all the same; "" for none
};

/// The current download.
struct DownloadState {
    std::string key;               ///< of the request; "" in a buffering job, where several may share a patch
    std::string patch;             ///< the file's name in the content
    std::uint64_t bytesDone = 0;   ///< including those of an earlier, resumed attempt
    std::uint64_t bytesTotal = 0;  ///< 0: not known
};

/// The outcome of one patch in a buffering job.
enum class BufferOutcome {
    downloading,  ///< another outcome follows, unless the job is cancelled
    buffered,
    alreadyBuffered,
    skipped,  ///< with a reason
    tooLarge  ///< skipped, since it does not fit into what is left of the buffer's size
};

/// The manager's flags at the end of a run.
struct RunEnd {
    bool rebootNeeded = false;
    bool scanNeeded = false;
    bool allRemFailed = false;
};

/// Receives the events of a run or a buffering job; see `RemediationManager::setRunObserver`. Override the
/// events that you need.
///
/// Threads: events come one at a time, on the thread that runs the job; `downloading` comes on the download
/// thread while that thread waits. An observer locks what it shares with other threads.
///
/// The library may hold its locks during an event: return quickly, do not call the manager, and do not wait
/// for a thread that does. Events must not throw; an exception that leaves one is logged and dropped.
///
/// Order: `started`, then `changed` and `downloading` in any number, then `settled`. An event comes before
/// its value shows in the progress map. A request of several ERIs may be settled several times, and one that
/// is cancelled afterwards once more with 13: the last result counts. A request that is refused or cancelled
/// before its turn is settled without being started; one that the run skips is never settled.
class RunObserver {
  public:
    RunObserver() = default;
    RunObserver(const RunObserver&) = delete;
    RunObserver& operator=(const RunObserver&) = delete;
    virtual ~RunObserver() = default;

    /// The run asks for the request's content.
    virtual void started(const std::string& /*key*/, const std::string& /*identifier*/) {}
    /// The request has another value below REM_SUCCESS; each begins as REM_QUEUED without an event.
    virtual void changed(const std::string& /*key*/, unsigned long /*value*/) {}
    /// Some ten times a second while an agent that counts bytes downloads.
    virtual void downloading(const DownloadState& /*download*/) {}
    /// The request has a result; it may be followed by another one, see above.
    virtual void settled(const RequestResult& /*result*/) {}
    /// A buffering job has started or finished with a patch. `reason` is empty but for `skipped` and
    /// `tooLarge`.
    virtual void buffered(const std::string& /*patch*/, BufferOutcome /*outcome*/,
                          const std::string& /*reason*/) {}
    /// The last event, before `getRemDone()` is true; also at the end of a buffering job.
    virtual void ended(const RunEnd& /*end*/) {}
};

}  // namespace zelor

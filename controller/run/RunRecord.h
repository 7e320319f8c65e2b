#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/Mutex.h"
#include "controller/run/Requests.h"
#include "controller/run/ResultTable.h"
#include "remediation/RunObserver.h"

namespace zelor::controller {

/// The value of a request before a cancel made it `aborted`.
struct EarlierResult {
    ProgressValue value = 0;
    std::string reason;
};

/// What is known about a request besides its value. The texts are printable, the output line by line.
struct Outcome {
    std::string reason;  ///< why it did not succeed; "" when there is nothing to say
    std::string output;  ///< the end of what an installer or script wrote, at most 40 lines
    Applied applied = Applied::no;
    std::optional<EarlierResult> beforeCancel;
    std::string warning{};  ///< what speaks against a success; "" when there is nothing to say
};

/// Keeps what the library reports about each request of a run or a buffering job. Any thread.
class RunRecord : public RunObserver {
  public:
    void settled(const RequestResult& result) override;
    /// Sets the reasons of invalid requests, which the library never gets.
    void setInvalid(const Requests& requests);

    /// Why the requests that the run aborts from now on read so, when no signal cancelled it.
    void setAbortReason(const std::string& reason);

    /// Of the value that `result` reads; a value that the run has already replaced has no details.
    Outcome outcome(const Result& result) const;
    /// The outcome's reason or warning for one line; of a cancelled request, what it read before.
    std::string reason(const Result& result) const;
    /// True when something that this run applied needs a restart.
    bool restartNeeded() const;

  private:
    struct Entry {
        RequestResult last;
        std::optional<EarlierResult> beforeCancel;
    };

    mutable base::Mutex mutex_;
    std::map<std::string, Entry> entries_ ZELOR_GUARDED_BY(mutex_);  ///< by request key
    bool restartNeeded_ ZELOR_GUARDED_BY(mutex_) = false;
    std::string abortReason_ ZELOR_GUARDED_BY(mutex_);
};

/// The outcome of one patch of a buffering job.
struct PatchOutcome {
    std::string patch;
    BufferOutcome kind = BufferOutcome::downloading;
    std::string reason;  ///< printable; of a skipped one
};

/// The same for a buffering job, with its patches.
class BufferRecord : public RunRecord {
  public:
    void buffered(const std::string& patch, BufferOutcome outcome, const std::string& reason) override;
    /// Marks the job as ended: patches still downloading count as skipped, for that reason.
    void end(const std::string& reason);

    /// The patch that is being downloaded, "" for none.
    std::string inHand() const;
    /// Every patch once, in the order in which the job came to it.
    std::vector<PatchOutcome> outcomes() const;
    /// The outcomes that changed since the last call.
    std::vector<PatchOutcome> takeNews();

  private:
    void set(const std::string& patch, BufferOutcome kind, const std::string& reason)
        ZELOR_REQUIRES(patchMutex_);

    mutable base::Mutex patchMutex_;
    std::vector<PatchOutcome> outcomes_ ZELOR_GUARDED_BY(patchMutex_);
    std::map<std::string, std::size_t> places_
        ZELOR_GUARDED_BY(patchMutex_);  ///< of the patches in the outcomes
    std::vector<PatchOutcome> news_ ZELOR_GUARDED_BY(patchMutex_);
};

}  // namespace zelor::controller

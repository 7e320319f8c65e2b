#pragma once

#include <functional>
#include <string>
#include <vector>

#include "remediation/buffer/BufferedPatches.h"
#include "remediation/fetch/Download.h"
#include "remediation/progress/Cancellation.h"
#include "remediation/progress/Progress.h"
#include "remediation/progress/RunEvents.h"

namespace zelor::remediation {

/// Downloads the patches of requests into the buffer, within the budget and the bandwidth share of the
/// agent's settings. Blocks its thread; a cancel of the whole run, or an interruption of the thread, ends it.
/// Failures are logged, and reported to the events as the outcome of a patch.
class BufferingJob {
  public:
    /// All of them outlive the object. `installPath`: the agent's install directory.
    BufferingJob(const std::string& installPath, BufferedPatches& buffered, Download& download,
                 const Cancellation& cancellation, RunEvents& events);
    BufferingJob(const BufferingJob&) = delete;
    BufferingJob& operator=(const BufferingJob&) = delete;

    /// Buffers the rows that `prepare` makes, patches first. Throws nothing, even when `prepare` throws a
    /// std::exception or boost::thread_interrupted.
    void run(const std::function<RequestRows()>& prepare);
    /// Buffers the files of the rows with content that are not OS updates. An interruption ends it; lets a
    /// std::exception of a collaborator through.
    void buffer(std::vector<remediateMetadata>& rows);

  private:
    bool isCancelled() const;
    bool bufferRows(std::vector<remediateMetadata>& rows);
    bool bufferBlock(parsedEriData& block);

    const std::string& installPath_;
    BufferedPatches& buffered_;
    Download& download_;
    const Cancellation& cancellation_;
    RunEvents& events_;
};

}  // namespace zelor::remediation

#include "remediation/buffer/BufferingJob.h"

#include <boost/thread/thread.hpp>
#include <exception>
#include <utility>

#include "base/Strings.h"
#include "platform/Log.h"
#include "remediation/CallReport.h"
#include "remediation/RecordAccess.h"
#include "remediation/buffer/BufferBudget.h"
#include "remediation/buffer/BufferedPatches.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::remediation {

namespace {

constexpr char kInterrupted[] =
    " [Remediation Manager] (downloadPatchForBuffering) The buffering was interrupted.";

}  // namespace

BufferingJob::BufferingJob(const std::string& installPath, BufferedPatches& buffered, Download& download,
                           const Cancellation& cancellation, RunEvents& events)
    : installPath_(installPath),
      buffered_(buffered),
      download_(download),
      cancellation_(cancellation),
      events_(events) {}

void BufferingJob::run(const std::function<RequestRows()>& prepare) {
    log::debug("  >>> [Remediation Manager] Inside bufferPatches ...");
    try {
        const RequestRows rows = prepare();
        for (auto* list : {&rows.patches, &rows.configurations}) {
            if (!list->empty() && (isCancelled() || !bufferRows(*list))) break;
        }
    } catch (const boost::thread_interrupted&) {
        log::info(kInterrupted);
    } catch (const std::exception& problem) {
        log::error(" [Remediation Manager] Buffering ended with an unexpected error: ", problem.what());
    }
}

bool BufferingJob::isCancelled() const {
    return cancellation_.all() || boost::this_thread::interruption_requested();
}

void BufferingJob::buffer(std::vector<remediateMetadata>& rows) {
    try {
        bufferRows(rows);
    } catch (const boost::thread_interrupted&) {
        log::info(kInterrupted);
    }
}

// False when the job must end. A collaborator may throw boost::thread_interrupted.
bool BufferingJob::bufferRows(std::vector<remediateMetadata>& rows) {
    if (!bufferDirectoriesAreOurs()) return true;
    for (remediateMetadata& request : rows) {
        // The system's updater fetches OS updates; they have no archive.
        if (!RecordAccess::creEriDataPresent(request) || RecordAccess::osRemediation(request)) continue;
        for (parsedEriData& block : RecordAccess::blocks(RecordAccess::creEriData(request))) {
            if (isCancelled() || !bufferBlock(block)) return false;
        }
    }
    return true;
}

// False when the job must end.
bool BufferingJob::bufferBlock(parsedEriData& block) {
    const std::string patchId = base::trimmed(RecordAccess::patchId(block));
    const std::string md5sum = base::trimmed(RecordAccess::md5sum(block));
    if (patchId == "empty") return true;
    const base::Check usable = patchId.empty() ? base::failure("it is empty") : checkFileName(patchId);
    if (!usable) {
        const std::string& unsafe = usable.error().text;
        log::error("[Remediation Manager] (downloadPatchForBuffering) The patch name '", patchId,
                   "' is refused: ", unsafe);
        events_.buffered(patchId, BufferOutcome::skipped, "its name is refused: " + unsafe);
        return true;
    }
    if (buffered_.has(patchId, md5sum, buffered_.listPath())) {
        log::debug("[Remediation Manager] (downloadPatchForBuffering) patch \"", patchId,
                   "\" is already buffered and is latest.");
        events_.buffered(patchId, BufferOutcome::alreadyBuffered);
        return true;
    }
    const PatchName name = cutFourCharacters(patchId);
    std::string archivePath = BufferedPatches::archivePath(bufferedArchiveName(patchId));
    if (exceedsBudget(RecordAccess::patchSize(block))) {
        log::debug("[Remediation Manager] (downloadPatchForBuffering) Patch \"", patchId,
                   "\" buffering skipped as it is exceeding the alloted size for bufferedpatches dir");
        events_.buffered(patchId, BufferOutcome::tooLarge,
                         "it does not fit into what is left of the buffer's size");
        return true;
    }
    const unsigned long rate = bufferingRate(installPath_);
    log::debug("[Remediation Manager] (downloadPatchForBuffering) Patch '", patchId, "' will be buffered at ",
               rate, " bytes/second");
    if (isCancelled()) return false;
    events_.beginDownload("", patchId);
    events_.buffered(patchId, BufferOutcome::downloading);
    if (download_.forBuffer(name, archivePath, rate) == 0) {
        CallReport report;
        buffered_.add(patchId, md5sum, buffered_.listPath());
        events_.buffered(patchId, report.reason().empty() ? BufferOutcome::buffered : BufferOutcome::skipped,
                         report.reason());
    } else {
        const std::string why = events_.downloadProblem();
        events_.buffered(patchId, BufferOutcome::skipped,
                         why.empty() ? "the download was not finished; the next job resumes it" : why);
        log::debug("[Remediation Manager] (downloadPatchForBuffering) Dowdnload patch failed for patch = ",
                   patchId);
    }
    return !download_.bufferingWasStopped();
}

}  // namespace zelor::remediation

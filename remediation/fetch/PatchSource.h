#pragma once

#include <atomic>
#include <string>

#include "remediation/buffer/BufferedPatches.h"
#include "remediation/fetch/Download.h"
#include "remediation/progress/Cancellation.h"
#include "remediation/progress/Progress.h"
#include "remediation/progress/RunEvents.h"

namespace zelor::remediation {

/// A fetched file.
struct FetchedFile {
    std::string path;               ///< in the content directory; "" on any failure
    bool usedBufferedCopy = false;  ///< the archive came from the buffer, even when the fetch failed
    bool cancelled = false;         ///< a cancel ended the fetch, not a failure
};

/// Fetches, unpacks and verifies patches and scripts. Belongs to the run's thread.
class PatchSource {
  public:
    /// All of them outlive the object. Files are unpacked into `contentDirectory`, which other users must not
    /// be able to modify.
    PatchSource(const std::string& contentDirectory, const std::atomic<bool>& internalError,
                Download& download, BufferedPatches& buffered, Progress& progress, Cancellation& cancellation,
                RunEvents& events);
    PatchSource(const PatchSource&) = delete;
    PatchSource& operator=(const PatchSource&) = delete;

    /// Gets the named file into the content directory, from the buffer (when its list has the name with
    /// `md5sum`) or the repository, checks its signature, and records the states of `key` on the way.
    /// Failures are logged and reported to the events.
    FetchedFile fetch(const std::string& fileName, const std::string& key, const std::string& md5sum);
    /// The same for a block of content; then checks once for a cancel and returns how the caller must
    /// proceed. A fetch that was ended by a cancel that has since been withdrawn is repeated.
    Next fetchBlock(const std::string& key, parsedEriData& block, FetchedFile& file);
    /// Checks the file's detached signature: 0 when it is good, else -1, which is logged.
    static int verify(const std::string& filePath, const std::string& extension);

  private:
    bool obtainArchive(const std::string& fileName, const std::string& key, const std::string& md5sum,
                       std::string& archivePath, FetchedFile& file);

    const std::string& contentDirectory_;
    const std::atomic<bool>& internalError_;
    Download& download_;
    BufferedPatches& buffered_;
    Progress& progress_;
    Cancellation& cancellation_;
    RunEvents& events_;
};

}  // namespace zelor::remediation

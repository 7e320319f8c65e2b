#pragma once

#include <ctype.h>  // tolower(int), which the library exports to its callers by making it visible here

#include <atomic>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/Export.h"
#include "remediation/creEriParsedData.h"
#include "remediation/parsedEriData.h"
#include "remediation/remediateMetadata.h"

class MacPatchManager;
namespace zelor {
class AheadOfNeed;
class RunObserver;
}  // namespace zelor
namespace zelor::remediation {
struct RunParts;
}  // namespace zelor::remediation

/// Remediates the findings of one request map.
///
/// Every embedder calls six operations: the constructor, `setovalIdMap`, `setContentDownloadDir`,
/// `remediate`, `getRemDone`, `getRemediationProgressMap`. The others of the groups Inputs, Results and
/// Cancellation, and `bufferPatches`, are for those who need them. Operations marked as steps of the run are
/// not for embedders: the run calls them.
///
/// Life: construct, set the inputs, call `remediate`, poll `getRemDone()` until it is true, then read the
/// results. One manager serves one run, which works on the requests as they were at its start. It must
/// outlive its run: do not destroy it before `getRemDone()` is true.
///
/// Threads: inputs are set before `remediate`; results, progress and the cancel calls may be used from any
/// thread at any moment. Operations that are part of a run (parsing, fetching, installing) belong to the
/// run's thread. The manager never throws at its caller; failures become log lines, progress values and
/// flags.
class ZELOR_API RemediationManager {
  public:
    /// Progress of one request. 4 is success, 5 to 11 are failures.
    enum REM_PROGRESS : int {
        REM_QUEUED = 0,
        REM_DOWNLOADING = 1,
        REM_DOWNLOADED = 2,
        REM_INSTALLING = 3,
        REM_SUCCESS = 4,
        REM_FAILED = 5,
        REM_CRE_FAILED = 6,         ///< the remediation content could not be obtained or parsed
        REM_INTERNAL_FAILED = 7,    ///< the run stopped on an internal error
        REM_INVALID_REQUEST = 8,    ///< no or too many CPEs, or the patch name is not a valid one
        REM_FAILED_9 = 9,           ///< reserved for installers
        REM_FAILED_10 = 10,         ///< reserved for installers
        REM_FAILED_11 = 11,         ///< reserved for installers
        REM_FILE_UNAVAILABLE = 12,  ///< the file is missing or failed its signature check
        REM_ABORTED = 13            ///< cancelled, one by one or with the whole run
    };

    /// `installPath`: the agent's install directory. Asks the system for its product name.
    explicit RemediationManager(std::string installPath);
    ~RemediationManager();
    RemediationManager(const RemediationManager&) = delete;
    RemediationManager& operator=(const RemediationManager&) = delete;

    // Inputs

    /// The requests: CPE text ("cpe,cpe||package name") to CVE or CCE identifier.
    void setovalIdMap(std::map<std::string, std::string> requests);
    /// The requests that were set last, which may differ from those of a run.
    std::map<std::string, std::string> getovalIdMap();
    /// The directory for downloaded content. It is emptied at the end of a run.
    void setContentDownloadDir(std::string directory);
    /// The directory as it was set, "" before.
    std::string getContentDownloadDir();
    /// True: the run starts with an empty installed-patches record, so that what a new scan found is applied
    /// again.
    void setFirstRemediationAfterScan(bool first);
    /// Sets the observer that is called during a run or a buffering job; null for none. It stays the caller's
    /// and must live until `getRemDone()` is true or `bufferPatches` has returned. Threads, order and what an
    /// event may do: see `zelor::RunObserver` in "remediation/RunObserver.h".
    void setRunObserver(zelor::RunObserver* observer);
    /// Who hears what the run will need, so that it can be fetched ahead; null for none, as without a call.
    /// It stays the caller's and must live until `getRemDone()` is true and no other thread cancels. See
    /// "collaborators/AheadOfNeed.h".
    void setAheadOfNeed(zelor::AheadOfNeed* receiver);

    // Run

    /// Starts the run on a new thread and returns at once. `option` is kept and has no effect. While a run of
    /// this manager is in progress, another one is refused with an error line.
    void remediate(bool option);
    /// A step of the run: all of it, on the calling thread. Ends with `getRemDone()` true in every case.
    /// Refused like `remediate` while a run is in progress.
    void concertedRemediationStart();

    // Results

    /// True when the run has ended, however it ended; the manager may then be destroyed.
    bool getRemDone();
    /// True when something that was applied asks for a restart.
    bool getRebootNeeded();
    /// Always false: no remediation asks for a scan.
    bool getScanNeeded();
    /// True when a remediation failed and none succeeded.
    bool getAllRemFailed();
    /// A snapshot of every request's progress, by key. A key "X||Y" whose Y contains "oval:" is stored under
    /// X.
    std::map<std::string, unsigned long> getRemediationProgressMap();
    /// Replaces every progress entry.
    void setRemediationProgressMap(std::map<std::string, unsigned long> progress);
    /// Always empty.
    std::string getDefaultPlatformCpe();
    /// `currentOsName`, which nothing here sets.
    std::string getCurrentOsName();
    /// Logs `currentOsName`.
    void queryAndStoreCurrentOsName();

    // Cancellation

    /// True cancels the whole run, or the buffering job: it ends after the current step, with 13 for all
    /// unfinished requests. A running download is interrupted. False withdraws a cancel that the run has not
    /// yet acted on.
    void setCancelAllRem(bool cancel);
    /// Replaces the set of requests cancelled one by one (request key to any text); an empty map withdraws
    /// them all. A request is cancelled by its whole key as it is in the request map; other keys cancel
    /// nothing.
    void setCancelRemMap(std::map<std::string, std::string> requests);
    /// A snapshot of that set.
    std::map<std::string, std::string> getCancelRemMap();
    /// Interrupts the current download if the run or its request is cancelled. The caller holds
    /// `thread_mutex`.
    void terminateKillableThreads();

    // Progress (steps of the run)

    /// Records a state. 4 and 5 to 11 pass through the collective rule first.
    void insertRemProgressInMap(std::string key, REM_PROGRESS progress);
    /// For a CPE that needs several remediations: `store` says whether there is a result to record, `result`
    /// which.
    void evaluateCollectiveResult(std::string key, REM_PROGRESS progress, bool* store, REM_PROGRESS* result);
    /// Gives 7 to every request that became a row of the run.
    void setAllRemsStatusToFailed();
    /// Gives 7 to the rows without a progress entry.
    void setRemainingRemsStatusToFailed();
    /// Gives 13 to the rows that have neither 4 nor 5 to 11.
    void setAllRemainingRemStatusToAborted();
    /// Gives 13 to every request that is cancelled one by one, whatever its value is.
    void setAbortedRemStatusToAborted();
    /// True, with a log line, when the request with this key is cancelled one by one.
    bool thisRemIsAborted(std::string id);

    // Request parsing and content (steps of the run)

    /// Takes up the requests, makes a row of each usable one, and gets the rows' content. Unusable requests
    /// get their failure.
    void parseCreEriForSupersedesTrue();
    /// Gets the content of the rows; a row without any gets 6.
    void getAndParseCreEriForSupersedesTrue(std::vector<remediateMetadata>& rows);
    /// True when some block updates an Apple product through the operating system.
    bool getOsRemediationFromCre(std::vector<parsedEriData> blocks);
    /// True when some word of the reference names neither a CVE nor a CCE.
    bool refContainsPatchId(std::string reference);
    /// Moves the patches that install unattended to the front; keeps the order otherwise.
    void reArrangeRemMetadata();
    /// True when the row has content, all of which installs unattended.
    bool checkIfSilentModeSupported(remediateMetadata request);

    // Fetch, records, buffering (steps of the run, except bufferPatches)

    /// Gets the named file into the content directory, from the buffer or the repository, and checks its
    /// signature. Returns its path, or "" on any failure. `usedBufferedCopy` says whether the buffered
    /// archive was taken.
    std::string getFileFromRepo(std::string fileName, std::string remKey, std::string bufferMatch,
                                bool& usedBufferedCopy);
    /// Returns the downloader's result: 0 when the archive is complete at `archivePath` (in and out).
    int downloadFileFromRepo(std::string stem, std::string& archivePath, std::string extension,
                             bool rateLimited, unsigned long bytesPerSecond);
    /// 0 when the file's detached signature is good, else -1.
    int verifySignature(std::string filePath, std::string extension);
    /// True when the buffered-patches list has the patch with this MD5, and its archive exists.
    bool patchIsAlreadyBuffered(std::string patchName, std::string md5sum, std::string listPath);
    /// Lists a patch as buffered, replacing older entries. Failures are logged.
    void addPatchBufferedEntry(std::string patchName, std::string md5sum, std::string listPath);
    /// Removes every line that contains `patchName`, even as part of a longer name.
    void removeEntryFromBufferedPatchesFile(std::string patchName);
    /// Deletes the buffered archive of an installed patch, and its entry in the list.
    void cleanupBufferedPatch(std::string patchName, std::string patchFileDownloaded);
    /// Records `eriId` as installed when `installResult` is 0.
    void addEntryInInstalledPatchesFile(int installResult, std::string eriId);
    /// True when any one of the entry's ERIs is recorded as installed.
    bool verifyIfAlreadyAppliedRem(creEriParsedData& creEri);
    /// Pre-downloads the patches of the requests (CPE text to identifier) within the budget and the bandwidth
    /// share. Blocks; not at the same time as a run. Cancelled by `setCancelAllRem(true)`, or by interrupting
    /// the boost::thread it runs on.
    void bufferPatches(std::map<std::string, std::string> requests);
    /// The same for rows with content.
    void downloadPatchForBuffering(std::vector<remediateMetadata> requests);
    /// True when the patch does not fit into what is left of the buffer's budget. `patchSize`: text such as
    /// "12.5 MB".
    bool downloadSizeExceedsAllotedSize(std::string patchSize);
    /// Adds the sizes in bytes of all files below `dir` to `size`. Links are followed; a directory that is
    /// reached more than once counts once.
    void getFoldersize(std::string dir, long& size);
    /// The rate for buffering in bytes per second.
    unsigned long getBpsInPercentOfBandwidth();

    // Installation (steps of the run)

    /// Runs the scripts of the configurations, in order.
    void applyConfigs();
    /// Installs the patches: OS updates, then third-party products.
    void installPatches();
    /// Installs the OS updates, unless the agent's setting leaves them to the user.
    void installOsPatches();
    /// Installs the patches of third-party products. The argument is not used.
    void installNonOsPatches(std::string installPathCopy);
    /// True when some block of the entry asks for a restart.
    bool getRebootStatus(creEriParsedData& creEri);
    /// Deletes the files and the empty directories directly inside the content directory, unless other users
    /// can modify it.
    void emptyTheContentDirectory();

    // Strings (helpers of the steps of the run)

    /// True when `text` ends with `ending`.
    bool stringHasEnding(const std::string& text, const std::string& ending);
    /// The same for wide characters.
    bool wstringHasEnding(const std::wstring& text, const std::wstring& ending);
    /// True when `text` begins with `beginning`.
    bool stringHasBegining(const std::string& text, const std::string& beginning);
    /// The same for wide characters.
    bool wstringHasBegining(const std::wstring& text, const std::wstring& beginning);
    /// True when `text` is longer than `beginning` and begins with it.
    bool stringIsSubset(std::string text, std::string beginning);
    /// `text` without white space at its ends.
    std::string trimString(std::string text);
    /// `text` in two at the first `delimiter`, or whole when there is none.
    std::vector<std::string> splitStr(std::string text, std::string delimiter);
    /// Removes one `c` from the end of `text`.
    void trimTrailingCharacter(std::string& text, char c);
    /// "x86", "x64", "ia64" or "".
    std::string getApplicationArchitecture(std::string text);
    /// Always empty.
    std::string parseCpeAndGetSearchString(std::string cpe);

    /// Guards the writes of the progress map; shared by all managers.
    static boost::mutex mutex;
    /// Guards the request map; shared by all managers.
    static boost::mutex inputMapmutex;
    /// Guards the cancel state and the download thread; taken before `mutex`; shared by all managers.
    static boost::mutex thread_mutex;
    /// The name of the running system, shared by all managers; for the agent to set.
    static std::string currentOsName;

  private:
    friend struct RemediationManagerPeer;  // the tests' way to a state that no input can reach

    // What one manager works on; shared, so that a run keeps its requests while the controller sets others.
    using Requests = std::shared_ptr<const std::map<std::string, std::string>>;

    std::atomic<bool> rebootNeeded{false};
    std::atomic<bool> scanNeeded{false};
    std::atomic<bool> remDone{false};
    std::atomic<bool> allRemFailed{false};
    std::atomic<bool> anyRemSucceeded{false};
    std::atomic<bool> internalError{false};
    std::string systemPlatformCpe;
    std::atomic<bool> firstRemediationAfterScan{false};
    std::atomic<bool> cancelAllRem{false};
    std::string installedPatchesFile;
    std::string installPath;
    bool remediateOption = true;
    std::vector<remediateMetadata> remMetadataForCVE;
    std::vector<remediateMetadata> remMetadataForCCE;
    boost::thread remediationThread;
    boost::thread download_thread;
    std::atomic<bool> downloadThreadDone{false};
    Requests ovalIdMap;
    std::map<std::string, unsigned long> remediationProgressMap;
    std::map<std::string, std::string> cancelRemMap;
    std::string contentDownloadDir;
    std::multimap<std::string, std::string> removedDuplicateEriMap;
    std::string currentRemId;
    std::unique_ptr<MacPatchManager> macPatchManager;
    std::string bufferedPatchesFileName;
    std::multimap<std::string, REM_PROGRESS> collectiveResultMap;

    // What the operations forward to; it works on references to the members above.
    std::unique_ptr<zelor::remediation::RunParts> parts;
};

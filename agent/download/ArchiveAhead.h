#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "agent/download/PartialFile.h"
#include "agent/download/PatchDownload.h"
#include "base/Mutex.h"

namespace zelor::agent {

/// What archives that nobody has asked for yet may take up.
struct AheadLimits {
    std::uint64_t bytes = 0;  ///< of all that are in progress or have come; 0: none is fetched ahead
    /// As in DownloadPolicy.
    std::function<std::uint64_t(const std::string& path)> freeBytes = &zelor::agent::freeBytes;
};

/// What they take up.
struct AheadUse {
    std::size_t archives = 0;   ///< in progress or come
    std::uint64_t bytes = 0;    ///< that they have or will have
    std::uint64_t missing = 0;  ///< of these, those that have not come
};

/// Whether an archive of that length may be begun.
enum class AheadRoom { now, later, never };
/// `free`: the bytes that are free where the archives come to. As much as the archive, for what is unpacked
/// from it, and half a GiB stay free.
AheadRoom aheadRoom(std::uint64_t length, const AheadUse& use, const AheadLimits& limits, std::uint64_t free);

/// Archives that are fetched before the run asks for them, in the order in which it will: large ones one
/// after the other, small ones side by side. Each is a PatchDownload whose first attempt is made early, on a
/// thread of its own; it stays in its partial file, locked, until the downloader takes it. It logs nothing.
/// At the first sign of an outage nothing more is begun. Any thread, but for `begin` and `join`.
class ArchiveAhead {
  public:
    /// For the agent installed in `installPath`.
    explicit ArchiveAhead(std::string installPath) : installPath_(std::move(installPath)) {}
    ~ArchiveAhead() { join(); }
    ArchiveAhead(const ArchiveAhead&) = delete;
    ArchiveAhead& operator=(const ArchiveAhead&) = delete;

    /// Begins with the archives of these patches. What an earlier call left is removed. Returns at once.
    /// Throws std::system_error without a thread.
    void begin(std::vector<std::string> stems, AheadLimits limits);
    /// Nobody will ask for that archive: its transfer ends within a tenth of a second, and what came is
    /// removed.
    void drop(const std::string& stem);
    /// The same for all of them.
    void stop();
    /// Stops, and waits until nothing is in progress.
    void join();

    /// Takes the bytes so far and in all.
    using Report = std::function<void(std::uint64_t done, std::uint64_t total)>;
    /// The download of that archive, for the caller to adopt or abandon; null when it has not begun. Waits,
    /// with reports, for one in progress; when `wait` is false, or the call is to end early, that transfer
    /// ends and the caller continues with it. Who waits is the run: what came before in its order it has
    /// passed over, and that is dropped.
    std::shared_ptr<PatchDownload> take(const std::string& stem, bool wait, const Report& report);

  private:
    struct Entry {
        std::size_t place = 0;  ///< in the order of the run
        std::shared_ptr<PatchDownload> download{};
        bool arrived = false;
        bool wanted = true;   ///< false: its transfer is to end
        bool joined = false;  ///< the downloader waits for it
    };
    class Work;

    bool isWaiting(const std::string& stem);
    bool isWanted(const std::string& stem);
    bool isStopping();
    AheadUse use();
    /// False when it has been taken or dropped meanwhile.
    bool hold(const std::string& stem, const std::shared_ptr<PatchDownload>& download);
    /// Its transfer is over; `whole`: as any first attempt ends.
    void end(const std::string& stem, bool whole);
    void waitForRoom();
    void dropBefore(std::size_t place) ZELOR_REQUIRES(mutex_);
    void run(std::vector<std::string> stems);

    const std::string installPath_;
    AheadLimits limits_;  ///< set while there is no thread
    std::thread thread_;
    base::Mutex mutex_;
    base::Condition changed_;
    std::map<std::string, std::size_t> waiting_ ZELOR_GUARDED_BY(mutex_);  ///< not begun, with their places
    std::map<std::string, Entry> entries_ ZELOR_GUARDED_BY(mutex_);        ///< in progress or come
    bool stopping_ ZELOR_GUARDED_BY(mutex_) = true;
};

/// The one of the agent installed in `installPath`. It is never removed. Any thread.
ArchiveAhead& archiveAheadAt(const std::string& installPath);

}  // namespace zelor::agent

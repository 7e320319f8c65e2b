#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "base/Export.h"

namespace zelor::agent {

/// What is being downloaded now, for a display of progress.
struct DownloadSnapshot {
    bool active = false;
    std::string resource;          ///< the archive's name
    std::uint64_t bytesDone = 0;   ///< including those of an earlier, resumed attempt
    std::uint64_t bytesTotal = 0;  ///< 0: not known
    std::chrono::steady_clock::time_point started;
};

/// The process's latest download. Any thread.
class ZELOR_API DownloadProgress {
  public:
    /// The process-wide object; valid until the process ends.
    static DownloadProgress& instance();

    /// A copy of the current state.
    DownloadSnapshot snapshot() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return snapshot_;
    }
    /// For the downloader: a download of `resource` begins, has `done` of `total` bytes (0: not known), and
    /// ends, complete or not. A second `begin` replaces the first.
    void begin(const std::string& resource) {
        const std::lock_guard<std::mutex> lock(mutex_);
        snapshot_ = {true, resource, 0, 0, std::chrono::steady_clock::now()};
    }
    void advance(std::uint64_t done, std::uint64_t total) {
        const std::lock_guard<std::mutex> lock(mutex_);
        snapshot_.bytesDone = done;
        snapshot_.bytesTotal = total;
    }
    void end() {
        const std::lock_guard<std::mutex> lock(mutex_);
        snapshot_.active = false;
    }

  private:
    mutable std::mutex mutex_;
    DownloadSnapshot snapshot_;
};

}  // namespace zelor::agent

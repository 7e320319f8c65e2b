#pragma once

#include <map>
#include <string>
#include <vector>

#include "remediation/progress/NearbyKey.h"

namespace zelor::remediation {

/// Which requests are cancelled one by one, and which of their progress entries do not show it.
/// `takeUnmarked` takes time in proportion to the writes to such entries since the last call. One thread at a
/// time.
class SingleCancels {
  public:
    /// As in `Cancellation` and `Progress`.
    using Texts = std::map<std::string, std::string>;
    using Duplicates = std::multimap<std::string, std::string>;

    SingleCancels() = default;
    /// The requests whose keys are in `cancelled`; `requests` must outlive the object's last use.
    /// `duplicates`: request key to the keys of removed requests that share its progress.
    SingleCancels(const Texts& requests, const Texts& cancelled, const Duplicates& duplicates);
    SingleCancels(const SingleCancels&) = delete;
    SingleCancels& operator=(const SingleCancels&) = delete;

    /// Notes that an entry of the progress map was written and does not show a cancel.
    void entryWritten(const std::string& progressKey);
    /// Notes that any entry may have been written: none is known to show its cancel.
    void allWritten();
    /// Whether `takeUnmarked` has something to give.
    bool anyUnmarked() const { return !unmarked_.empty(); }
    /// The request keys to mark as cancelled, once for each entry; from now on these entries count as marked.
    std::vector<const std::string*> takeUnmarked();

  private:
    struct Entry {
        std::vector<const std::string*> requests;  ///< keys of the request map
        bool unmarked = false;
    };
    using Entries = std::map<std::string, Entry>;

    void unmark(Entry& entry);

    Entries entries_;  ///< by key of the progress map
    NearbyKey<Entries> nearby_;
    std::vector<Entry*> unmarked_;
};

}  // namespace zelor::remediation

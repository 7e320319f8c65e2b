#pragma once

#include <map>
#include <string>
#include <vector>

#include "remediation/progress/NearbyKey.h"

namespace zelor::remediation {

/// Which requests are cancelled one by one, and which of their progress entries no longer show it. A look
/// costs what was written to such entries since the last one. Not for several threads at once.
class SingleCancels {
  public:
    using Texts = std::map<std::string, std::string>;
    using Duplicates = std::multimap<std::string, std::string>;

    SingleCancels() = default;
    /// The requests among the keys of `cancelled`; `requests` must outlive the object's last use.
    /// `duplicates`: request to the removed ones whose entries follow its own.
    SingleCancels(const Texts& requests, const Texts& cancelled, const Duplicates& duplicates);
    SingleCancels(const SingleCancels&) = delete;
    SingleCancels& operator=(const SingleCancels&) = delete;

    /// An entry of the progress map was written, and does not show a cancel.
    void entryWritten(const std::string& progressKey);
    /// No entry is known to show its cancel.
    void allWritten();
    /// The request keys to mark as cancelled, each once; from now on their entries count as marked.
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

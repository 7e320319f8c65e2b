#pragma once

#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "collaborators/AheadOfNeed.h"

namespace zelor::remediation {

/// Passes on what a run will need to the embedder's object, if there is one. Any thread.
class Needs {
  public:
    Needs() = default;
    Needs(const Needs&) = delete;
    Needs& operator=(const Needs&) = delete;

    /// Null for none; it stays the caller's.
    void setReceiver(AheadOfNeed* receiver) { receiver_ = receiver; }
    /// True when anyone listens.
    bool heard() const { return receiver_ != nullptr; }

    /// As in AheadOfNeed.
    void content(const std::vector<NeededContent>& content);
    void archives(const std::vector<NeededArchive>& archives);
    void notNeeded(const std::map<std::string, std::string>& keys);
    void cancelled();
    void ended();

  private:
    template <class Call>
    void notify(const Call& call);

    std::atomic<AheadOfNeed*> receiver_{nullptr};
};

}  // namespace zelor::remediation

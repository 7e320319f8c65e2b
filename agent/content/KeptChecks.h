#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "agent/content/ContentCheck.h"
#include "agent/content/PatchDigests.h"
#include "base/Mutex.h"
#include "remediation/creEriParsedData.h"

namespace zelor::agent {

/// An entry of content and its checks.
struct CheckedEntry {
    creEriParsedData entry;
    std::vector<ContentCheck> checks;
};

/// The checks of the content that was asked for, which the records of content have no place for. One for the
/// process. Any thread.
///
/// What content says is kept until it is asked for again for the same platform and product, or until content
/// is asked for in a later run. Content without a check takes no room, unless
/// `keepAlso` asks for it.
class KeptChecks {
  public:
    /// The one of the process; never destroyed.
    static KeptChecks& instance();

    /// Takes the place of what that source said before.
    void say(const WantedPatches::Source& source, const creEriParsedData& entry,
             std::vector<ContentCheck> checks);
    /// What it said last; empty when it has no check and is not kept without.
    CheckedEntry of(const WantedPatches::Source& source) const;
    /// From now on keeps entries without a check too for which `wanted`, which must not throw, is true.
    void keepAlso(bool (*wanted)(const creEriParsedData& entry));

  private:
    mutable base::Mutex mutex_;
    std::uint64_t run_ ZELOR_GUARDED_BY(mutex_) = 0;
    bool (*wanted_)(const creEriParsedData& entry) ZELOR_GUARDED_BY(mutex_) = nullptr;
    std::map<std::vector<std::string>, CheckedEntry> entries_ ZELOR_GUARDED_BY(mutex_);
};

}  // namespace zelor::agent

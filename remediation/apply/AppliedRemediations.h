#pragma once

#include <string>

#include "remediation/apply/InstalledRecord.h"
#include "remediation/creEriParsedData.h"

namespace zelor::remediation {

/// Which remediations the installed-patches record names. Failures of the file are logged. One thread at a
/// time.
class AppliedRemediations {
  public:
    /// `path`: the record's file; the string outlives the object.
    explicit AppliedRemediations(const std::string& path) : path_(path) {}
    AppliedRemediations(const AppliedRemediations&) = delete;
    AppliedRemediations& operator=(const AppliedRemediations&) = delete;

    /// Records `eriId` when `result` is 0. An id with control characters is refused with an error line.
    void add(int result, const std::string& eriId);
    /// True when any one of the entry's ERIs is recorded.
    bool covers(creEriParsedData& entry);
    /// Empties the record if it exists, so that everything is applied again.
    void reset();

  private:
    const std::string& path_;
    InstalledRecord record_;
};

}  // namespace zelor::remediation

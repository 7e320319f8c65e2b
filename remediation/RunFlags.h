#pragma once

#include <atomic>

namespace zelor::remediation {

/// What a run reports besides the progress of its requests. Any thread. The flags outlive the object.
struct RunFlags {
    std::atomic<bool>& rebootNeeded;
    std::atomic<bool>& scanNeeded;
    std::atomic<bool>& allFailed;  ///< some remediation failed; read it by `everyOneFailed`
    std::atomic<bool>& anySucceeded;
    std::atomic<bool>& internalError;  ///< the run must stop

    /// True when a remediation failed and none succeeded; else `allFailed` is reset.
    bool everyOneFailed() const {
        // In this order: a success between the two reads came after a moment in which all had failed.
        const bool failed = allFailed;
        if (!anySucceeded) return failed;
        allFailed = false;
        return false;
    }
};

}  // namespace zelor::remediation

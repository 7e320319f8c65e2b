#include "agent/DownloadProgress.h"

namespace zelor::agent {

// Not inline, so that a process has one even when the agent is a shared library.
DownloadProgress& DownloadProgress::instance() {
    // Never destroyed: a run's thread may outlive main().
    static DownloadProgress& progress = *new DownloadProgress;
    return progress;
}

}  // namespace zelor::agent

#pragma once

#include <boost/thread/mutex.hpp>
#include <map>
#include <string>

#include "remediation/progress/Cancellation.h"

namespace zelor::remediation {

/// The requests as they were set last, and those that a run or a buffering job works on. Any thread.
class RequestStore {
  public:
    using Requests = Cancellation::Requests;

    /// All of them outlive the object. `requests`, not null, is guarded by `mutex` from now on.
    RequestStore(Requests& requests, boost::mutex& mutex, Cancellation& cancellation);
    RequestStore(const RequestStore&) = delete;
    RequestStore& operator=(const RequestStore&) = delete;

    /// Replaces the requests; a run that has taken up others keeps those.
    void set(std::map<std::string, std::string> requests);
    std::map<std::string, std::string> copy() const;
    /// The requests that are set, for a run to work on; what is set from here on is for a later one.
    Requests takeUp();
    /// What was taken up last, else what is set.
    Requests takenUp() const;
    /// Keeps the requests from being set, or copied, as long as the lock is held. Nothing else of this object
    /// is called meanwhile.
    boost::unique_lock<boost::mutex> hold() const { return boost::unique_lock<boost::mutex>(mutex_); }

  private:
    Requests& requests_;
    boost::mutex& mutex_;
    Cancellation& cancellation_;
    Requests takenUp_;  ///< guarded by `mutex_`
};

}  // namespace zelor::remediation

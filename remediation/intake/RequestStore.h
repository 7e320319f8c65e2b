#pragma once

#include <boost/thread/mutex.hpp>
#include <map>
#include <string>

#include "remediation/progress/Cancellation.h"

namespace zelor::remediation {

/// The requests that were set last, and those that a run or a buffering job works on. Any thread.
class RequestStore {
  public:
    /// Request key to identifier; unchanged once shared.
    using Requests = Cancellation::Requests;

    /// All of them outlive the object. `requests` is not null, and guarded by `mutex` from now on.
    RequestStore(Requests& requests, boost::mutex& mutex, Cancellation& cancellation);
    RequestStore(const RequestStore&) = delete;
    RequestStore& operator=(const RequestStore&) = delete;

    /// Replaces the requests; a run that has taken up others keeps those.
    void set(std::map<std::string, std::string> requests);
    /// A copy of the requests that were set last.
    std::map<std::string, std::string> copy() const;
    /// Returns the requests that were set last, for a run to work on; later ones are for a later run.
    Requests takeUp();
    /// The requests that were taken up last, else those that are set.
    Requests takenUp() const;
    /// Keeps the requests from being set or copied while the lock is held. Its holder must not call this
    /// object.
    boost::unique_lock<boost::mutex> hold() const { return boost::unique_lock<boost::mutex>(mutex_); }

  private:
    Requests& requests_;
    boost::mutex& mutex_;
    Cancellation& cancellation_;
    Requests takenUp_;  ///< guarded by `mutex_`
};

}  // namespace zelor::remediation

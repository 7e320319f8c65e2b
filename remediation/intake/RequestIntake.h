#pragma once

#include <set>
#include <string>
#include <vector>

#include "remediation/RunFlags.h"
#include "remediation/intake/RequestContent.h"
#include "remediation/intake/RequestStore.h"
#include "remediation/progress/Cancellation.h"
#include "remediation/progress/Needs.h"
#include "remediation/progress/Progress.h"
#include "remediation/progress/RunEvents.h"

namespace zelor::remediation {

/// Turns requests into rows and gets their content. Requests that cannot be used are recorded as failed and
/// logged. Belongs to the run's or the buffering job's thread.
class RequestIntake {
  public:
    /// All of them outlive the object. `rows` are filled; `platformCpe` counts for requests without one.
    RequestIntake(RequestRows rows, const std::string& platformCpe, RequestStore& store,
                  RequestContent& content, RunFlags flags, Progress& progress, Cancellation& cancellation,
                  RunEvents& events);
    RequestIntake(const RequestIntake&) = delete;
    RequestIntake& operator=(const RequestIntake&) = delete;

    /// Takes up the requests, adds a row for each usable one, announces what content they need, if there are
    /// `needs`, and gets it. Ends early when the whole run is cancelled.
    void parseAll(Needs* needs = nullptr);
    /// Gets the content of rows; only the row list of the patches counts for collective results.
    void getContent(std::vector<remediateMetadata>& rows);
    /// Moves the patches that install unattended to the front; keeps the order otherwise. Does nothing when
    /// the whole run is cancelled.
    void putUnattendedFirst();
    /// True when the row has content and all of it installs unattended; logs when not.
    static bool installsUnattended(const remediateMetadata& row);

  private:
    void parse(const std::string& key, const std::string& identifier,
               const std::set<std::string>& specialCases);
    void beginCounting();
    void announce(Needs& needs);
    bool getContentUnlessCancelled(remediateMetadata& row);
    bool getContent(remediateMetadata& row);

    RequestRows rows_;
    const std::string& platformCpe_;
    RequestStore& store_;
    RequestContent& content_;
    RunFlags flags_;
    Progress& progress_;
    Cancellation& cancellation_;
    RunEvents& events_;
    bool counting_ = false;  ///< how many remediations each key needs
};

}  // namespace zelor::remediation

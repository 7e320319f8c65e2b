#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "controller/requests/ScanFindings.h"
#include "controller/run/Requests.h"

namespace zelor::controller {

/// A finding for which no request is made, and why; both printable.
struct LeftOut {
    std::string source;
    std::string reason;
};

/// Makes the map of requests from what scans found.
///
/// A key has at most one operating system and one application, in CPE 2.2 (names of CPE 2.3 are rewritten),
/// and a package name. The library reports results by key, and folds those of keys with "oval:" into one; so
/// a package name never contains that, and each request gets a key of its own. An identifier that is found
/// twice for the same names is one request.
class RequestMaker {
  public:
    /// `platform`, `product`: CPE names for all findings in place of their own, "" for none.
    RequestMaker(std::string platform, std::string product)
        : platform_(std::move(platform)), product_(std::move(product)) {}

    /// Adds the requests of one file; `file` names it in messages.
    void add(const Scan& scan, const std::string& file);

    /// What was made so far, in the order of the keys and of the findings.
    const RequestMap& requests() const { return requests_; }
    const std::vector<LeftOut>& leftOut() const { return leftOut_; }
    /// How many findings were the same request as an earlier one.
    std::size_t merged() const { return merged_; }

  private:
    std::string namesOf(const ScanFinding& finding, std::string& problem) const;
    void addRequest(const std::string& names, const std::string& name, const std::string& identifier);

    std::string platform_;
    std::string product_;
    RequestMap requests_;
    std::set<std::pair<std::string, std::string>> made_;  ///< names and identifier
    std::vector<LeftOut> leftOut_;
    std::size_t merged_ = 0;
};

/// A CPE name as keys have it: an operating system or application in CPE 2.2; "" for another text.
std::string keyCpe(const std::string& name);

/// The requests as a JSON object, one line for each.
std::string requestsJson(const RequestMap& requests);

}  // namespace zelor::controller

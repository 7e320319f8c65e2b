#pragma once

#include <map>
#include <string>

namespace zelor::controller {

/// Request key (CPE text) to CVE or CCE identifier.
using RequestMap = std::map<std::string, std::string>;

/// Request key to why the request cannot be used, with the remedy.
using InvalidRequests = std::map<std::string, std::string>;

/// The rows of a requests file.
struct Requests {
    RequestMap all;           ///< the identifier of an invalid one is "" when it was not a string
    InvalidRequests invalid;  ///< those of `all` that no run can use

    /// `all` without the invalid ones.
    RequestMap usable() const;
    /// Why no run can use a request of `all`; "" when one can.
    std::string problemOf(const std::string& key) const;
};

/// The requests in `text`, a JSON object from keys to identifiers. A blank key, a blank identifier and one
/// that is not a string make that request invalid. `name` is the text's name in messages. Throws InputError
/// that names the line and the remedy when the text is something else or a key occurs twice.
Requests parseRequests(const std::string& text, const std::string& name);

/// The requests in a file of at most 1 GiB, "-" for standard input. Throws InputError.
Requests loadRequests(const std::string& path);

}  // namespace zelor::controller

#pragma once

#include <cstdint>
#include <string>

#include "agent/http/HttpClient.h"
#include "base/Result.h"

/// The headers by which a download learns of lengths and resumes. Pure functions.
namespace zelor::agent {

/// The length that an answer announces; 0: none that can be read.
std::uint64_t contentLength(const HttpHead& head);

/// The bytes that a Content-Range header announces.
struct ContentRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::uint64_t total = 0;  ///< 0: not known
};
/// Reads the value of such a header; the failure says what is wrong with it.
base::Result<ContentRange> parseContentRange(const std::string& header);

/// The validator for resuming this answer later: a strong ETag, else a Last-Modified that is old enough to
/// belong to one version only, else "".
std::string resumptionValidator(const HttpHead& head);

}  // namespace zelor::agent

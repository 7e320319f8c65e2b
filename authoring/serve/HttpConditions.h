#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

/// How a static file server selects its answer, by RFC 9110. Pure functions.
namespace zelor::authoring {

/// What a server compares a request's conditions with.
struct FileVersion {
    std::uint64_t size = 0;
    std::time_t modified = 0;
    std::string etag;  ///< strong, with its quotes
};

/// The conditional headers of one request; "" for a missing one.
struct RequestConditions {
    std::string range;
    std::string ifRange;
    std::string ifNoneMatch;
    std::string ifModifiedSince;
};

/// Which answer a request gets: 200, 206, 304 or 416.
enum class Selection { whole, part, notModified, unsatisfiable };

/// What to answer: `offset` and `length` say which bytes, for `whole` and `part`.
struct Answer {
    Selection selection = Selection::whole;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};

/// The answer to a request. One for several ranges, or for a range that cannot be parsed, gets the whole
/// file.
Answer selectAnswer(const RequestConditions& conditions, const FileVersion& file);

/// How caches may keep the file at a request's path: one whose name has its version or digest in it for ever,
/// the timestamp of metadata only if they ask again at every use; "" for other files.
std::string cacheControl(const std::string& path);

/// A time as in HTTP headers: "Sun, 06 Nov 1994 08:49:37 GMT".
std::string httpDate(std::time_t time);
/// The reverse; nothing for a text of another form.
std::optional<std::time_t> parseHttpDate(const std::string& text);

/// The percent-decoded components of a request's path; nothing for one that must not be served: with a bad
/// escape, a zero byte, an encoded separator, or a name that begins with a dot.
std::optional<std::vector<std::string>> servedPathComponents(const std::string& path);

}  // namespace zelor::authoring

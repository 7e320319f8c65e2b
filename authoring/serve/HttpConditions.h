#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

/// The decisions of a static file server that RFC 9110 leaves no room in. Pure.
namespace zelor::authoring {

/// What a server compares a request's conditions with.
struct FileVersion {
    std::uint64_t size = 0;
    std::time_t modified = 0;
    std::string etag;  ///< strong, with its quotes
};

/// The conditional headers of one request; "" is an absent one.
struct RequestConditions {
    std::string range;
    std::string ifRange;
    std::string ifNoneMatch;
    std::string ifModifiedSince;
};

enum class Selection { whole, part, notModified, unsatisfiable };

/// What to answer: `offset` and `length` say which bytes, for `whole` and `part`.
struct Answer {
    Selection selection = Selection::whole;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};

/// A request for several ranges, or for none that can be read, is answered whole.
Answer selectAnswer(const RequestConditions& conditions, const FileVersion& file);

/// "Sun, 06 Nov 1994 08:49:37 GMT"
std::string httpDate(std::time_t time);
/// Nothing for a text of another form.
std::optional<std::time_t> parseHttpDate(const std::string& text);

/// The file names that a request's path leads through, percent-decoded; nothing for one that no directory
/// served may answer: a bad escape, a zero byte, an encoded separator, a name that begins with a dot.
std::optional<std::vector<std::string>> servedPathComponents(const std::string& path);

}  // namespace zelor::authoring

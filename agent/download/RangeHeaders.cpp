#include "agent/download/RangeHeaders.h"

#include <curl/curl.h>

#include <charconv>
#include <ctime>
#include <string_view>
#include <system_error>

namespace zelor::agent {

namespace {

/// Moves a whole number from the start of the text to `value`; false when there is none.
bool takeNumber(std::string_view& text, std::uint64_t& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool takeText(std::string_view& text, std::string_view expected) {
    if (text.substr(0, expected.size()) != expected) return false;
    text.remove_prefix(expected.size());
    return true;
}

}  // namespace

std::uint64_t contentLength(const HttpHead& head) {
    std::string_view text = head.header("content-length");
    std::uint64_t length = 0;
    return takeNumber(text, length) && text.empty() ? length : 0;
}

base::Result<ContentRange> parseContentRange(const std::string& header) {
    std::string_view text = header;
    ContentRange range;
    if (!takeText(text, "bytes ") || !takeNumber(text, range.first) || !takeText(text, "-") ||
        !takeNumber(text, range.last) || !takeText(text, "/") || range.last < range.first) {
        return base::failure("it is no range of bytes");
    }
    if (text == "*") return range;
    if (takeNumber(text, range.total) && text.empty() && range.last < range.total) return range;
    return base::failure("its total is not possible");
}

std::string resumptionValidator(const HttpHead& head) {
    std::string etag = head.validator("etag");
    if (etag.size() > 2 && etag.front() == '"' && etag.back() == '"') return etag;
    const std::string& modified = head.header("last-modified");
    if (modified.empty()) return "";
    const std::time_t changed = curl_getdate(modified.c_str(), nullptr);
    const std::time_t answered = curl_getdate(head.header("date").c_str(), nullptr);
    return changed >= 0 && answered > changed ? modified : "";
}

}  // namespace zelor::agent

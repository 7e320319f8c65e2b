#include "authoring/serve/HttpConditions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr std::string_view kBlanks = " \t";

std::optional<std::uint64_t> number(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

bool listHolds(std::string_view list, std::string_view etag) {
    while (!list.empty()) {
        const auto comma = list.find(',');
        std::string_view tag = base::trimmedView(list.substr(0, comma), kBlanks);
        if (tag == "*") return true;
        if (tag.substr(0, 2) == "W/") tag.remove_prefix(2);
        if (tag == etag) return true;
        list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
    }
    return false;
}

bool unchanged(const RequestConditions& conditions, const FileVersion& file) {
    if (!conditions.ifNoneMatch.empty()) return listHolds(conditions.ifNoneMatch, file.etag);
    const auto since = parseHttpDate(conditions.ifModifiedSince);
    return since && file.modified <= *since;
}

bool rangeApplies(const RequestConditions& conditions, const FileVersion& file) {
    const std::string_view validator = base::trimmedView(conditions.ifRange, kBlanks);
    return validator.empty() || validator == file.etag || validator == httpDate(file.modified);
}

Answer part(std::string_view range, const FileVersion& file) {
    const Answer whole{Selection::whole, 0, file.size};
    constexpr std::string_view kUnit = "bytes=";
    range = base::trimmedView(range, kBlanks);
    const auto dash = range.find('-');
    if (range.substr(0, kUnit.size()) != kUnit || dash == std::string_view::npos) return whole;
    const std::string_view firstText =
        base::trimmedView(range.substr(kUnit.size(), dash - kUnit.size()), kBlanks);
    const std::string_view lastText = base::trimmedView(range.substr(dash + 1), kBlanks);
    const auto first = number(firstText);
    const auto last = number(lastText);
    if ((!first && !firstText.empty()) || (!last && !lastText.empty()) || (!first && !last)) return whole;
    if (!first) {
        if (*last == 0 || file.size == 0) return {Selection::unsatisfiable, 0, 0};
        const std::uint64_t length = std::min(*last, file.size);
        return {Selection::part, file.size - length, length};
    }
    if (last && *last < *first) return whole;
    if (*first >= file.size) return {Selection::unsatisfiable, 0, 0};
    const std::uint64_t end = last && *last < file.size ? *last + 1 : file.size;
    return {Selection::part, *first, end - *first};
}

std::optional<std::string> decoded(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        const int high = base::hexValue(text[i + 1]);
        const int low = base::hexValue(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return out;
}

}  // namespace

Answer selectAnswer(const RequestConditions& conditions, const FileVersion& file) {
    if (unchanged(conditions, file)) return {Selection::notModified, 0, 0};
    if (conditions.range.empty() || !rangeApplies(conditions, file)) return {Selection::whole, 0, file.size};
    return part(conditions.range, file);
}

std::string httpDate(std::time_t time) {
    std::tm utc{};
    gmtime_r(&time, &utc);
    std::array<char, 40> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &utc);
    return {text.data(), size};
}

std::optional<std::time_t> parseHttpDate(const std::string& text) {
    std::tm utc{};
    const char* end = strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &utc);
    if (end == nullptr || *end != '\0') return std::nullopt;
    return timegm(&utc);
}

std::optional<std::vector<std::string>> servedPathComponents(const std::string& path) {
    std::vector<std::string> names;
    std::size_t begin = 0;
    while (begin <= path.size()) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        const auto name = decoded(std::string_view(path).substr(begin, end - begin));
        begin = end + 1;
        if (!name || name->find_first_of(std::string_view("/\0", 2)) != std::string::npos)
            return std::nullopt;
        if (name->empty()) continue;
        if (name->front() == '.') return std::nullopt;
        names.push_back(*name);
    }
    return names;
}

std::string cacheControl(const std::string& path) {
    constexpr std::size_t kDigestDigits = 64;
    if (path == "/metadata/timestamp.json") return "no-cache";
    const auto name = path.rfind('/') + 1, dot = path.find('.', name);
    if (dot == std::string::npos) return "";
    const std::string directory = path.substr(0, name), prefix = path.substr(name, dot - name);
    const bool version =
        directory == "/metadata/" && prefix.find_first_not_of("0123456789") == std::string::npos;
    const bool digest = directory == "/content/" && prefix.size() == kDigestDigits &&
                        prefix.find_first_not_of("0123456789abcdef") == std::string::npos;
    return version || digest ? "public, max-age=31536000, immutable" : "";
}

}  // namespace zelor::authoring

#include "controller/run/Requests.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "base/Strings.h"
#include "controller/InputError.h"
#include "controller/InputFile.h"
#include "controller/Text.h"

namespace zelor::controller {

namespace {

using nlohmann::json;

constexpr std::size_t kFileBytesLimit = std::size_t{1} << 30U;

/// Reads a text and counts its lines, since the parser reports them only for syntax errors.
class CountingIterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* at, std::size_t* lines) : at_(at), lines_(lines) {}
    reference operator*() const { return *at_; }
    CountingIterator& operator++() {
        if (*at_ == '\n') ++*lines_;
        ++at_;
        return *this;
    }
    bool operator==(const CountingIterator& other) const { return at_ == other.at_; }
    bool operator!=(const CountingIterator& other) const { return at_ != other.at_; }

  private:
    const char* at_;
    std::size_t* lines_;
};

/// Handles the parser's events; accepts one object whose values are strings.
class RequestReader : public nlohmann::json_sax<json> {
  public:
    RequestReader(std::string name, const std::size_t* line) : name_(std::move(name)), line_(line) {}

    Requests take() { return std::move(requests_); }

    bool null() override { return other("null"); }
    bool boolean(bool /*value*/) override { return other("a boolean"); }
    bool number_integer(number_integer_t /*value*/) override { return other("a number"); }
    bool number_unsigned(number_unsigned_t /*value*/) override { return other("a number"); }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override {
        return other("a number");
    }
    bool binary(binary_t& /*value*/) override { return other("binary data"); }
    bool start_array(std::size_t /*elements*/) override {
        other("an array");
        ++depth_;
        return true;
    }
    bool start_object(std::size_t /*elements*/) override {
        if (depth_ > 0) other("an object");
        ++depth_;
        return true;
    }
    bool end_array() override { return leave(); }
    bool end_object() override { return leave(); }

    bool key(string_t& text) override {
        if (depth_ == 1) key_ = text;
        return true;
    }
    bool string(string_t& text) override {
        if (depth_ != 1) return other("a string");
        add(text,
            base::trimmed(text).empty() ? "its identifier is empty; give its CVE or CCE identifier" : "");
        return true;
    }
    bool parse_error(std::size_t position, const std::string& /*token*/,
                     const nlohmann::detail::exception& problem) override {
        const std::string text = problem.what();
        const auto detail = text.find(": ");
        fail("byte " + std::to_string(position) + ": not valid JSON in UTF-8 (" +
             base::printable(detail == std::string::npos ? text : text.substr(detail + 2)) +
             "); write one object from request keys to identifiers, for example {\"cpe:/o:apple:mac_os_x,"
             "cpe:/a:example:editor||Example Editor\": \"CVE-2014-4459\"}");
    }

  private:
    static std::string quoted(const std::string& text) { return '"' + base::printable(text) + '"'; }

    bool leave() {
        --depth_;
        return true;
    }
    /// A value that is not an identifier; what it contains is ignored.
    bool other(const std::string& what) {
        if (depth_ == 0) {
            fail("the text is " + what +
                 " where an object is needed; write one object from request keys to identifiers");
        }
        if (depth_ == 1)
            add("", "its identifier is " + what + "; write its CVE or CCE identifier as a string");
        return true;
    }
    void add(const std::string& identifier, std::string problem) {
        if (!requests_.all.emplace(key_, identifier).second)
            fail("the request " + quoted(key_) + " is duplicated; remove one");
        if (base::trimmed(key_).empty()) problem = "its key is empty; give the CPE names that it is for";
        if (!problem.empty())
            requests_.invalid.emplace(key_, "line " + std::to_string(*line_) + ": " + problem);
    }
    [[noreturn]] void fail(const std::string& problem) const {
        throw InputError(name_ + ", line " + std::to_string(*line_) + ": " + problem);
    }

    std::string name_;
    const std::size_t* line_;
    std::size_t depth_ = 0;  ///< of arrays and objects around the value
    std::string key_;
    Requests requests_;
};

}  // namespace

std::string Requests::problemOf(const std::string& key) const {
    const auto found = invalid.find(key);
    return found == invalid.end() ? "" : found->second;
}

RequestMap Requests::usable() const {
    RequestMap rest = all;
    for (const auto& [key, problem] : invalid)
        rest.erase(key);
    return rest;
}

Requests parseRequests(const std::string& text, const std::string& name) {
    std::size_t line = 1;
    RequestReader reader(name, &line);
    json::sax_parse(CountingIterator(text.data(), &line), CountingIterator(text.data() + text.size(), &line),
                    &reader);
    Requests requests = reader.take();
    if (requests.all.empty()) throw InputError(name + " contains no request; add at least one");
    return requests;
}

Requests loadRequests(const std::string& path) {
    const std::string text =
        readInput(path, {kFileBytesLimit, "a JSON file of requests", "split the requests into several runs"});
    return parseRequests(text, inputName(path));
}

}  // namespace zelor::controller

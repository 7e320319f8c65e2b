#include "controller/run/Requests.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <utility>

#include "agent/Files.h"
#include "base/Files.h"
#include "controller/InputError.h"
#include "controller/Text.h"

namespace zelor::controller {

namespace {

using nlohmann::json;

constexpr std::size_t fileBytesLimit = std::size_t{1} << 30U;

/// Reads a text and keeps count of its lines, since the parser tells of them in syntax errors alone.
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

/// Takes the parser's events: one object of strings is let through, nothing else.
class RequestReader : public nlohmann::json_sax<json> {
  public:
    RequestReader(std::string name, const std::size_t* line) : name_(std::move(name)), line_(line) {}

    RequestMap take() { return std::move(requests_); }

    bool null() override { refuse("null"); }
    bool boolean(bool /*value*/) override { refuse("a boolean"); }
    bool number_integer(number_integer_t /*value*/) override { refuse("a number"); }
    bool number_unsigned(number_unsigned_t /*value*/) override { refuse("a number"); }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { refuse("a number"); }
    bool binary(binary_t& /*value*/) override { refuse("binary data"); }
    bool start_array(std::size_t /*elements*/) override { refuse("an array"); }
    bool end_array() override { return true; }
    bool end_object() override { return true; }

    bool start_object(std::size_t /*elements*/) override {
        if (inside_) refuse("an object");
        inside_ = true;
        return true;
    }
    bool key(string_t& text) override {
        key_ = text;
        return true;
    }
    bool string(string_t& text) override {
        if (!inside_) refuse("a string");
        if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
            fail("the identifier of the request " + quoted(key_) +
                 " is empty; give its CVE or CCE identifier");
        }
        if (!requests_.emplace(key_, text).second) {
            fail("the request " + quoted(key_) + " stands there twice; leave one of them out");
        }
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

    [[noreturn]] void refuse(const std::string& what) const {
        if (!inside_) {
            fail("the text is " + what +
                 " where an object is needed; write one object from request keys to identifiers");
        }
        fail("the request " + quoted(key_) + " has " + what +
             " where its CVE or CCE identifier is needed; write it as a string");
    }
    [[noreturn]] void fail(const std::string& problem) const {
        throw InputError(name_ + ", line " + std::to_string(*line_) + ": " + problem);
    }

    std::string name_;
    const std::size_t* line_;
    bool inside_ = false;
    std::string key_;
    RequestMap requests_;
};

}  // namespace

RequestMap parseRequests(const std::string& text, const std::string& name) {
    std::size_t line = 1;
    RequestReader reader(name, &line);
    json::sax_parse(CountingIterator(text.data(), &line), CountingIterator(text.data() + text.size(), &line),
                    &reader);
    RequestMap requests = reader.take();
    if (requests.empty()) throw InputError(name + " holds no request; add at least one");
    return requests;
}

RequestMap loadRequests(const std::string& path) {
    const bool standardInput = path == "-";
    const std::string name = standardInput ? "standard input" : path;
    base::UniqueFd file;
    if (!standardInput) file = base::openFile(path, O_RDONLY | O_NOCTTY);
    if (!standardInput && !file) {
        throw InputError("cannot open " + path + ": " + agent::errorText(errno) +
                         "; name a JSON file of requests, or - for standard input");
    }
    std::string text;
    std::string piece(std::size_t{1} << 16U, '\0');
    for (;;) {
        const ssize_t got = ::read(standardInput ? STDIN_FILENO : file.get(), piece.data(), piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw InputError("cannot read " + name + ": " + agent::errorText(errno));
        if (got == 0) break;
        text.append(piece, 0, static_cast<std::size_t>(got));
        if (text.size() > fileBytesLimit) {
            throw InputError(name + " is larger than 1 GiB; split the requests into several runs");
        }
    }
    return parseRequests(text, name);
}

}  // namespace zelor::controller

#include <algorithm>
#include <iterator>
#include <vector>

#include "authoring/import/RuleScript.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t kNameLength = 4;  // of $ODV

bool isWordByte(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '.';
}

/// A value that means the same in every language and between any quotes.
bool isSimple(const std::string& value) {
    if (value.empty()) return false;
    const bool negative = value[0] == '-' && value.size() > 1 && value[1] >= '0' && value[1] <= '9';
    const auto harmless = [](char c) {
        return isWordByte(c) || c == '-' || c == ':' || c == ',' || c == '@';
    };
    return (negative || isWordByte(value[0])) && std::all_of(value.begin(), value.end(), harmless);
}

/// What takes text for a program, or an arithmetic expression, that could run commands.
constexpr const char* kInterpreters[] = {"awk", "sed",  "perl",   "python", "ruby", "osascript", "jq",
                                         "php", "eval", "source", "let ",   "[[",   "((",        "sh -c",
                                         "sh ", "ssh",  "xargs",  "find ",  "<<",   "`",         "$["};

std::string lineAround(const std::string& script, std::size_t at) {
    const auto before = script.rfind('\n', at);
    const auto begin = before == std::string::npos ? 0 : before + 1;
    return script.substr(begin, script.find('\n', at) - begin);
}

/// Follows bash's quotes through a script.
class Quotes {
  public:
    enum class Place { word, doubleQuotes, singleQuotes, comment };

    Place place() const { return open_.empty() ? Place::word : open_.back(); }

    /// Passes the byte at `at`; returns how many were passed.
    std::size_t pass(const std::string& script, std::size_t at) {
        const char c = script[at];
        switch (place()) {
            case Place::singleQuotes:
                if (c == '\'') open_.pop_back();
                return 1;
            case Place::comment:
                if (c == '\n') open_.pop_back();
                return 1;
            case Place::doubleQuotes:
                if (c == '"') open_.pop_back();
                return c == '\\' ? 2 : openSubstitution(script, at);
            case Place::word:
                return passInWord(script, at);
        }
        return 1;
    }

  private:
    std::size_t openSubstitution(const std::string& script, std::size_t at) {
        if (script.compare(at, 2, "$(") != 0) return 1;
        open_.push_back(Place::word);
        return 2;
    }

    std::size_t passInWord(const std::string& script, std::size_t at) {
        const char c = script[at], before = at == 0 ? '\n' : script[at - 1];
        if (c == '\'') open_.push_back(Place::singleQuotes);
        if (c == '"') open_.push_back(Place::doubleQuotes);
        if (c == '#' && (before == '\n' || before == ' ' || before == '\t' || before == ';'))
            open_.push_back(Place::comment);
        if (c == '(') open_.push_back(Place::word);
        if (c == ')' && !open_.empty()) open_.pop_back();
        return c == '\\' ? 2 : openSubstitution(script, at);
    }

    std::vector<Place> open_;
};

base::Result<std::string> expansion(const std::string& script, std::size_t at, Quotes::Place place) {
    const std::string line = lineAround(script, at);
    const auto inLine = [&](const char* word) { return base::contains(line, word); };
    if (place == Quotes::Place::comment) return std::string("ODV");
    if (place == Quotes::Place::singleQuotes || base::contains(script, "<<"))
        return base::failure(
            "the value of $ODV is not a simple word, and is used inside another program's text");
    if (std::any_of(std::begin(kInterpreters), std::end(kInterpreters), inLine) ||
        (at > 0 && script[at - 1] == '\\'))
        return base::failure("the value of $ODV is no simple word, and could be run as a command there");
    return std::string(place == Quotes::Place::doubleQuotes ? "${ODV}" : "\"${ODV}\"");
}

}  // namespace

base::Result<std::string> filledIn(const std::string& script, const std::string& value) {
    const bool simple = isSimple(value);
    std::string filled;
    Quotes quotes;
    for (std::size_t at = 0; at < script.size();) {
        if (script.compare(at, kNameLength, "$ODV") == 0) {
            auto text = simple ? base::Result<std::string>(value) : expansion(script, at, quotes.place());
            if (!text) return text;
            filled += *text;
            at += kNameLength;
            continue;
        }
        const std::size_t bytes = simple ? 1 : quotes.pass(script, at);
        filled += script.substr(at, bytes);
        at += bytes;
    }
    return filled;
}

}  // namespace zelor::authoring

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

/// What takes text for a program. A value may reach it by a variable, so it is looked for in all of a script.
constexpr const char* kInterpreters[] = {"awk",  "gawk",  "mawk",      "nawk",   "sed",  "perl", "python",
                                         "ruby", "php",   "jq",        "sh",     "bash", "zsh",  "ksh",
                                         "csh",  "tcsh",  "dash",      "ssh",    "find", "eval", "let",
                                         "trap", "xargs", "osascript", "source", "`",    "${!"};
/// What bash takes a value for in the same command: an expression, or a name, whose subscript is one.
constexpr const char* kEvaluators[] = {"[[",     "((",       "$[",    "-v",   "declare",   "typeset", "local",
                                       "export", "readonly", "unset", "read", "readarray", "mapfile"};
/// What the next word is a command for.
constexpr const char* kRunners[] = {"env",  "sudo", "exec", "command", "builtin", "nohup", "time",
                                    "then", "do",   "else", "elif",    "if",      "while", "until"};
constexpr std::size_t kUsesLimit = 100;  ///< of a value that is no simple word

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

/// Whether `word` is in the text, and not as a part of a longer one.
bool hasWord(const std::string& text, std::string_view word) {
    for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        const std::size_t end = at + word.size();
        const bool begins = !isLetter(word.front()) || at == 0 || !isLetter(text[at - 1]);
        const bool ends = !isLetter(word.back()) || end == text.size() || !isLetter(text[end]);
        if (begins && ends) return true;
    }
    return false;
}

template <std::size_t count>
bool hasAny(const std::string& text, const char* const (&words)[count]) {
    return std::any_of(std::begin(words), std::end(words),
                       [&](const char* word) { return hasWord(text, word); });
}

/// Lines that end in a backslash are one to bash.
std::string withoutContinuations(const std::string& script) {
    std::string text;
    for (std::size_t at = 0; at < script.size(); ++at) {
        if (script.compare(at, 2, "\\\n") == 0) {
            ++at;
        } else {
            text += script[at];
        }
    }
    return text;
}

/// The part of a line before `at`, and before what is on the line before it that ends in a backslash.
std::string lineBefore(const std::string& script, std::size_t at) {
    std::size_t begin = at;
    while (begin > 0 && (script[begin - 1] != '\n' || (begin > 1 && script[begin - 2] == '\\')))
        --begin;
    return withoutContinuations(script.substr(begin, at - begin));
}

/// Whether bash could take a value after `line` for more than an argument.
bool isUnsafeAfter(const std::string& line) {
    if (hasAny(line, kEvaluators)) return true;
    const auto brace = line.rfind("${");
    if (brace != std::string::npos && line.find('}', brace) == std::string::npos) return true;
    const std::string before =
        base::trimmed(base::hasEnding(line, "\"") ? line.substr(0, line.size() - 1) : line);
    if (before.empty() || std::string_view(";|&({!").find(before.back()) != std::string_view::npos)
        return true;
    // The command [ is a word of its own; anything else has a subscript.
    if (before.back() == '[') return before.size() > 1 && isWordByte(before[before.size() - 2]);
    const std::string last = before.substr(before.find_last_of(" \t;|&(/") + 1);
    // The value of a variable in place of a command is not known.
    const std::string first = before.substr(before.find_last_of(";|&(") + 1);
    return hasAny("\n" + last + "\n", kRunners) || base::hasBeginning(base::trimmed(first), "$") ||
           base::hasBeginning(base::trimmed(first), "\"$");
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

constexpr const char* kInsideText =
    "the value of $ODV is not a simple word, and is used inside another program's text";
constexpr const char* kRunText = "the value of $ODV is no simple word, and could be run as a command there";

/// Why no value but a simple word can be in the script; "" when one can.
std::string whyOnlySimple(const std::string& script) {
    if (base::contains(script, "<<")) return kInsideText;
    return hasAny(withoutContinuations(script), kInterpreters) ? kRunText : "";
}

base::Result<std::string> expansion(const std::string& script, std::size_t at, Quotes::Place place) {
    if (place == Quotes::Place::comment) return std::string("ODV");
    if (place == Quotes::Place::singleQuotes) return base::failure(kInsideText);
    if ((at > 0 && script[at - 1] == '\\') || isUnsafeAfter(lineBefore(script, at)))
        return base::failure(kRunText);
    return std::string(place == Quotes::Place::doubleQuotes ? "${ODV}" : "\"${ODV}\"");
}

}  // namespace

base::Result<std::string> filledIn(const std::string& script, const std::string& value) {
    const bool simple = isSimple(value);
    if (const std::string why = simple ? "" : whyOnlySimple(script); !why.empty()) return base::failure(why);
    std::size_t uses = 0;
    std::string filled;
    Quotes quotes;
    for (std::size_t at = 0; at < script.size();) {
        if (script.compare(at, kNameLength, "$ODV") == 0) {
            auto text = simple ? base::Result<std::string>(value) : expansion(script, at, quotes.place());
            if (!text) return text;
            filled += *text;
            at += kNameLength;
            if (++uses > kUsesLimit && !simple)
                return base::failure("the value of $ODV is no simple word, and is used more than 100 times");
            if (filled.size() > kRuleTextLimit)
                return base::failure("a text is larger than 256 KiB with its value");
            continue;
        }
        const std::size_t bytes = simple ? 1 : quotes.pass(script, at);
        filled += script.substr(at, bytes);
        at += bytes;
    }
    return filled;
}

}  // namespace zelor::authoring

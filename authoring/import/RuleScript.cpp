#include "authoring/import/RuleScript.h"

#include <algorithm>
#include <set>

#include "authoring/import/SourceText.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t kValueLimit = 4U << 10U;

std::string inSingleQuotes(const std::string& text) {
    return '\'' + base::insideSingleQuotes(text) + '\'';
}

/// A function that runs in a subshell, so that an `exit` in the text ends only that.
std::string function(const std::string& name, const std::string& text) {
    return name + "() (\n" + text + (base::hasEnding(text, "\n") ? "" : "\n") + ")\n";
}

std::string header(const std::string& rule) {
    return "#!/bin/bash\n# Imported rule: " + oneLine(rule) + "\n\n";
}

bool isNameByte(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

/// The name before the "=(" at `at`; "" when it assigns no array.
std::string arrayName(const std::string& text, std::size_t at) {
    std::size_t begin = at;
    while (begin > 0 && isNameByte(text[begin - 1]))
        --begin;
    return text.substr(begin, at - begin);
}

/// Whether $name is in the text without an index or braces: bash takes that for the first element only.
bool expandsWhole(const std::string& text, const std::string& name) {
    const std::string expansion = '$' + name;
    for (auto at = text.find(expansion); at != std::string::npos; at = text.find(expansion, at + 1)) {
        const std::size_t end = at + expansion.size();
        if (end == text.size() || !isNameByte(text[end])) return true;
    }
    return false;
}

/// The project runs its rules by zsh; bash would run such texts to another end.
bool needsZsh(const std::string& text) {
    if (base::contains(text, "${(")) return true;
    std::set<std::string> arrays;
    for (auto at = text.find("=("); at != std::string::npos; at = text.find("=(", at + 1))
        arrays.insert(arrayName(text, at));
    arrays.erase("");
    return std::any_of(arrays.begin(), arrays.end(),
                       [&](const std::string& name) { return expandsWhole(text, name); });
}

std::string whyNotRun(const std::string& what, const std::string& text) {
    if (base::trimmed(text).empty()) return "the " + what + " is empty";
    if (text.size() > kRuleTextLimit) return "the " + what + " is larger than 256 KiB";
    const std::string why = whyUnfitText(text);
    return why.empty() ? "" : "the " + what + " has " + why;
}

/// The variables that rules about the user at the screen expect.
std::string userVariables(const std::string& text) {
    std::string variables;
    if (base::contains(text, "CURRENT_USER") || base::contains(text, "CURR_USER_UID"))
        variables += "CURRENT_USER=$(/usr/bin/stat -f %Su /dev/console)\n";
    if (base::contains(text, "CURR_USER_UID"))
        variables += "CURR_USER_UID=$(/usr/bin/id -u \"$CURRENT_USER\")\n";
    return variables;
}

constexpr const char* kVerification = R"(
holds() {
    found=$(check)
    [ "$found" = "$expected" ]
}

holds && exit 0
fix
holds && exit 0
)";

constexpr const char* kLook = R"(
found=$(check)
status=$?
[ "$found" = "$expected" ] && exit 0
[ "$status" -lt 126 ] || exit "$status"  # the check itself failed, which proves nothing
)";

constexpr const char* kSayDifference =
    R"(printf '%s: found "%s", expected "%s"\n' "$rule" "${found:0:1000}" "$expected" >&2
exit 1
)";

constexpr const char* kSaysNotApplicable =
    R"(# Ends with 77 when the fix says on standard error that it is not applicable.
echo() {
    builtin echo "$@" || return
    case $* in
        *'not applicable'*) [ /dev/fd/1 -ef /dev/fd/2 ] && exit 77 ;;
    esac
    return 0
}

)";

base::Check requireValue(const CheckedRule& rule) {
    if (!rule.hasValue) return base::failure("there is no value for $ODV");
    if (rule.value.size() > kValueLimit) return base::failure("the value of $ODV is larger than 4 KiB");
    const std::string why = whyUnfitText(rule.value);
    return why.empty() ? base::Check() : base::failure("the value of $ODV has " + why);
}

/// Makes the expected text what bash can find: it drops the line ends after what a command prints.
base::Check fillInExpected(CheckedRule& rule) {
    std::string& expected = rule.expected;
    if (const auto at = expected.find("$ODV"); at != std::string::npos) {
        if (auto good = requireValue(rule); !good) return good;
        expected.replace(at, 4, rule.value);
    }
    expected.erase(expected.find_last_not_of('\n') + 1);
    const std::string why = whyNotRun("result", expected);
    return why.empty() ? base::Check() : base::failure(why);
}

/// Puts the value into a rule's texts.
base::Check fillIn(CheckedRule& rule) {
    for (std::string* text : {&rule.check, &rule.fix}) {
        const std::string what = text == &rule.fix ? "fix" : "check";
        if (const std::string why = whyNotRun(what, *text); !why.empty()) return base::failure(why);
        if (needsZsh(*text)) return base::failure("the " + what + " is written for zsh, not for bash");
        if (!base::contains(*text, "$ODV")) continue;
        if (auto good = requireValue(rule); !good) return good;
        auto done = filledIn(*text, rule.value);
        if (!done) return tl::unexpected<base::Failure>(done.error());
        *text = std::move(*done);
    }
    return fillInExpected(rule);
}

/// The beginning of a script, up to and with the check.
std::string checkFunction(const CheckedRule& rule, const std::string& texts) {
    const std::string value =
        base::contains(texts, "${ODV}") ? "ODV=" + inSingleQuotes(rule.value) + '\n' : "";
    return header(rule.rule) + "rule=" + inSingleQuotes(oneLine(rule.rule)) +
           "\nexpected=" + inSingleQuotes(rule.expected) + '\n' + value + userVariables(texts) + '\n' +
           function("check", rule.check);
}

}  // namespace

base::Result<RuleScripts> checkedScripts(const CheckedRule& rule) {
    CheckedRule filled = rule;
    if (const auto done = fillIn(filled); !done) return tl::unexpected<base::Failure>(done.error());
    return RuleScripts{checkFunction(filled, filled.check + filled.fix) + '\n' + function("fix", filled.fix) +
                           kVerification + kSayDifference,
                       checkFunction(filled, filled.check) + kLook + kSayDifference};
}

base::Result<std::string> fixScript(const std::string& rule, const std::string& fix) {
    if (const std::string why = whyNotRun("fix", fix); !why.empty()) return base::failure(why);
    return header(rule) + kSaysNotApplicable + function("fix", fix) + "\nfix\n";
}

}  // namespace zelor::authoring

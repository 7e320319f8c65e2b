#include "controller/ArgumentOrder.h"

#include <algorithm>

#include "base/PrintableText.h"
#include "base/Strings.h"
#include "controller/InputError.h"

namespace zelor::controller {

namespace {

constexpr char kSeeHelp[] = "; see \"zelor-remediate --help\"";

bool has(const std::vector<std::string>& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

bool isOption(const std::string& argument) {
    return argument.size() > 1 && base::hasBeginning(argument, "-");
}

/// The index of the command, after the options before it and their values; the size when there is none.
std::size_t commandPosition(const std::vector<std::string>& arguments, const CommandWords& words) {
    std::size_t at = 0;
    while (at < arguments.size() && isOption(arguments[at])) {
        const std::string& option = arguments[at++];
        if (at == arguments.size()) break;
        const bool mayLackIt = words.optionalValued.count(option) != 0;
        if (mayLackIt ? !isOption(arguments[at]) && !has(words.commands, arguments[at])
                      : words.valued.count(option) != 0)
            ++at;
    }
    return at;
}

void refuseUnknown(const std::string& command, const std::vector<std::string>& commands) {
    if (has(commands, command)) return;
    const std::string problem = "there is no command \"" + base::printable(command) + "\"; ";
    const std::string nearest = base::nearestWord(command, commands);
    if (!nearest.empty())
        throw InputError(problem + "did you mean \"" + nearest + "\"? See \"zelor-remediate --help\"");
    std::string known;
    for (const std::string& one : commands)
        known += (known.empty() ? "" : ", ") + one;
    throw InputError(problem + "use one of: " + known + kSeeHelp);
}

}  // namespace

std::vector<std::string> arrangedArguments(const std::vector<std::string>& arguments,
                                           const CommandWords& words) {
    const std::size_t at = commandPosition(arguments, words);
    const std::vector<std::string> before(arguments.begin(),
                                          arguments.begin() + static_cast<std::ptrdiff_t>(at));
    if (has(before, "-V") || has(before, "--version")) return {"--version"};
    const bool help = has(before, "-h") || has(before, "--help");
    if (at == arguments.size()) {
        if (help) return {"--help"};
        throw InputError(std::string("name a command, for example \"zelor-remediate status\"") + kSeeHelp);
    }
    refuseUnknown(arguments[at], words.commands);
    if (help) return {arguments[at], "--help"};
    std::vector<std::string> arranged(arguments.begin() + static_cast<std::ptrdiff_t>(at), arguments.end());
    if (arranged.front() == "help" && (arranged.size() == 1 || !isOption(arranged[1]))) {
        if (arranged.size() == 1) return {"--help"};
        refuseUnknown(arranged[1], words.commands);
        return {arranged[1], "--help"};
    }
    arranged.insert(arranged.begin() + 1, before.begin(), before.end());
    return arranged;
}

}  // namespace zelor::controller

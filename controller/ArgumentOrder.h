#pragma once

#include <set>
#include <string>
#include <vector>

namespace zelor::controller {

/// The commands and options that take part in arranging arguments.
struct CommandWords {
    std::vector<std::string> commands;
    std::set<std::string> valued;          ///< options, with their dashes, that take a value
    std::set<std::string> optionalValued;  ///< options whose value may be left out
};

/// The arguments in the order that the parser expects: the command first, then the options that were given
/// before it. "help", "help COMMAND" and options that ask for help or the version before a command become
/// "--help", "COMMAND --help" and "--version". Throws InputError when no command is named, or an unknown one.
std::vector<std::string> arrangedArguments(const std::vector<std::string>& arguments,
                                           const CommandWords& words);

}  // namespace zelor::controller

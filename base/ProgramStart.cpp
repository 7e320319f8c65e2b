#include "base/ProgramStart.h"

#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "base/SystemCalls.h"

namespace zelor::base {

namespace {

constexpr std::array<std::string_view, 14> kHarmful = {"BASH_ENV",
                                                       "ENV",
                                                       "CDPATH",
                                                       "GLOBIGNORE",
                                                       "SHELLOPTS",
                                                       "BASHOPTS",
                                                       "IFS",
                                                       "PS4",
                                                       "OPENSSL_CONF",
                                                       "OPENSSL_MODULES",
                                                       "OPENSSL_ENGINES",
                                                       "SSLKEYLOGFILE",
                                                       "PROMPT_COMMAND",
                                                       "PERL5OPT"};

bool begins(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

}  // namespace

bool isHarmfulVariable(std::string_view name, std::string_view value) {
    // Shells have exported functions under several names, always as "() {".
    return begins(name, "BASH_FUNC_") || begins(name, "__BASH_FUNC") || begins(value, "()") ||
           std::find(kHarmful.begin(), kHarmful.end(), name) != kHarmful.end();
}

void removeHarmfulVariables() {
    std::vector<std::string> harmful;
    char** const environment = processEnvironment();
    for (char** entry = environment; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        const auto equals = text.find('=');
        if (equals == std::string_view::npos) continue;
        if (isHarmfulVariable(text.substr(0, equals), text.substr(equals + 1)))
            harmful.emplace_back(text.substr(0, equals));
    }
    for (const std::string& name : harmful)
        ::unsetenv(name.c_str());
}

void prepareProgram() {
    removeHarmfulVariables();
    ::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace zelor::base

#include <clocale>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "base/ProgramStart.h"
#include "rehearsal/Tools.h"

namespace {

/// Names in archives are UTF-8 whatever the caller's locale.
void useUtf8() {
    for (const char* name : {"C.UTF-8", "en_US.UTF-8", "UTF-8"}) {
        if (std::setlocale(LC_CTYPE, name) != nullptr) return;
    }
}

int runAs(zelor::rehearsal::Tool tool, const std::string& name, const std::vector<std::string>& arguments) {
    const char* searchPath = std::getenv("PATH");
    const std::string directory =
        zelor::rehearsal::directoryOfName(name, searchPath == nullptr ? "" : searchPath);
    return runTool(tool, zelor::rehearsal::StateDirectory(directory), arguments);
}

}  // namespace

int main(int count, char** words) {
    zelor::base::prepareProgram();
    useUtf8();
    const std::string name = count > 0 ? words[0] : "zelor-rehearsal";
    try {
        const auto tool = zelor::rehearsal::toolNamed(name.substr(name.find_last_of('/') + 1));
        if (tool) return runAs(*tool, name, {words + 1, words + count});
        return zelor::rehearsal::runCommandLine(count, words);
    } catch (const std::exception& e) {
        std::cerr << "zelor-rehearsal: " << e.what() << "\n";
        return 1;
    }
}

#include "rehearsal/Tools.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <random>

namespace zelor::rehearsal {

namespace {

void printFlood() {
    constexpr std::size_t kFloodBytes = 100U << 20U;
    std::string block;
    while (block.size() < (1U << 20U))
        block += "The update service repeats itself to see who is listening.\n";
    for (std::size_t sent = 0; sent < kFloodBytes; sent += block.size())
        std::fwrite(block.data(), 1, block.size(), stdout);
}

void printNoise() {
    std::mt19937 generator(std::random_device{}());
    std::uniform_int_distribution<int> byte(0, 255);
    for (int i = 0; i < (1 << 16); ++i)
        std::putchar(byte(generator));
    std::putchar('\n');
}

}  // namespace

int runTool(Tool tool, const StateDirectory& directory, const Arguments& arguments) {
    switch (tool) {
        case Tool::softwareupdate:
            return runSoftwareUpdate(directory, arguments);
        case Tool::swVers:
            return runSwVers(directory, arguments);
        case Tool::installer:
            return runInstaller(directory, arguments);
        case Tool::hdiutil:
            return runHdiutil(directory, arguments);
        case Tool::pkgutil:
            return runPkgutil(directory, arguments);
        case Tool::defaults:
            return runDefaults(directory, arguments);
        case Tool::launchctl:
            return runLaunchctl(directory, arguments);
        case Tool::pwpolicy:
            return runPwpolicy(directory, arguments);
        case Tool::scutil:
            break;
    }
    return runScutil(directory, arguments);
}

int say(const ToolText& text) {
    std::fwrite(text.out.data(), 1, text.out.size(), stdout);
    std::fwrite(text.err.data(), 1, text.err.size(), stderr);
    return text.status;
}

void disturb(Outcome outcome) {
    switch (outcome) {
        case Outcome::hang:
            for (;;)
                pause();
        case Outcome::signal:
            kill(getpid(), SIGKILL);
            break;
        case Outcome::flood:
            printFlood();
            break;
        case Outcome::binary:
            printNoise();
            break;
        default:
            break;
    }
}

}  // namespace zelor::rehearsal

#include "controller/CommandLine.h"

int main(int argc, char** argv) {
    return zelor::runController({argv + 1, argv + argc});
}

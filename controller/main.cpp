#include "controller/CommandLine.h"

int main(int argc, char** argv) {
    return zelor::controller::runController({argv + 1, argv + argc});
}

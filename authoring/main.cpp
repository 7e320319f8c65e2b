#include "authoring/Commands.h"

int main(int argc, char** argv) {
    return zelor::authoring::runContentTool({argv + 1, argv + argc});
}

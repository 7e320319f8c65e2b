#include "authoring/Commands.h"
#include "base/ProgramStart.h"

int main(int argc, char** argv) {
    zelor::base::prepareProgram();
    return zelor::authoring::runContentTool({argv + 1, argv + argc});
}

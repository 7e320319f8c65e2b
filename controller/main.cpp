#include <fcntl.h>
#include <unistd.h>

#include "base/ProgramStart.h"
#include "controller/CommandLine.h"

namespace {

/// A file must not come to be opened in the place of a closed standard descriptor, where messages would be
/// written into it. What is put there cannot be used, so a write to it fails as it would without it.
void occupyStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) >= 0) continue;
        if (::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) ::_exit(2);
    }
}

}  // namespace

int main(int argc, char** argv) {
    occupyStandardDescriptors();
    zelor::base::prepareProgram();
    return zelor::controller::runController({argv + 1, argv + argc});
}

#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include "base/ProgramStart.h"
#include "controller/CommandLine.h"

namespace {

/// Keeps a file that is opened later from getting the number of a closed standard descriptor, which would
/// write messages into it. Writes to the placeholder fail, as they would to the closed descriptor.
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
    // A run's thread may still be ending when main returns; OpenSSL's exit handler would free what is its.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    return zelor::controller::runController({argv + 1, argv + argc});
}

#include "authoring/rehearse/SignalRelay.h"

#include <pthread.h>
#include <sys/wait.h>

#include <cerrno>

#include "base/Files.h"
#include "base/Mutex.h"
#include "base/Spawn.h"
#include "base/SystemCalls.h"

namespace zelor::authoring {

SignalRelay::SignalRelay() {
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH})
        sigaddset(&signals_, signal);
    ::pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    thread_ = std::thread([this] { relay(); });
}

SignalRelay::~SignalRelay() {
    {
        const base::MutexLock lock(mutex_);
        ended_ = true;
    }
    ::pthread_kill(thread_.native_handle(), SIGWINCH);
    thread_.join();
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void SignalRelay::relay() {
    for (;;) {
        int signal = 0;
        if (::sigwait(&signals_, &signal) != 0) return;
        const base::MutexLock lock(mutex_);
        if (ended_) return;
        received_ = received_ || signal != SIGWINCH;
        if (program_ > 0) ::kill(-program_, signal);
    }
}

void SignalRelay::requireNone() {
    const base::MutexLock lock(mutex_);
    if (received_) throw Interrupted();
}

int SignalRelay::run(std::vector<std::string> argv) {
    sigset_t none;
    sigemptyset(&none);
    // In its own process group, so that a terminal's Ctrl-C reaches the program once, through the relay.
    const base::SpawnAttributes attributes(none, signals_, POSIX_SPAWN_SETPGROUP);
    pid_t program = 0;
    {
        const base::MutexLock lock(mutex_);
        if (received_) throw Interrupted();
        const int error = ::posix_spawn(&program, argv[0].c_str(), nullptr, attributes.get(),
                                        base::argumentPointers(argv).data(), base::processEnvironment());
        if (error != 0) throw std::runtime_error("cannot start " + argv[0] + ": " + base::errorText(error));
        program_ = program;
    }
    // The process is reaped only when no more signals can be sent to its id.
    siginfo_t info{};
    while (::waitid(P_PID, static_cast<id_t>(program), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    const base::MutexLock lock(mutex_);
    program_ = 0;
    int status = 0;
    ::waitpid(program, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace zelor::authoring

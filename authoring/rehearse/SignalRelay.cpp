#include "authoring/rehearse/SignalRelay.h"

#include <pthread.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>

#include "base/Files.h"
#include "base/SystemCalls.h"

namespace zelor::authoring {

namespace {

class SpawnAttributes {
  public:
    explicit SpawnAttributes(const sigset_t& defaults) {
        sigset_t none;
        sigemptyset(&none);
        ::posix_spawnattr_init(&attributes_);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &defaults);
        // A terminal's Ctrl-C then reaches the program once, through here.
        ::posix_spawnattr_setpgroup(&attributes_, 0);
        constexpr short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP;
        ::posix_spawnattr_setflags(&attributes_, flags);
    }
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    const posix_spawnattr_t* get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_{};
};

std::vector<char*> pointers(std::vector<std::string>& words) {
    std::vector<char*> result;
    result.reserve(words.size() + 1);
    for (std::string& word : words)
        result.push_back(word.data());
    result.push_back(nullptr);
    return result;
}

}  // namespace

SignalRelay::SignalRelay() {
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH})
        sigaddset(&signals_, signal);
    ::pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    thread_ = std::thread([this] { relay(); });
}

SignalRelay::~SignalRelay() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
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
        const std::lock_guard<std::mutex> lock(mutex_);
        if (ended_) return;
        received_ = received_ || signal != SIGWINCH;
        if (program_ > 0) ::kill(-program_, signal);
    }
}

void SignalRelay::requireNone() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (received_) throw Interrupted();
}

int SignalRelay::run(std::vector<std::string> argv) {
    const SpawnAttributes attributes(signals_);
    pid_t program = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (received_) throw Interrupted();
        const int error = ::posix_spawn(&program, argv[0].c_str(), nullptr, attributes.get(),
                                        pointers(argv).data(), base::processEnvironment());
        if (error != 0) throw std::runtime_error("cannot start " + argv[0] + ": " + base::errorText(error));
        program_ = program;
    }
    // Its number stays taken until no signal can go to it any more.
    siginfo_t info{};
    while (::waitid(P_PID, static_cast<id_t>(program), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    program_ = 0;
    int status = 0;
    ::waitpid(program, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace zelor::authoring

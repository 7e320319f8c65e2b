#include "controller/run/Signals.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <thread>

#include "controller/States.h"

namespace zelor::controller {

namespace {

// The state that the signal handler uses.
std::atomic<int> endsAsked{0};
std::atomic<bool> redraw{false};
std::atomic<int> wakeFd{-1};
std::atomic<int> waking{0};  ///< handlers, on any thread, that may be writing to it
std::atomic<int> cursorFd{-1};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

constexpr std::array<int, 6> kHandled = {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGTSTP, SIGWINCH};
std::array<struct sigaction, kHandled.size()> oldActions;
std::array<int, 2> pipeEnds = {-1, -1};

// Called in the signal handler: must not allocate.
void showCursor(bool shown) {
    const int fd = cursorFd;
    if (fd < 0) return;
    const char* text = shown ? "\x1b[?25h\x1b[0m\n" : "\x1b[?25l";
    if (::write(fd, text, shown ? 11 : 6) < 0) return;
}

void wake() {
    const char byte = 0;
    ++waking;
    const int fd = wakeFd;
    if (fd >= 0 && ::write(fd, &byte, 1) < 0) errno = 0;  // a full pipe wakes the reader as well
    --waking;
}

extern "C" void zelorHandleSignal(int signal) {
    const int oldErrno = errno;
    if (signal == SIGINT || signal == SIGTERM || signal == SIGHUP) {
        if (endsAsked.fetch_add(1) > 0) {
            showCursor(true);
            ::_exit(exitStatus::kCancelled);
        }
    } else if (signal == SIGTSTP) {
        showCursor(true);
        ::raise(SIGSTOP);
        showCursor(false);
        redraw = true;
    } else if (signal == SIGWINCH) {
        redraw = true;
    }
    wake();
    errno = oldErrno;
}

void prepareEnd(int fd) {
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
}

}  // namespace

Signals::Signals() {
    if (::pipe(pipeEnds.data()) != 0) throw std::runtime_error("no pipe for signals");
    prepareEnd(pipeEnds[0]);
    prepareEnd(pipeEnds[1]);
    wakeFd = pipeEnds[1];
    endsAsked = 0;
    redraw = false;
    struct sigaction action {};
    action.sa_handler = &zelorHandleSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < kHandled.size(); ++i) {
        ::sigaction(kHandled.at(i), nullptr, &oldActions.at(i));
        if (oldActions.at(i).sa_handler == SIG_IGN && kHandled.at(i) != SIGPIPE) continue;
        ::sigaction(kHandled.at(i), &action, nullptr);
    }
}

Signals::~Signals() {
    for (std::size_t i = 0; i < kHandled.size(); ++i)
        ::sigaction(kHandled.at(i), &oldActions.at(i), nullptr);
    wakeFd = -1;
    while (waking > 0)
        std::this_thread::yield();  // else it could write to a file that gets the number next
    for (int& end : pipeEnds) {
        ::close(end);
        end = -1;
    }
}

bool Signals::endAsked() const {
    return endsAsked > 0;
}

bool Signals::takeRedraw() {
    return redraw.exchange(false);
}

void Signals::wait(std::chrono::milliseconds time) const {
    struct pollfd poller {
        pipeEnds[0], POLLIN, 0
    };
    if (::poll(&poller, 1, static_cast<int>(time.count())) <= 0) return;
    std::array<char, 64> bytes{};
    while (::read(pipeEnds[0], bytes.data(), bytes.size()) > 0) {
    }
}

void Signals::setHiddenCursor(int fd) {
    cursorFd = fd;
}

}  // namespace zelor::controller

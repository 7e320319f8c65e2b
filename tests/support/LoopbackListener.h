#pragma once

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "base/Files.h"

namespace zelor::test {

/// Listens on a free port of loopback. Writing to a peer that has left gives an error, no signal.
class LoopbackListener {
  public:
    LoopbackListener() {
        ::signal(SIGPIPE, SIG_IGN);
        socklen_t length = sizeof address_;
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::bind(socket_.get(), any(), length) != 0 || ::listen(socket_.get(), 16) != 0 ||
            ::getsockname(socket_.get(), any(), &length) != 0)
            throw std::runtime_error("no loopback port");
    }

    int get() const { return socket_.get(); }
    int port() const { return ntohs(address_.sin_port); }
    /// "127.0.0.1:port".
    std::string address() const { return "127.0.0.1:" + std::to_string(port()); }
    /// Waits for a connection; none once it is stopped.
    base::UniqueFd accept() {
        base::UniqueFd peer(::accept(socket_.get(), nullptr, nullptr));
        return stopped_ ? base::UniqueFd() : std::move(peer);
    }
    /// Ends an `accept` that another thread waits in, and makes all later ones return none.
    void stop() {
        stopped_ = true;
        const base::UniqueFd wake(::socket(AF_INET, SOCK_STREAM, 0));
        (void)::connect(wake.get(), any(), sizeof address_);
    }

  private:
    sockaddr* any() { return reinterpret_cast<sockaddr*>(&address_); }

    base::UniqueFd socket_{::socket(AF_INET, SOCK_STREAM, 0)};
    sockaddr_in address_{};
    std::atomic<bool> stopped_{false};
};

}  // namespace zelor::test

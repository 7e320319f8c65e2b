#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "base/Files.h"
#include "support/LoopbackListener.h"

namespace zelor::test {

/// Listens on loopback, and answers every request with `begin` at once and then with `piece` every twenty
/// milliseconds without end.
class DripServer {
  public:
    /// What it sends.
    struct Drip {
        const char* name;
        std::string begin;
        std::string piece;
    };
    /// Every kind of answer that does not end.
    static std::vector<Drip> all() {
        const std::string ok = "HTTP/1.1 200 OK\r\n";
        return {
            {"stalls", "", ""},
            {"drips a header", ok + "X-Long: ", "x"},
            {"continues", "", "HTTP/1.1 100 Continue\r\n\r\n"},
            {"stalls in the body", ok + "Content-Length: 1000000\r\n\r\nx", ""},
            {"drips a body", ok + "Content-Length: 1000000\r\n\r\n", "x"},
            {"drips chunks", ok + "Transfer-Encoding: chunked\r\n\r\n", "1\r\nx\r\n"},
            {"drips an error page", "HTTP/1.1 404 Not Found\r\nContent-Length: 60000\r\n\r\n", "x"},
            {"drips trailers", ok + "Transfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n", "X-More: x\r\n"}};
    }

    explicit DripServer(Drip drip) : drip_(std::move(drip)) {
        thread_ = std::thread([this] { serve(); });
    }
    ~DripServer() {
        stopping_ = true;
        thread_.join();
    }
    DripServer(const DripServer&) = delete;
    DripServer& operator=(const DripServer&) = delete;

    std::string url() const { return "http://" + listener_.address(); }
    /// How many connections there were.
    int connections() const { return connections_; }

  private:
    void serve() {
        std::vector<base::UniqueFd> peers;
        while (!stopping_) {
            struct pollfd poller {
                listener_.get(), POLLIN, 0
            };
            if (::poll(&poller, 1, 20) > 0) {
                peers.push_back(listener_.accept());
                send(peers.back(), drip_.begin);
                ++connections_;
            }
            for (const base::UniqueFd& peer : peers)
                send(peer, drip_.piece);
        }
    }
    static void send(const base::UniqueFd& peer, const std::string& text) {
        (void)::send(peer.get(), text.data(), text.size(), MSG_DONTWAIT);
    }

    Drip drip_;
    LoopbackListener listener_;
    std::atomic<bool> stopping_{false};
    std::atomic<int> connections_{0};
    std::thread thread_;
};

}  // namespace zelor::test

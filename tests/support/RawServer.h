#pragma once

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/Files.h"

namespace zelor::test {

/// Listens on loopback, sends each connection the next answer byte for byte, whatever the request, and closes
/// it. Sends nothing when there are no more answers.
class RawServer {
  public:
    RawServer() {
        ::signal(SIGPIPE, SIG_IGN);  // clients leave when they like
        socklen_t length = sizeof address_;
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(listener_.get(), any(), length) != 0 || listen(listener_.get(), 16) != 0 ||
            getsockname(listener_.get(), any(), &length) != 0)
            throw std::runtime_error("no loopback port");
        thread_ = std::thread([this] { serve(); });
    }
    ~RawServer() {
        stopping_ = true;
        const base::UniqueFd wake(socket(AF_INET, SOCK_STREAM, 0));
        (void)connect(wake.get(), any(), sizeof address_);
        thread_.join();
    }
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    std::string url() const { return "http://127.0.0.1:" + std::to_string(ntohs(address_.sin_port)); }
    void setAnswers(std::deque<std::string> answers) {
        const std::lock_guard<std::mutex> lock(mutex_);
        answers_ = std::move(answers);
    }

    /// The requests since the last call, with their headers.
    std::vector<std::string> takeAsked() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(asked_, {});
    }

  private:
    sockaddr* any() { return reinterpret_cast<sockaddr*>(&address_); }

    void serve() {
        for (;;) {
            const base::UniqueFd peer(accept(listener_.get(), nullptr, nullptr));
            if (stopping_) return;
            std::string asked;
            char piece[4096];
            for (ssize_t got = 1; got > 0 && asked.find("\r\n\r\n") == std::string::npos;) {
                got = read(peer.get(), piece, sizeof piece);
                if (got > 0) asked.append(piece, static_cast<std::size_t>(got));
            }
            {
                const std::lock_guard<std::mutex> lock(mutex_);
                asked_.push_back(std::move(asked));
            }
            (void)base::writeAll(peer.get(), next());
        }
    }
    std::string next() {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (answers_.empty()) return "";
        std::string answer = std::move(answers_.front());
        answers_.pop_front();
        return answer;
    }

    base::UniqueFd listener_{socket(AF_INET, SOCK_STREAM, 0)};
    sockaddr_in address_{};
    std::mutex mutex_;
    std::deque<std::string> answers_;
    std::vector<std::string> asked_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace zelor::test

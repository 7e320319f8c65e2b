#pragma once

#include <unistd.h>

#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/Files.h"
#include "support/LoopbackListener.h"

namespace zelor::test {

/// Listens on loopback, sends each connection the next answer byte for byte, whatever the request, and closes
/// it. Sends nothing when there are no more answers.
class RawServer {
  public:
    RawServer() {
        thread_ = std::thread([this] { serve(); });
    }
    ~RawServer() {
        listener_.stop();
        thread_.join();
    }
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    std::string url() const { return "http://" + listener_.address(); }
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
    void serve() {
        while (const base::UniqueFd peer = listener_.accept()) {
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

    LoopbackListener listener_;
    std::mutex mutex_;
    std::deque<std::string> answers_;
    std::vector<std::string> asked_;
    std::thread thread_;
};

}  // namespace zelor::test

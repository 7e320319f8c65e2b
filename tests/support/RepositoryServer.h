#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "authoring/serve/StaticServer.h"
#include "support/TempDir.h"

namespace zelor::test {

/// A repository on loopback that logs requests and misbehaves on demand.
class RepositoryServer {
  public:
    struct Line {
        authoring::ServerRequest request;
        int status = 0;
    };

    RepositoryServer() : server_(std::make_unique<authoring::StaticServer>(options())) {}

    std::string url() const { return server_->url(); }
    void stop() { server_.reset(); }
    std::string path(const std::string& name) const { return directory_ / name; }
    void publish(const std::string& path, const std::string& bytes) { writeFile(directory_ / path, bytes); }
    void withdraw(const std::string& path) { boost::filesystem::remove(directory_ / path); }

    /// Sets the fault of each later request; `number` counts them from 0.
    void onRequest(std::function<authoring::ServerFault(const authoring::ServerRequest&, int number)> fault) {
        const std::lock_guard<std::mutex> lock(mutex_);
        fault_ = std::move(fault);
        number_ = 0;
    }
    void answerAll(int status, authoring::HttpHeaders headers = {}) {
        onRequest([=](const authoring::ServerRequest&, int) {
            authoring::ServerFault fault;
            fault.status = status;
            fault.headers = headers;
            return fault;
        });
    }
    void behave() { onRequest(nullptr); }

    /// How many requests there were since the last `takeLog`.
    std::size_t answers() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return log_.size();
    }
    /// The requests since the last call.
    std::vector<Line> takeLog() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(log_, {});
    }

  private:
    authoring::StaticServerOptions options() {
        authoring::StaticServerOptions options;
        options.directory = directory_.path().string();
        options.fault = [this](const authoring::ServerRequest& request) {
            const std::lock_guard<std::mutex> lock(mutex_);
            return fault_ ? fault_(request, number_++) : authoring::ServerFault();
        };
        options.answered = [this](const authoring::ServerRequest& request, int status) {
            const std::lock_guard<std::mutex> lock(mutex_);
            log_.push_back({request, status});
        };
        return options;
    }

    TempDir directory_;
    std::mutex mutex_;
    std::function<authoring::ServerFault(const authoring::ServerRequest&, int)> fault_;
    int number_ = 0;
    std::vector<Line> log_;
    std::unique_ptr<authoring::StaticServer> server_;  ///< last: its threads use the rest
};

}  // namespace zelor::test

#include <pthread.h>
#include <signal.h>

#include <iostream>

#include "authoring/Commands.h"
#include "authoring/UsageError.h"
#include "authoring/serve/StaticServer.h"
#include "base/Mutex.h"
#include "base/PrintableText.h"

namespace zelor::authoring {

namespace {

/// Blocks the signals that end the server, in every thread made afterwards too, and waits for them.
class EndSignals {
  public:
    EndSignals() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    }
    void wait() const {
        int received = 0;
        ::sigwait(&signals_, &received);
    }

  private:
    sigset_t signals_{};
};

}  // namespace

int runServe(const ServeOptions& options) {
    const EndSignals end;
    base::Mutex output;
    StaticServerOptions server;
    server.directory = options.directory;
    server.address = options.address;
    server.port = options.port;
    if (options.verbose) {
        server.answered = [&output](const ServerRequest& request, int status) {
            const base::MutexLock lock(output);
            std::string line = std::to_string(status) + ' ' + request.method + ' ' + request.path;
            if (!request.range.empty()) line += ' ' + request.range;
            std::cerr << base::printable(line) << std::endl;
        };
    }
    std::unique_ptr<StaticServer> running;
    try {
        running = std::make_unique<StaticServer>(server);
    } catch (const std::exception& e) {
        throw UsageError(std::string(e.what()) + "; choose another directory, --address or --port");
    }
    std::cout << running->url() << std::endl;
    end.wait();
    return exitStatus::kGood;
}

}  // namespace zelor::authoring

// Measures what the network path promises.
// usage: zelor_bench_transfers cancel TIMES
//            from setCancelAllRem(true) to remDone with a download in flight, in seconds, one line for each
//            time
//        zelor_bench_transfers rate URL BYTES_PER_SECOND FILE
//            how well a download keeps the rate, and how well curl does, which writes FILE: for each, how far
//            the mean is off the rate and how far the fullest second is above it, in percent

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "agent/DownloadProgress.h"
#include "agent/http/HttpClient.h"
#include "base/SystemCalls.h"
#include "tests/integration/IntegrationFixture.h"

namespace {

using Clock = std::chrono::steady_clock;
using zelor::test::IntegrationFixture;
using zelor::test::TempDir;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// A child process, ended with this object.
class Child {
  public:
    explicit Child(std::vector<std::string> words) {
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        char** environment = zelor::base::processEnvironment();
        if (posix_spawnp(&pid_, argv.front(), nullptr, nullptr, argv.data(), environment) != 0) pid_ = -1;
    }
    ~Child() {
        if (pid_ < 0) return;
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    bool ended() {
        if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == pid_) pid_ = -1;
        return pid_ < 0;
    }

  private:
    pid_t pid_ = -1;
};

constexpr std::chrono::milliseconds kSample{50};
constexpr std::chrono::milliseconds kEndLook{1};  ///< how late the end of a transfer is noticed

struct RateKept {
    double mean = 0;         ///< off the rate asked for, in percent
    double worstWindow = 0;  ///< the fullest second over the rate, in percent
};

RateKept judge(const std::vector<double>& arrived, double seconds, double rate) {
    RateKept kept;
    kept.mean = (arrived.back() / seconds / rate - 1) * 100;
    constexpr std::size_t kSamplesPerSecond = 20;
    double most = 0;
    for (std::size_t i = kSamplesPerSecond; i < arrived.size(); ++i)
        most = std::max(most, arrived[i] - arrived[i - kSamplesPerSecond]);
    kept.worstWindow = (most / rate - 1) * 100;
    return kept;
}

/// Samples `bytes` twenty times a second until `ended`.
RateKept watch(double rate, const std::function<double()>& bytes, const std::function<bool()>& ended) {
    std::vector<double> arrived;
    const auto start = Clock::now();
    for (auto next = start; !ended(); std::this_thread::sleep_for(kEndLook)) {
        if (Clock::now() < next) continue;
        arrived.push_back(bytes());
        next += kSample;
    }
    const double seconds = secondsSince(start);
    arrived.push_back(bytes());
    return judge(arrived, seconds, rate);
}

RateKept ourRate(const std::string& url, double rate) {
    std::atomic<double> arrived{0};
    std::atomic<bool> ended{false};
    std::thread transfer([&] {
        zelor::agent::HttpClient client;
        zelor::agent::HttpRequest request;
        request.url = url;
        request.bytesPerSecond = static_cast<std::uint64_t>(rate);
        request.onBody = [&](std::string_view piece) {
            arrived = arrived + static_cast<double>(piece.size());
            return true;
        };
        client.perform(request);
        ended = true;
    });
    const RateKept kept = watch(
        rate, [&] { return arrived.load(); }, [&] { return ended.load(); });
    transfer.join();
    return kept;
}

RateKept curlRate(const std::string& url, double rate, const std::string& out) {
    Child curl({"curl", "-sN", "--limit-rate", std::to_string(static_cast<long>(rate)), "-o", out, url});
    const auto size = [&out] {
        struct stat info {};
        return stat(out.c_str(), &info) == 0 ? static_cast<double>(info.st_size) : 0.0;
    };
    return watch(rate, size, [&curl] { return curl.ended(); });
}

void rate(const std::string& url, double rate, const std::string& curlOut) {
    const RateKept ours = ourRate(url, rate);
    const RateKept curl = curlRate(url, rate, curlOut);
    std::printf("%.3f %.3f %.3f %.3f\n", ours.mean, ours.worstWindow, curl.mean, curl.worstWindow);
}

double cancelOnce(IntegrationFixture& fixture) {
    zelor::agent::startNewRun();
    RemediationManager manager(fixture.dir / "opt");
    manager.setContentDownloadDir(fixture.dir / "content");
    manager.setovalIdMap({{"large||", "CCE-1"}});
    manager.remediate(true);
    for (;;) {
        const zelor::agent::DownloadSnapshot now = zelor::agent::DownloadProgress::instance().snapshot();
        if (now.active && now.resource == "large.zip" && now.bytesDone > 0) break;
        if (manager.getRemDone()) throw std::runtime_error("the run ended before it could be cancelled");
        std::this_thread::yield();
    }
    const auto start = Clock::now();
    manager.setCancelAllRem(true);
    while (!manager.getRemDone())
        std::this_thread::yield();
    const double seconds = secondsSince(start);
    if (manager.getRemediationProgressMap()["large||"] != 13)
        throw std::runtime_error("the request was not aborted");
    boost::filesystem::remove_all(fixture.dir / "opt/partial");
    return seconds;
}

void cancel(int times) {
    IntegrationFixture fixture;
    fixture.addContent("CCE-1", "large.sh");
    fixture.addArchive("large", std::string(std::size_t{64} << 20, 'x'));
    for (int i = 0; i < times; ++i) {
        zelor::authoring::ServerFault slow;
        slow.bytesPerSecond = 4 << 20;
        fixture.addFault("/patches/large.zip", slow);
        std::printf("%.6f\n", cancelOnce(fixture));
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string work = argc > 1 ? argv[1] : "";
    try {
        if (work == "cancel" && argc == 3) {
            cancel(std::atoi(argv[2]));
        } else if (work == "rate" && argc == 5) {
            rate(argv[2], std::atof(argv[3]), argv[4]);
        } else {
            std::fprintf(stderr,
                         "usage: zelor_bench_transfers cancel TIMES | rate URL BYTES_PER_SECOND FILE\n");
            return 2;
        }
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "zelor_bench_transfers: %s\n", problem.what());
        return 1;
    }
    return 0;
}

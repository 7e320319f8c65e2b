// Measures what the network path promises: how soon a cancelled run ends with a download in flight, and how
// well a download keeps the rate asked for, beside curl's own limit. nginx on loopback serves the rate rows.
// usage: zelor_bench_transfers [--smoke]

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "agent/DownloadProgress.h"
#include "agent/HttpClient.h"
#include "platform/SystemCalls.h"
#include "tests/road/Road.h"

namespace {

using Clock = std::chrono::steady_clock;
using zelor::test::Road;
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
        char** environment = zelor::processEnvironment();
        if (posix_spawnp(&pid_, argv.front(), nullptr, nullptr, argv.data(), environment) != 0) pid_ = -1;
    }
    ~Child() {
        if (pid_ < 0) return;
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    bool started() const { return pid_ > 0; }
    bool ended() {
        if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == pid_) pid_ = -1;
        return pid_ < 0;
    }

  private:
    pid_t pid_ = -1;
};

int freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    const bool bound = bind(fd, generic, size) == 0 && getsockname(fd, generic, &size) == 0;
    close(fd);
    if (!bound) throw std::runtime_error("no free port");
    return ntohs(address.sin_port);
}

std::string nginxConfiguration(const std::string& dir, int port) {
    std::string temporary;
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        temporary += std::string(kind) + "_temp_path " + dir + "/" + kind + ";";
    }
    return "daemon off; worker_processes 1; pid " + dir + "/pid; error_log " + dir + "/error crit;" +
           (getuid() == 0 ? "user root;" : "") + "events {} http { access_log off; " + temporary +
           " server { listen 127.0.0.1:" + std::to_string(port) + "; root " + dir + "/www; } }";
}

void waitForFile(const std::string& url) {
    zelor::HttpClient client;
    for (int i = 0; i < 200; ++i) {
        zelor::HttpRequest request;
        request.url = url;
        request.onHead = [](const zelor::HttpHead&) { return false; };
        if (client.perform(request).head.status == 200) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    throw std::runtime_error("nginx does not answer at " + url);
}

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
    for (auto next = start; !ended(); std::this_thread::sleep_until(next)) {
        arrived.push_back(bytes());
        next += std::chrono::milliseconds(50);
    }
    const double seconds = secondsSince(start);
    arrived.push_back(bytes());
    return judge(arrived, seconds, rate);
}

RateKept ourRate(const std::string& url, double rate) {
    std::atomic<double> arrived{0};
    std::atomic<bool> ended{false};
    std::thread transfer([&] {
        zelor::HttpClient client;
        zelor::HttpRequest request;
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

void rateTable(double seconds) {
    TempDir dir;
    const int port = freePort();
    boost::filesystem::create_directories(dir.path() / "www");
    zelor::test::writeFile(dir / "nginx.conf", nginxConfiguration(dir.path().string(), port));
    Child nginx({"/usr/sbin/nginx", "-p", dir.path().string(), "-c", dir / "nginx.conf"});
    std::printf("\nrate kept over %.0f s: mean, and the fullest second, against the rate asked for\n",
                seconds);
    std::printf("%-12s %10s %10s %12s %12s\n", "rate", "ours mean", "ours peak", "curl mean", "curl peak");
    for (const double kilobytes : {256.0, 1024.0, 5120.0, 20480.0}) {
        const double rate = kilobytes * 1024;
        const std::string name = std::to_string(static_cast<int>(kilobytes));
        zelor::test::writeFile(dir / ("www/" + name),
                               std::string(static_cast<std::size_t>(rate * seconds), 'r'));
        const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/" + name;
        waitForFile(url);
        const RateKept ours = ourRate(url, rate);
        const RateKept curl = curlRate(url, rate, dir / "curl.out");
        std::printf("%6s KB/s  %+9.2f%% %+9.1f%% %+11.2f%% %+11.1f%%\n", name.c_str(), ours.mean,
                    ours.worstWindow, curl.mean, curl.worstWindow);
        std::fflush(stdout);
    }
}

double cancelOnce(Road& road) {
    zelor::startNewRun();
    RemediationManager manager(road.dir / "opt");
    manager.setContentDownloadDir(road.dir / "content");
    manager.setovalIdMap({{"large||", "CCE-1"}});
    manager.remediate(true);
    for (;;) {
        const zelor::DownloadSnapshot now = zelor::DownloadProgress::instance().snapshot();
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
    boost::filesystem::remove_all(road.dir / "opt/partial");
    return seconds;
}

void cancelTable(int times) {
    Road road;
    road.addContent("CCE-1", "large.sh");
    road.addArchive("large", std::string(std::size_t{64} << 20, 'x'));
    std::vector<double> seconds;
    for (int i = 0; i < times; ++i) {
        zelor::ServerFault slow;
        slow.bytesPerSecond = 4 << 20;
        road.addFault("/patches/large.zip", slow);
        seconds.push_back(cancelOnce(road));
    }
    std::sort(seconds.begin(), seconds.end());
    std::printf(
        "\nsetCancelAllRem(true) to remDone, download in flight, %d times: median %.1f ms, worst %.1f ms\n",
        times, seconds[seconds.size() / 2] * 1000, seconds.back() * 1000);
}

}  // namespace

int main(int argc, char** argv) {
    const bool smoke = argc > 1 && std::strcmp(argv[1], "--smoke") == 0;
    try {
        cancelTable(smoke ? 3 : 50);
        rateTable(smoke ? 1 : 11);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "zelor_bench_transfers: %s\n", problem.what());
        return 1;
    }
    return 0;
}

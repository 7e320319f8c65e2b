#include "collaborators/DownloadManager.h"

#include <algorithm>
#include <chrono>
#include <optional>

#include "agent/AgentSettings.h"
#include "agent/http/Deadline.h"
#include "agent/http/HttpClient.h"
#include "agent/http/Mirrors.h"
#include "platform/Log.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongest{5};
constexpr std::uint64_t kMost = 32U << 20U;

/// Counts bytes from the first piece on, until there are enough to measure the speed.
struct Measurement {
    Clock::time_point begin = Clock::now();
    std::optional<Clock::time_point> first;
    std::uint64_t firstBytes = 0;  ///< came with the head: they took no time that could be measured
    std::uint64_t total = 0;

    bool take(std::string_view piece) {
        const auto now = Clock::now();
        if (!first) {
            first = now;
            firstBytes = piece.size();
        }
        total += piece.size();
        return total < kMost && now - *first < kLongest;
    }

    /// The speed; for a file that came in one piece, over the time of the whole request.
    double bytesPerSecond(Clock::time_point now) const {
        const bool onePiece = total == firstBytes;
        const std::chrono::duration<double> time = now - (onePiece ? begin : *first);
        return static_cast<double>(onePiece ? total : total - firstBytes) / std::max(time.count(), 1e-6);
    }
};

/// The speed of the file at `url`, 0 when it cannot be measured; `status` is that of the answer, 0 for none.
unsigned long speedOf(const std::string& url, int& status) {
    status = 0;
    Measurement measured;
    zelor::agent::HttpRequest request;
    request.url = url;
    request.limits.connectTimeout = kLongest;
    request.limits.stallTime = kLongest;
    request.limits.firstAnswer = kLongest;
    const zelor::agent::Deadline deadline(3 * kLongest);  // with redirects, and a body that never begins
    request.overdue = [&] { return deadline.passed(); };
    request.onBody = [&](std::string_view piece) { return measured.take(piece); };
    const zelor::agent::HttpResult result = zelor::agent::HttpClient().perform(request);
    const double speed = measured.bytesPerSecond(Clock::now());
    const bool answered = result.outcome == zelor::agent::HttpOutcome::answered || measured.total != 0;
    const std::string problem = !answered                   ? result.error
                                : result.head.status != 200 ? "status " + std::to_string(result.head.status)
                                : measured.total == 0       ? "the file is empty"
                                                            : "";
    if (answered) status = static_cast<int>(result.head.status);
    if (problem.empty()) return static_cast<unsigned long>(speed);
    if (status == 200) status = 0;
    zelor::log::error("[Downloader] cannot measure the bandwidth with ",
                      zelor::agent::withoutCredentials(url), ": ", problem,
                      "; publish a speed.bin of some megabytes");
    return 0;
}

}  // namespace

DownloadManager::DownloadManager(std::string /*installPath*/, bool /*useProxy*/) {}

unsigned long DownloadManager::GetDownloadSpeed(int& status) {
    status = 0;
    try {
        const auto mirrors = zelor::agent::Mirrors::ofRun(*zelor::agent::AgentSettings::current());
        for (const zelor::agent::Mirror& mirror : mirrors->inOrder()) {
            const unsigned long speed = speedOf(mirror.url + "/speed.bin", status);
            if (status == 200) mirrors->served(mirror);
            if (status == 200 || zelor::agent::stopRequested()) return speed;
        }
    } catch (const std::exception& e) {
        zelor::log::error("[Downloader] cannot measure the bandwidth: ", e.what());
    }
    return 0;
}

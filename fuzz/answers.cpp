#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <mutex>
#include <thread>

#include "Support.h"
#include "agent/ContentDocument.h"
#include "agent/ContentFetch.h"
#include "agent/PatchDownload.h"
#include "platform/Strings.h"

namespace {

namespace fs = boost::filesystem;
using zelor::fuzz::require;
using zelor::fuzz::takeUntil;

/// Gives each connection the next of the answers, whatever was asked, and closes it.
class HostileServer {
  public:
    HostileServer() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* any = reinterpret_cast<sockaddr*>(&address);
        socklen_t length = sizeof address;
        require(bind(listener_.get(), any, length) == 0 && listen(listener_.get(), 16) == 0 &&
                    getsockname(listener_.get(), any, &length) == 0,
                "a loopback port is to be had");
        url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        std::thread([this] { serve(); }).detach();
    }

    const std::string& url() const { return url_; }
    void setAnswers(const std::string& answers) {
        const std::lock_guard<std::mutex> lock(mutex_);
        answers_ = answers;
    }

  private:
    [[noreturn]] void serve() {
        for (;;) {
            const zelor::UniqueFd peer(accept(listener_.get(), nullptr, nullptr));
            std::string asked;
            char piece[4096];
            while (asked.find("\r\n\r\n") == std::string::npos) {
                const ssize_t got = read(peer.get(), piece, sizeof piece);
                if (got <= 0) break;
                asked.append(piece, static_cast<std::size_t>(got));
            }
            const std::string answer = next();
            for (std::size_t done = 0; done < answer.size();) {
                const ssize_t put =
                    send(peer.get(), answer.data() + done, answer.size() - done, MSG_NOSIGNAL);
                if (put <= 0) break;
                done += static_cast<std::size_t>(put);
            }
        }
    }
    std::string next() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return takeUntil(answers_, "\x1e");
    }

    zelor::UniqueFd listener_{socket(AF_INET, SOCK_STREAM, 0)};
    std::string url_, answers_;
    std::mutex mutex_;
};

zelor::RetryPolicy noPause() {
    zelor::RetryPolicy policy;
    policy.attempts = 2;
    policy.attemptsInAll = 6;
    policy.firstPause = policy.longestPause = std::chrono::milliseconds(0);
    return policy;
}

void fetchPatch(const HostileServer& server, const zelor::fuzz::QuietRoot& root, zelor::HttpClient& client) {
    zelor::DownloadPolicy policy{noPause(), {}};
    policy.limits.redirects = 0;
    const std::string file = root / "a.zip";
    const zelor::DownloadJob job{server.url() + "/patches/a.zip", "a.zip", root / "partial", file};
    for (int run = 0; run < 2; ++run) {
        fs::remove(file);
        const bool done = zelor::PatchDownload(job, policy, client).run() == zelor::DownloadResult::done;
        require(done == fs::exists(file), "a file is there when the download says so, and only then");
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(root / "partial"))
        require(entry.path().filename().string().rfind("a.zip.part", 0) == 0, "nothing else is kept");
}

}  // namespace

// Answers of a repository, with 0x1e between them, to a download that is tried twice and to a content file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const zelor::fuzz::QuietRoot root;
    static HostileServer& server = *new HostileServer;  // its thread is never joined
    static zelor::HttpClient client;
    const std::string answers = zelor::fuzz::textOf(data, size);
    server.setAnswers(answers);
    fs::remove_all(root / "partial");
    fetchPatch(server, root, client);
    // Redirects are followed here, and must not lead out of this machine.
    if (zelor::lowerCased(answers).find("location") != std::string::npos) return 0;
    server.setAnswers(answers);
    const auto answer =
        zelor::fetchContent(client, server.url(), "CVE-1", {"", "", "\"tag\"", ""}, noPause());
    using Kind = zelor::ContentAnswer::Kind;
    const bool good = answer.kind == Kind::fresh || answer.kind == Kind::unchanged;
    require(good == answer.problem.empty(), "a failure is explained");
    require(answer.content.xml.size() <= zelor::contentBytesLimit, "content is bounded");
    return 0;
}

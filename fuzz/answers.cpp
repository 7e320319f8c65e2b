#include "Support.h"
#include "agent/content/ContentDocument.h"
#include "agent/content/ContentFetch.h"
#include "agent/download/PatchDownload.h"
#include "base/Strings.h"
#include "tests/support/RawServer.h"

namespace {

namespace fs = boost::filesystem;
using zelor::fuzz::require;
using zelor::fuzz::takeUntil;

zelor::agent::RetryPolicy noPause() {
    zelor::agent::RetryPolicy policy;
    policy.attempts = 2;
    policy.attemptsInAll = 6;
    policy.firstPause = policy.longestPause = std::chrono::milliseconds(0);
    return policy;
}

void fetchPatch(const zelor::test::RawServer& server, const zelor::fuzz::QuietRoot& root,
                zelor::agent::HttpClient& client) {
    zelor::agent::DownloadPolicy policy;
    policy.retry = noPause();
    policy.limits.redirects = 0;
    const std::string file = root / "a.zip";
    zelor::agent::DownloadJob job;
    job.url = server.url() + "/patches/a.zip";
    job.name = "a.zip";
    job.partialDirectory = root / "partial";
    job.destination = file;
    for (int run = 0; run < 2; ++run) {
        fs::remove(file);
        const bool done =
            zelor::agent::PatchDownload(job, policy, client).run() == zelor::agent::DownloadResult::done;
        require(done == fs::exists(file), "a file is there when the download says so, and only then");
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(root / "partial"))
        require(entry.path().filename().string().rfind("a.zip.part", 0) == 0, "nothing else is kept");
}

}  // namespace

// Answers of a repository, with 0x1e between them, to a download that is tried twice and to a content file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const zelor::fuzz::QuietRoot kRoot;
    static zelor::test::RawServer server;
    static zelor::agent::HttpClient client;
    std::string text = zelor::fuzz::textOf(data, size);
    const bool redirects = zelor::base::lowerCased(text).find("location") != std::string::npos;
    std::deque<std::string> answers;
    while (!text.empty())
        answers.push_back(takeUntil(text, "\x1e"));
    server.setAnswers(answers);
    fs::remove_all(kRoot / "partial");
    fetchPatch(server, kRoot, client);
    // Redirects are followed here, and must not leave this machine.
    if (redirects) return 0;
    server.setAnswers(answers);
    zelor::agent::RepositoryTurn turn;
    const auto answer =
        zelor::agent::fetchContent(client, {server.url(), "", nullptr}, "CVE-1",
                                   {{"", "", "\"tag\"", ""}, {}}, noPause(), std::chrono::minutes(2), turn);
    using Kind = zelor::agent::ContentAnswer::Kind;
    const bool good = answer.kind == Kind::fresh || answer.kind == Kind::unchanged;
    require(good == answer.problem.empty(), "a failure is explained");
    require(answer.content.xml.size() <= zelor::agent::kContentBytesLimit, "content is bounded");
    return 0;
}

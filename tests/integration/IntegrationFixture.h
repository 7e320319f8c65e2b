#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/ContentCacheControl.h"
#include "agent/Prefetch.h"
#include "authoring/serve/StaticServer.h"
#include "base/SystemRoot.h"
#include "remediation/RemediationManager.h"
#include "tests/support/ArchiveBuilder.h"
#include "tests/support/SigningKey.h"
#include "tests/support/TempDir.h"

namespace zelor::test {

/// The whole fixture of a request: the library and the default agent below a temporary root, and a repository
/// with real signatures behind a real web server that can be made to misbehave.
class IntegrationFixture {
  public:
    using Map = std::map<std::string, unsigned long>;

    IntegrationFixture() : oldRoot_(getSystemRoot()) {
        setSystemRoot(dir.path().string());
        writeFile(dir / "repo/speed.bin", std::string(65536, 's'));
        writeFile(dir / "etc/zelor/repository.pem", key.publicPem());
        for (const char* directory : {"opt", "var/zelor/unzip", "var/zelor/buffer", "Applications"}) {
            boost::filesystem::create_directories(dir.path() / directory);
        }
        authoring::StaticServerOptions options;
        options.directory = dir / "repo";
        options.fault = [this](const authoring::ServerRequest& request) { return faultFor(request); };
        options.answered = [this](const authoring::ServerRequest& request, int status) {
            note(request, status);
        };
        server_ = std::make_unique<authoring::StaticServer>(std::move(options));
        writeFile(dir / "etc/zelor/zelor.ini",
                  "[Repository]\nUrl = " + server_->url() +
                      "\nTrustedKey = /etc/zelor/repository.pem\n[Buffer]\nSpeedPercent = "
                      "100\n");
    }
    ~IntegrationFixture() {
        server_.reset();
        setSystemRoot(oldRoot_);
    }
    IntegrationFixture(const IntegrationFixture&) = delete;
    IntegrationFixture& operator=(const IntegrationFixture&) = delete;

    /// Content for one identifier with one ERI ("ERI-<identifier>") that names `patchId`.
    void addContent(const std::string& identifier, const std::string& patchId, const std::string& more = "") {
        addContentText(identifier, "<remediation identifier=\"" + identifier + "\"><cre id=\"CRE-" +
                                       identifier + "\"><eri id=\"ERI-" + identifier +
                                       "\"><product>cpe:/a:example:x</product><patch id=\"" + patchId +
                                       "\" size=\"1 KB\" md5=\"00\"/>" + more + "</eri></cre></remediation>");
    }
    void addContentText(const std::string& identifier, const std::string& xml) {
        writeFile(dir / ("repo/content/" + identifier + ".xml"), xml);
        writeFile(dir / ("repo/content/" + identifier + ".xml.sig"), key.sign(xml));
    }
    /// A script as the author's tool publishes it.
    void addScript(const std::string& identifier, const std::string& stem, const std::string& text) {
        addContent(identifier, stem + ".sh");
        addArchive(stem,
                   ArchiveBuilder().file(stem + ".sh", text).file(stem + ".sig", key.sign(text)).finish());
    }
    void addArchive(const std::string& stem, const std::string& bytes) {
        writeFile(dir / ("repo/patches/" + stem + ".zip"), bytes);
    }

    /// A whole run on a new manager; without a content directory, in a new one.
    Map run(const std::map<std::string, std::string>& requests, const std::string& contentDir = "") {
        agent::startNewRun();
        RemediationManager manager(dir / "opt");
        manager.setContentDownloadDir(contentDir.empty() ? dir / "content" : contentDir);
        manager.setovalIdMap(requests);
        ComeEarly ahead(*this);
        if (early) manager.setAheadOfNeed(&ahead);
        manager.remediate(true);
        while (!manager.getRemDone())
            boost::this_thread::yield();
        return manager.getRemediationProgressMap();
    }

    std::string log() const { return readFile(dir / "var/log/zelor/remediation.log"); }
    bool logged(const std::string& part) const { return log().find(part) != std::string::npos; }
    std::string record() const { return readFile(dir / "var/log/zelor/ZelorInstalledPatches.txt"); }

    /// The faults of the next requests for paths that contain the text, first come first served.
    void addFault(const std::string& path, const authoring::ServerFault& fault) {
        const std::lock_guard<std::mutex> lock(mutex_);
        faults_[path].push_back(fault);
    }
    void clearFaults() {
        const std::lock_guard<std::mutex> lock(mutex_);
        faults_.clear();
    }
    /// "GET /patches/x.zip 200", with "range bytes=..." behind it when one was asked for.
    std::vector<std::string> takeAnswers() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::move(answers_);
    }
    int countAnswers(const std::string& part) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        int count = 0;
        for (const std::string& answer : answers_)
            count += answer.find(part) != std::string::npos ? 1 : 0;
        return count;
    }

    bool early = false;         ///< a run begins when its first archives have come ahead
    std::size_t cameEarly = 0;  ///< how many
    TempDir dir;
    SigningKey key = SigningKey::ec();

  private:
    class ComeEarly : public agent::Prefetch {
      public:
        explicit ComeEarly(IntegrationFixture& fixture) : Prefetch(fixture.dir / "opt"), fixture_(fixture) {}
        void archivesNeeded(const std::vector<NeededArchive>& archives) override {
            const int before = fixture_.countAnswers("/patches/");
            const int enough = static_cast<int>(std::min<std::size_t>(archives.size(), 40));
            const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
            Prefetch::archivesNeeded(archives);
            int came = 0;
            while (came < enough && std::chrono::steady_clock::now() < end) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                came = fixture_.countAnswers("/patches/") - before;
            }
            fixture_.cameEarly += static_cast<std::size_t>(came);
        }

      private:
        IntegrationFixture& fixture_;
    };

    authoring::ServerFault faultFor(const authoring::ServerRequest& request) {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (auto& [path, queue] : faults_) {
            if (request.path.find(path) == std::string::npos || queue.empty()) continue;
            const authoring::ServerFault fault = queue.front();
            queue.erase(queue.begin());
            return fault;
        }
        return {};
    }
    void note(const authoring::ServerRequest& request, int status) {
        const std::lock_guard<std::mutex> lock(mutex_);
        answers_.push_back(request.method + " " + request.path + " " + std::to_string(status) +
                           (request.range.empty() ? "" : " range " + request.range) +
                           (request.ifRange.empty() ? "" : " bound"));
    }

    mutable std::mutex mutex_;
    std::map<std::string, std::vector<authoring::ServerFault>> faults_;
    std::vector<std::string> answers_;
    std::unique_ptr<authoring::StaticServer> server_;
    std::string oldRoot_;
};

}  // namespace zelor::test

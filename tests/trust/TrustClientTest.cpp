#include <gtest/gtest.h>

#include <ctime>

#include "base/CommandRunner.h"
#include "tests/support/RepositoryServer.h"
#include "tests/trust/Repository.h"

namespace zelor::test {

namespace {

/// The program against a repository on loopback.
struct Fixture {
    RepositoryServer server;
    TempDir directory;
    trust::Repository repository;
    std::string metadata = directory / "metadata";

    Fixture() {
        for (auto& [role, json] : repository.content)
            json["expires"] = trust::timeText(std::time(nullptr) + 1000);
        repository.sign("root");
        repository.addTarget("targets", "d/b.xml", "second");
        repository.next();
        serve();
    }
    void serve() {
        for (const auto& [path, bytes] : repository.files)
            server.publish(path, bytes);
    }
    int run(std::vector<std::string> words) const {
        words.insert(words.begin(), {ZELOR_TRUST_CLIENT, "--metadata-dir", metadata});
        const auto result = base::runCommand(words, true, std::chrono::seconds(60));
        return result.waited && WIFEXITED(result.status) ? WEXITSTATUS(result.status) : -1;
    }
    int init() const { return run({"init", server.path("1.root.json")}); }
    int refresh() const { return run({"--metadata-url", server.url(), "refresh"}); }
    int download(const std::string& name) const {
        return run({"--metadata-url", server.url(), "--target-name", "a.xml", "--target-name", name,
                    "--target-base-url", server.url() + "/", "--target-dir", directory / "targets",
                    "download"});
    }
};

TEST(TrustClientProgram, RefreshesAndDownloadsOnce) {
    Fixture fixture;
    EXPECT_EQ(fixture.refresh(), 1);  // there is no root yet
    EXPECT_EQ(fixture.init(), 0);
    EXPECT_TRUE(fixture.server.takeLog().empty());
    EXPECT_EQ(fixture.refresh(), 0);
    EXPECT_EQ(readFile(fixture.metadata + "/timestamp.json"), fixture.repository.files["timestamp.json"]);
    EXPECT_EQ(readFile(fixture.metadata + "/targets.json"), fixture.repository.files["6.targets.json"]);
    EXPECT_EQ(fixture.download("d/b.xml"), 0);
    EXPECT_EQ(readFile(fixture.directory / "targets/d%2Fb.xml"), "second");
    fixture.server.takeLog();
    EXPECT_EQ(fixture.download("d/b.xml"), 0);
    EXPECT_EQ(fixture.server.takeLog().size(), 2U);  // the next root and the timestamp
    EXPECT_EQ(fixture.download("missing"), 1);
}

TEST(TrustClientProgram, FailsAndKeepsItsFiles) {
    Fixture fixture;
    ASSERT_EQ(fixture.init() + fixture.refresh(), 0);
    const std::string before = readFile(fixture.metadata + "/timestamp.json");
    fixture.repository.content["timestamp"]["version"] = 1;
    fixture.repository.sign("timestamp");
    fixture.serve();
    EXPECT_EQ(fixture.refresh(), 1);
    fixture.server.answerAll(500);
    EXPECT_EQ(fixture.refresh(), 1);
    EXPECT_EQ(readFile(fixture.metadata + "/timestamp.json"), before);
    EXPECT_EQ(fixture.run({"--unknown", "1", "refresh"}), 1);
    EXPECT_EQ(fixture.run({"refresh"}), 1);
}

}  // namespace

}  // namespace zelor::test

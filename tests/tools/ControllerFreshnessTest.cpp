// What the controller says of a repository whose signed index is not fresh.
#include <ctime>

#include "tests/tools/ControllerFixture.h"
#include "tests/tools/JsonSchema.h"
#include "tests/trust/Repository.h"

namespace zelor::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

const json kRequests = {{"cpe:/o:x", "CCE-1"}};

struct ControllerFreshness : ControllerTest {
    trust::Repository index;
    const std::string signedAt = trust::timeText(std::time(nullptr) - 4 * trust::kDay);

    ControllerFreshness() {
        fixture.addScript("CCE-1", "good", "exit 0\n");
        for (const char* role : {"root", "timestamp", "snapshot", "targets"})
            expire(role, 10);
        index.content["timestamp"]["signed_at"] = signedAt;
        index.sign("root");
        index.addTarget("targets", "content/CCE-1.xml", readFile(fixture.dir / "repo/content/CCE-1.xml"));
        writeFile(fixture.dir / "etc/zelor/root.json", index.files.at("1.root.json"));
        freshness("warn");
    }
    void expire(const std::string& role, int days) {
        index.content[role]["expires"] = trust::timeText(std::time(nullptr) + days * 86400);
    }
    void publish() {
        index.next();
        for (const auto& [path, bytes] : index.files)
            writeFile(fixture.dir / ((path.rfind("content/", 0) == 0 ? "repo/" : "repo/metadata/") + path),
                      bytes);
    }
    void freshness(const std::string& word) {
        const std::string ini = fixture.dir / "etc/zelor/zelor.ini";
        if (ini_.empty()) ini_ = readFile(ini);
        std::string text = ini_;
        text.insert(text.find("TrustedKey"), "Root = /etc/zelor/root.json\nFreshness = " + word + "\n");
        writeFile(ini, text);
    }
    ControllerRun run() {
        return on("run", kRequests,
                  {"--json", fixture.dir / "results.json", "--report", fixture.dir / "report.html",
                   "--after-scan"});
    }

  private:
    std::string ini_;
};

TEST_F(ControllerFreshness, WarningsAreInPlanStatusResultsReportAndLog) {
    publish();
    EXPECT_EQ(run().status, 0);
    const json good = readJson("results.json");
    EXPECT_FALSE(good.contains("warnings"));
    EXPECT_EQ(good.value("contentSigned", ""), signedAt);
    EXPECT_THAT(at("status").out, HasSubstr("timestamp  version 6, until "));

    expire("timestamp", -3);
    publish();
    const std::string cause = "metadata role timestamp, version 7: it expired at ";
    const std::string age = ", 3 days ago; ask the publisher to sign anew";
    for (const char* word : {"warn", "require", "off"}) {
        freshness(word);
        const bool silent = word == std::string("off");
        const bool required = word == std::string("require");
        const auto said = [&](const std::string& text) {
            EXPECT_EQ(text.find(cause) != std::string::npos && text.find(age) != std::string::npos, !silent)
                << word << text;
        };
        const ControllerRun ran = run();
        EXPECT_EQ(ran.status, required ? 3 : 0) << word;
        said(ran.out);
        const json results = readJson("results.json");
        EXPECT_EQ(JsonSchema(json::parse(readFile(ZELOR_RESULTS_SCHEMA))).problem(results), "");
        EXPECT_EQ(results.value("contentSigned", ""), signedAt) << word;
        said(results.value("warnings", json::array()).dump());
        if (required) {
            EXPECT_EQ(results["requests"]["cpe:/o:x"]["value"], 6);
            said(results["requests"]["cpe:/o:x"]["reason"]);
        }
        said(readFile(fixture.dir / "report.html"));
        said(on("plan", kRequests).out);
        EXPECT_EQ(on("plan", kRequests, {"--json"}).status, required ? 3 : 0);
        said(at("status").out);
        said(at("status", {"--json"}).out);
    }
    EXPECT_THAT(fixture.log(), HasSubstr("[RepositoryIndex] " + cause));
}

}  // namespace
}  // namespace zelor::test

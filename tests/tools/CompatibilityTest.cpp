// Agents and repositories of before and after there was signed metadata, with each other.
#include <nlohmann/json.hpp>

#include "tests/support/RepositoryServer.h"
#include "tools/AuthoringFixture.h"

namespace zelor::authoring {
namespace {

namespace fs = boost::filesystem;
using test::readFile;
using test::writeFile;
using testing::HasSubstr;

using Paths = std::vector<std::string>;

struct CompatibilityTest : test::Authoring {
    test::RepositoryServer server;
    std::string programs = fs::path(ZELOR_CONTENT_PROGRAM).parent_path().string();
    std::string metadataKeys = dir / "metadata-keys", mac;

    CompatibilityTest() {
        test::contentTool({"keygen", "--out", metadataKeys, "--role", "all"});
        writeFile(source + "/manifest.json",
                  R"([{"identifier": "CCE-1", "platform": "cpe:/o:apple:mac_os_x", "file": "lock.bsh"}])");
        writeFile(dir / "requests.json", R"({"cpe:/o:apple:mac_os_x||lock": "CCE-1"})");
        publishTo(dir / "other", true);
    }
    void publishTo(const std::string& out, bool withMetadata) {
        std::vector<std::string> words = {"publish", source + "/manifest.json", "--key", privateKey, "--out",
                                          out};
        if (withMetadata) words.insert(words.end(), {"--metadata-keys", metadataKeys});
        ASSERT_EQ(test::contentTool(words).status, 0);
    }
    /// A new Mac with those settings.
    void install(const std::string& settings, int number) {
        mac = dir / ("mac-" + std::to_string(number));
        ASSERT_EQ(shell(programs + "/zelor-rehearsal init " + mac + "-tools --root " + mac), 0);
        writeFile(mac + "/etc/zelor/repository.pem", readFile(publicKey));
        writeFile(mac + "/etc/zelor/build", "platform = macos\n");
        writeFile(mac + "/etc/zelor/zelor.ini",
                  "[ScanManager]\nProfileId = Mac OS X 10.10\n[Repository]\nUrl = " + server.url() +
                      "\nTrustedKey = /etc/zelor/repository.pem\n" + settings);
    }
    nlohmann::json run() {
        shell(programs + "/zelor-remediate run requests.json --root " + mac + " --tools " + mac +
              "-tools --json results.json");
        return nlohmann::json::parse(readFile(dir / "results.json"));
    }
    /// What was asked for and found, digests as '#'.
    Paths found() {
        Paths paths;
        for (const auto& line : server.takeLog()) {
            std::string path = line.request.path;
            const auto digits = path.find_first_not_of("0123456789abcdef", path.rfind('/') + 1);
            if (digits != std::string::npos && digits > 60) path.replace(path.rfind('/') + 1, 64, "#");
            if (line.status == 200) paths.push_back(path);
        }
        return paths;
    }
};

TEST_F(CompatibilityTest, OldAndNewAgentsWithOldAndNewRepositories) {
    const std::string root = "Root = /etc/zelor/root.json\nFreshness = ";
    const Paths old = {"/content/CCE-1.xml", "/content/CCE-1.xml.sig", "/patches/lock.zip"};
    const Paths listed = {"/metadata/timestamp.json", "/metadata/1.snapshot.json", "/metadata/1.targets.json",
                          "/content/#.CCE-1.xml", "/patches/lock.zip"};
    const struct {
        bool newRepository;
        std::string settings;
        int value;
        Paths found;
        const char* warning;  ///< "" for none
    } rows[] = {
        {false, "", 4, old, ""},
        {false, root + "off\n", 4, old, ""},
        {false, root + "warn\n", 4, old, "there is no index of the repository yet"},
        {false, root + "require\n", 6, {}, "the server has no timestamp.json"},
        {true, "", 4, old, ""},
        {true, root + "warn\n", 4, listed, ""},
        {true, root + "require\n", 4, listed, ""},
    };
    int number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.newRepository ? "new" : "old") + " repository, " + row.settings);
        publishTo(server.path(""), row.newRepository);
        install(row.settings, ++number);
        writeFile(mac + "/etc/zelor/root.json", readFile(dir / "other/metadata/1.root.json"));
        (void)server.takeLog();
        const nlohmann::json results = run();
        const auto& result = results["requests"]["cpe:/o:apple:mac_os_x||lock"];
        EXPECT_EQ(result["value"], row.value) << results;
        EXPECT_EQ(found(), row.found);
        EXPECT_THAT(results.value("warnings", nlohmann::json::array()).dump(), HasSubstr(row.warning));
        EXPECT_EQ(results.contains("warnings"), *row.warning != '\0') << results;
        const bool failed = row.value != 4;
        EXPECT_THAT(result.value("reason", ""), HasSubstr(failed ? row.warning : ""));
    }
}

}  // namespace
}  // namespace zelor::authoring

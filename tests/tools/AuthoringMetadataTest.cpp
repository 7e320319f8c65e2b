#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <random>

#include "authoring/metadata/MetadataCheck.h"
#include "authoring/serve/HttpConditions.h"
#include "tools/AuthoringFixture.h"
#include "trust/Digests.h"

namespace zelor::authoring {
namespace {

namespace fs = boost::filesystem;
using test::contentTool;
using test::readFile;
using test::ToolRun;
using test::writeFile;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

struct MetadataTest : test::Authoring {
    std::string keys = dir / "metadata-keys", metadata = repository + "/metadata";

    MetadataTest() { contentTool({"keygen", "--out", keys, "--role", "all"}); }

    ToolRun publishSigned(const std::string& text, std::vector<std::string> more = {}) {
        more.insert(more.end(), {"--metadata-keys", keys});
        return publish(text, more);
    }
    ToolRun run(const std::string& command, std::vector<std::string> more = {}) {
        more.insert(more.begin(), {command, repository});
        if (command != "status") more.insert(more.end(), {"--metadata-keys", keys});
        return contentTool(more);
    }
    /// The name under which agents ask for a content file as it is now.
    std::string digestName(const std::string& name) const {
        return repository + "/content/" +
               *trust::digestOf("sha256", readFile(repository + "/content/" + name)) + "." + name;
    }
    static ino_t inodeOf(const std::string& path) {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
    }
    /// Makes a file look as if it had been written so many hours ago.
    static void age(const std::string& path, int hours) {
        fs::last_write_time(path, std::time(nullptr) - hours * 3600L);
    }
    static std::string lineOf(const std::string& text, const std::string& beginning) {
        const auto at = ("\n" + text).find("\n" + beginning);
        return at == std::string::npos ? "" : text.substr(at, text.find('\n', at) - at);
    }
};

TEST_F(MetadataTest, PublicationsAreListedAndKeepWhatAgentsMayStillAskFor) {
    ASSERT_EQ(publishSigned(manifest).status, 0);
    EXPECT_EQ(check().status, 0) << check().out;
    const std::string first = digestName("CVE-1.xml"), gone = digestName("CVE-2.xml");
    EXPECT_TRUE(fs::exists(first));
    std::string changed = manifest;
    changed.replace(changed.find("tool -q"), 7, "tool -s");
    const auto second = changed.find("{\"identifier\": \"CVE-2\"");
    changed.erase(second, changed.find("{\"identifier\": \"CVE-3\"") - second);
    ASSERT_EQ(publishSigned(changed).status, 0);
    EXPECT_EQ(check().status, 0) << check().out;
    EXPECT_NE(digestName("CVE-1.xml"), first);
    for (const std::string& kept : {first, gone, metadata + "/1.targets.json", metadata + "/1.snapshot.json"})
        EXPECT_TRUE(fs::exists(kept)) << kept;
    // A day later what replaced them is old enough.
    for (const char* name : {"2.targets.json", "2.snapshot.json"})
        age(metadata + '/' + name, 25);
    ASSERT_EQ(publishSigned(changed).status, 0);
    for (const std::string& removed :
         {first, gone, metadata + "/1.targets.json", metadata + "/1.snapshot.json"})
        EXPECT_FALSE(fs::exists(removed)) << removed;
    EXPECT_EQ(check().status, 0) << check().out;
    // Nothing is published that would not be listed.
    const ToolRun plain = publish(manifest);
    EXPECT_EQ(plain.status, 2);
    EXPECT_THAT(plain.err, HasSubstr("--metadata-keys"));
}

TEST_F(MetadataTest, KilledAtAnyTimeEverythingListedIsThere) {
    ASSERT_EQ(publishSigned(manifest).status, 0);
    std::minstd_rand random(3);
    int killed = 0;
    for (unsigned round = 0; round < 10; ++round) {
        const std::string option = "tool -" + std::to_string(round);
        std::string json =
            R"([{"identifier": "CVE-1", "product": "cpe:/a:x:one", "file": "image.dmg", "silent": ")" +
            option + "\"}";
        for (unsigned i = 2; i < 20 + round % 2; ++i)
            json += ", {\"identifier\": \"CVE-" + std::to_string(i) +
                    R"(", "platform": "cpe:/o:apple:mac_os_x", "instructions": "OS Remediation )" + option +
                    "\"}";
        writeFile(source + "/manifest.json", json + "]");
        test::ToolProcess tool({"publish", source + "/manifest.json", "--key", privateKey, "--out",
                                repository, "--metadata-keys", keys},
                               dir / "errors");
        // As soon as the publication counts, or at a random time after the last content is prepared.
        const auto before = inodeOf(metadata + "/timestamp.json");
        if (round % 2 == 0) {
            while (inodeOf(metadata + "/timestamp.json") == before && !tool.ended()) {
            }
        } else {
            for (std::string line = tool.line(); !line.empty() && line != "wrote content/CVE-19.xml";)
                line = tool.line();
            ::usleep(static_cast<useconds_t>(random() % 100'000));
        }
        const int status = tool.end(SIGKILL);  // the macro takes its address on macOS
        killed += WIFSIGNALED(status) ? 1 : 0;
        for (const Finding& finding : metadataFindings(repository, std::time(nullptr)))
            EXPECT_THAT(finding.what, Not(testing::ContainsRegex("agents refuse|agents ask")))
                << finding.place << " in round " << round;
    }
    EXPECT_GT(killed, 0);
    ASSERT_EQ(publishSigned(manifest).status, 0);
    EXPECT_EQ(metadataFindings(repository, std::time(nullptr)).size(), 0U);
}

TEST_F(MetadataTest, ListsOnlyWhatTheKeyOfTheContentSigned) {
    ASSERT_EQ(publishSigned(manifest).status, 0);
    writeFile(repository + "/content/CVE-9.xml", "<planted/>");
    const ToolRun run = publishSigned(manifest);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("CVE-9.xml is not signed by this key"));
    fs::remove(repository + "/content/CVE-9.xml");
    // A file that was changed in place is a hard link: both names are written again.
    const std::string name = digestName("CVE-1.xml");
    std::ofstream(repository + "/content/CVE-1.xml", std::ios::app) << " ";
    EXPECT_EQ(publishSigned(manifest).status, 0);
    EXPECT_EQ(digestName("CVE-1.xml"), name);
    EXPECT_EQ(check().status, 0) << check().out;
}

TEST_F(MetadataTest, RefreshNeedsTheTimestampKeyAlone) {
    ASSERT_EQ(publishSigned(manifest).status, 0);
    for (const char* role : {"root", "targets", "snapshot"})
        fs::remove(keys + '/' + role + ".key");
    const ToolRun good = run("refresh", {"--expires", "timestamp=1"});
    EXPECT_EQ(good.status, 0) << good.err;
    EXPECT_EQ(good.out, "wrote metadata/timestamp.json\n");
    ToolRun status = run("status", {"--metadata-keys", keys});
    EXPECT_EQ(status.status, 1);
    EXPECT_THAT(status.out, HasSubstr("timestamp expires in "));
    EXPECT_THAT(lineOf(status.out, "timestamp"), HasSubstr("[here]"));
    EXPECT_THAT(lineOf(status.out, "snapshot"), Not(HasSubstr("[here]")));
    EXPECT_EQ(run("refresh").err, "");
    EXPECT_EQ(run("status").status, 0);
    EXPECT_EQ(run("status", {"--within", "20"}).status, 1);
    const ToolRun unable = publishSigned(manifest);
    EXPECT_EQ(unable.status, 2);
    EXPECT_THAT(unable.err, HasSubstr("targets needs 1 of its keys"));
    EXPECT_EQ(run("refresh", {"--expires", "timestamp=0"}).status, 2);
    EXPECT_EQ(publish(manifest, {"--expires", "timestamp=1"}).status, 2);
}

TEST_F(MetadataTest, RotationsWaitForEverySignatureThatTheyNeed) {
    ASSERT_EQ(publishSigned(manifest).status, 0);
    for (const char* holder : {"anna", "ben"})
        ASSERT_EQ(contentTool({"keygen", "--out", dir / holder, "--role", "root", "--holder", holder,
                               "--type", holder[0] == 'a' ? "ed25519" : "rsa"})
                      .status,
                  0);
    const std::string anna = dir / "anna/root-anna.pem", ben = dir / "ben/root-ben.pem";
    ToolRun waits = run("rotate", {"--role", "root", "--add", anna, "--add", ben, "--remove",
                                   keys + "/root.pem", "--threshold", "2"});
    EXPECT_EQ(waits.status, 0) << waits.err;
    EXPECT_THAT(waits.out, AllOf(HasSubstr("not yet: "), HasSubstr("(anna)"), HasSubstr("(ben)")));
    EXPECT_THAT(run("status").out, HasSubstr(", 2 must sign instead of 1"));
    EXPECT_EQ(run("rotate").status, 2);  // one change at a time
    const auto sign = [&](const std::string& holder) {
        return contentTool({"rotate", repository, "--sign", "--metadata-keys", dir / holder});
    };
    waits = sign("anna");
    EXPECT_THAT(waits.out.substr(waits.out.find("not yet: ")),
                AllOf(Not(HasSubstr("(anna)")), HasSubstr("(ben)")));
    EXPECT_FALSE(fs::exists(metadata + "/2.root.json"));
    EXPECT_THAT(sign("ben").out, HasSubstr("wrote metadata/2.root.json"));
    EXPECT_EQ(check().status, 0) << check().out;
    EXPECT_THAT(lineOf(run("status").out, "root"), AllOf(HasSubstr("2 of "), HasSubstr("(anna)")));
    EXPECT_EQ(sign("ben").status, 2);
}

TEST_F(MetadataTest, RotationsOfOnlineKeysSignAgainWhatTheOldOnesSigned) {
    ASSERT_EQ(publishSigned(manifest).status, 0);
    for (const char* role : {"timestamp", "snapshot", "targets"}) {
        ASSERT_EQ(contentTool({"keygen", "--out", dir / "new", "--role", role, "--holder", "2"}).status, 0);
        const std::string added = dir / "new/" + std::string(role) + "-2";
        const std::vector<std::string> change = {"--role",       role,       "--add",
                                                 added + ".pem", "--remove", keys + '/' + role + ".pem"};
        // Without the new private key agents would be left with files that nobody signed.
        const ToolRun unable = run("rotate", change);
        EXPECT_EQ(unable.status, 2);
        EXPECT_THAT(unable.err, HasSubstr(std::string(role) + " needs 1 of its keys"));
        fs::copy_file(added + ".key", keys + '/' + role + "-2.key");
        const ToolRun rotated = run("rotate", change);
        EXPECT_EQ(rotated.status, 0) << rotated.err;
        fs::remove(keys + '/' + role + ".key");
        EXPECT_EQ(check().status, 0) << check().out;
        EXPECT_EQ(publishSigned(manifest).status, 0);
    }
    EXPECT_EQ(run("rotate", {"--expires", "root=20"}).status, 0);  // renews the root
    EXPECT_THAT(publishSigned(manifest).err, HasSubstr("warning: root expires in "));
    EXPECT_TRUE(fs::exists(metadata + "/5.root.json"));
    EXPECT_EQ(run("rotate", {"--role", "snapshot", "--remove", "0123456789"}).status, 2);
    EXPECT_EQ(run("rotate", {"--threshold", "2"}).status, 2);
    EXPECT_EQ(check().status, 0) << check().out;
}

TEST_F(MetadataTest, CheckFindsMetadataThatAgentsRefuse) {
    ASSERT_EQ(publishSigned(manifest).status, 0);
    const std::string saved = dir / "saved";
    ASSERT_EQ(shell("cp -a repository saved"), 0);
    struct Case {
        std::function<void()> spoil;
        const char* finding;
    };
    const std::vector<Case> cases = {
        {[&] { fs::remove(metadata + "/1.root.json"); }, "it has no 1.root.json"},
        {[&] { fs::remove(metadata + "/1.snapshot.json"); }, "the server has no 1.snapshot.json"},
        {[&] { writeFile(metadata + "/1.targets.json", "{}"); }, "agents refuse it: metadata role targets"},
        {[&] {
             run("refresh", {"--expires", "timestamp=1"});
         },
         "timestamp expires in "},
        {[&] { fs::remove(repository + "/content/CVE-1.xml"); }, "the metadata lists it, and it is missing"},
        {[&] { writeFile(repository + "/content/CVE-1.xml", "x"); }, "the metadata lists another file"},
        {[&] { writeFile(repository + "/content/CVE-7.xml", "x"); }, "the metadata does not list it"},
        {[&] { fs::remove(digestName("CVE-1.xml")); }, "agents ask for content/CVE-1.xml by this name"},
    };
    for (const Case& one : cases) {
        one.spoil();
        EXPECT_THAT(check().out, HasSubstr(one.finding));
        ASSERT_EQ(shell("rm -rf repository && cp -a saved repository"), 0);
    }
    EXPECT_EQ(check().status, 0) << check().out;
}

TEST_F(MetadataTest, KeysAreNamedForRolesAndNeverOverwritten) {
    struct stat status {};
    ASSERT_EQ(::stat((keys + "/targets.key").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(contentTool({"keygen", "--out", keys, "--role", "targets"}).status, 2);
    EXPECT_EQ(contentTool({"keygen", "--out", keys, "--role", "targets", "--holder", "../x"}).status, 2);
    EXPECT_EQ(contentTool({"keygen", "--out", dir / "other", "--type", "ed25519"}).status, 2);
    // An existing key serves for any role, and one that signs no metadata is refused by name.
    fs::copy_file(privateKey, keys + "/timestamp.key", fs::copy_option::overwrite_if_exists);
    EXPECT_EQ(publishSigned(manifest).status, 0);
    ASSERT_EQ(
        shell("openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-384 -out metadata-keys/root.key"),
        0);
    const ToolRun run = publishSigned(manifest);
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, AllOf(HasSubstr("root.key"), HasSubstr("P-256")));
}

TEST(MetadataServing, NamesWithVersionOrDigestAreCachedForEver) {
    const std::string digest(64, 'a');
    for (const char* path : {"/metadata/12.root.json", "/metadata/1.bins-0a.json"})
        EXPECT_THAT(cacheControl(path), HasSubstr("immutable")) << path;
    EXPECT_THAT(cacheControl("/content/" + digest + ".CVE-1.xml"), HasSubstr("immutable"));
    EXPECT_EQ(cacheControl("/metadata/timestamp.json"), "no-cache");
    EXPECT_EQ(cacheControl("/content/CVE-1.xml"), "");
    EXPECT_EQ(cacheControl("/1.root.json"), "");
}

}  // namespace
}  // namespace zelor::authoring

#include "authoring/manifest/Manifest.h"
#include "platform/macos/InstallerKinds.h"
#include "tools/AuthoringFixture.h"

namespace zelor::authoring {
namespace {

using test::ToolRun;
using test::writeFile;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

struct ManifestTest : test::Authoring {
    /// A manifest of one good entry, with these fields added or replaced.
    static std::string with(const std::string& fields) {
        return R"([{"identifier": "CVE-1", "product": "cpe:/a:x:y", )" + fields + "}]";
    }
};

TEST_F(ManifestTest, ErrorsNameEntryFieldAndRemedyAndPublishNothing) {
    struct Case {
        const char* name;
        std::string manifest;
        std::vector<std::string> says;
    };
    const std::string pkg = R"("file": "editor-2.1.pkg")", script = R"("file": "lock.bsh")";
    const std::string entry = R"("identifier": "CVE-1", "product": "cpe:/a:x:y")";
    const Case cases[] = {
        {"no JSON", "[{,", {"it is not JSON at line 1, column 3: unexpected ','; expected string literal\n"}},
        {"number too large", "[1e999]", {"it is not JSON: number overflow"}},
        {"no list", R"({"identifier": "CVE-1"})", {"list of entries"}},
        {"entry is no object", "[1]", {"entry 1", "not an object"}},
        {"unknown field", with(pkg + R"(, "reebot": true)"), {"CVE-1", "\"reebot\" is unknown", "reboot"}},
        {"unknown field of an eri", with(R"("eris": [{"fil": "x"}])"), {"eri 1", "\"fil\"", "file"}},
        {"both forms", with(R"("cres": [{}])"), {"\"product\" is unknown here", "cres"}},
        {"wrong type", with(pkg + R"(, "impact": 3)"), {"\"impact\" is not a text", "quotes"}},
        {"flag as text", with(pkg + R"(, "reboot": "yes")"), {"\"reboot\"", "without quotes"}},
        {"empty list", with(R"("eris": [])"), {"\"eris\" is not a list"}},
        {"control character", with(pkg + R"(, "silent": "a\u001bb")"), {"\"silent\"", "control character"}},
        {"blanks", with(pkg + R"(, "id": " CRE")"), {"\"id\"", "white space"}},
        {"no identifier", "[{" + pkg + R"(, "product": "cpe:/a:x"}])", {"entry 1", "no identifier"}},
        {"identifier as path", R"([{"identifier": "CVE-1/../2", )" + pkg + "}]", {"cannot be a file name"}},
        {"identifier of no kind", R"([{"identifier": "oval-1", )" + pkg + "}]", {"neither \"CVE-\" nor"}},
        {"repeated identifier",
         "[{" + entry + "," + pkg + "},{" + entry + "," + pkg + "}]",
         {"CVE-1", "is duplicated"}},
        {"not a CPE",
         R"([{"identifier": "CVE-1", "platform": "mac", )" + pkg + "}]",
         {"platform \"mac\"", "cpe:/o"}},
        {"missing file", with(R"("file": "none.pkg")"), {"\"file\"", "none.pkg", "relative"}},
        {"patch id without file", with(R"("patchId": "x.pkg")"), {"\"patchId\"", "omitArchive"}},
        {"no patch", with(R"("impact": "x")"), {"names no patch", "OS Remediation"}},
        {"no dot", with(pkg + R"(, "patchId": "editor")"), {"has no \".\""}},
        {"path in patch id", with(pkg + R"(, "patchId": "../x.pkg")"), {"path separator"}},
        {"archive's own name", with(pkg + R"(, "patchId": "x.zip")"), {"collides with its own archive"}},
        {"no installer", with(script), {"no installer accepts", platform::installableText()}},
        {"bundle as file", with(pkg + R"(, "patchId": "x.app")"), {"is a file", "directory"}},
        {"image as directory", with(R"("file": "Bundle.app", "patchId": "x.dmg")"), {"must be a file"}},
        {"misleading size", with(pkg + R"(, "size": "2 GB")"), {"\"size\"", "2 bytes", "leave it out"}},
        {"same stem",
         with(R"("eris": [{"file": "image.dmg"}, {"file": "image.dmg", "patchId": "IMAGE.pkg"}])"),
         {"both use the archive IMAGE.zip", "patchId"}},
        {"script that does not parse",
         R"([{"identifier": "CCE-1", "file": "bad.bsh"}])",
         {"CCE-1", "bash cannot parse the script: line 3", "correct the line"}},
        {"configuration that names a package",
         R"([{"identifier": "CCE-1", "file": "editor-2.1.pkg"}])",
         {"bash runs what a CCE names", "CVE identifier"}},
        {"wrong MD5", with(pkg + R"(, "md5": "00")"), {"field \"md5\" is 00", "leave the field out"}},
        {"package of garbage", with(R"("file": "garbage.pkg")"), {"is not a package", "\"xar!\""}},
        {"package that is cut off", with(R"("file": "cut.pkg")"), {"is not a package", "cut off"}},
        {"bundle with a set-user-id program", with(R"("file": "Setuid.app")"), {"chmod ug-s"}},
        {"missing check", with(pkg + R"(, "check": "none.sh")"), {", check", "none.sh", "relative"}},
        {"check that does not parse", with(pkg + R"(, "check": "bad.bsh")"), {"cannot parse", "line 3"}},
        {"check that would apply it",
         R"([{"identifier": "CCE-1", "file": "lock.bsh", "check": "lock.bsh"}])",
         {"its check is its patch"}},
        {"check of no kind", with(pkg + R"(, "check": {"version": "1"})"), {"not one of a receipt and"}},
        {"check of two kinds",
         with(pkg + R"(, "check": {"receipt": "a", "bundle": "/a"})"),
         {"not one of a receipt and"}},
        {"check with an odd path",
         with(pkg + R"(, "check": {"bundle": "A.app"})"),
         {"agents could not use its content", "plain absolute path"}},
        {"same ERI id",
         with(R"("eris": [{"id": "E", "file": "image.dmg"}, {"id": "E", "file": "image.dmg"}])"),
         {"its id is duplicated", "unique id"}},
        {"competing CREs",
         R"([{"identifier": "CVE-1", "cres": [{"product": "cpe:/a:x", )" + pkg +
             R"(}, {"product": "cpe:/a:x", )" + pkg + "}]}]",
         {"CRE-CVE-1-2", "this one never is"}},
    };
    writeFile(source + "/bad.bsh", "#!/bin/bash\nif true; then\n");
    writeFile(source + "/garbage.pkg", std::string(100, 'g'));
    writeFile(source + "/cut.pkg", test::flatPackage(""));
    writeFile(source + "/Setuid.app/run", "program");
    ::chmod((source + "/Setuid.app/run").c_str(), 04755);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ToolRun run = publish(c.manifest);
        EXPECT_EQ(run.status, 2);
        for (const std::string& said : c.says)
            EXPECT_THAT(run.err, HasSubstr(said));
        EXPECT_THAT(run.err, Not(HasSubstr("json.exception")));
        EXPECT_THAT(run.err, AllOf(HasSubstr("manifest.json"), HasSubstr("remedy: "),
                                   HasSubstr("nothing was published")));
        EXPECT_FALSE(boost::filesystem::exists(repository));
    }
}

TEST_F(ManifestTest, EveryErrorIsReportedAtOnce) {
    writeFile(source + "/bad.bsh", "if true; then\n");
    const std::string err = publish(R"([
        {"identifier": "x", "file": "none.pkg"}, {"identifier": "y"},
        {"identifier": "CVE-1", "reebot": true, "file": "gone.dmg"},
        {"identifier": "CCE-2", "file": "bad.bsh", "product": "cpe:/a:x", "platform": "mac"},
        {"identifier": "CVE-3", "product": "cpe:/a:x", "file": "image.dmg", "md5": "00"}])")
                                .err;
    for (const char* said : {"\"x\"", "none.pkg", "\"y\"", "names no patch", "\"reebot\"", "gone.dmg",
                             "cannot parse the script", "platform \"mac\"", "\"md5\" is 00"})
        EXPECT_THAT(err, HasSubstr(said));
}

TEST_F(ManifestTest, AnOmittedArchiveLeavesTheContentAlone) {
    ASSERT_EQ(publish(with(R"("patchId": "later.pkg", "omitArchive": true, "size": "1 MB")")).status, 0);
    EXPECT_FALSE(boost::filesystem::exists(repository + "/patches/later.zip"));
    const ToolRun run = check();
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("\"later.pkg\" has no archive"));
}

TEST_F(ManifestTest, BothSpellingsOfTheListAreRead) {
    Findings findings;
    const std::string list = with(R"("file": "a.pkg")");
    const Manifest bare = parseManifest(list, "/f", "m", findings);
    const Manifest named = parseManifest("{\"entries\": " + list + "}", "/f", "m", findings);
    ASSERT_EQ(bare.patches.size(), 1U);
    ASSERT_EQ(named.patches.size(), 1U);
    EXPECT_EQ(named.patches[0].file, "/f/a.pkg");
    EXPECT_EQ(named.patches[0].patchId, "a.pkg");
    EXPECT_TRUE(findings.empty());
}

}  // namespace
}  // namespace zelor::authoring

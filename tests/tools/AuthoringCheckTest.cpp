#include <functional>
#include <nlohmann/json.hpp>
#include <regex>

#include "authoring/checks/ContentChecks.h"
#include "authoring/checks/FileChecks.h"
#include "authoring/checks/ScriptChecks.h"
#include "authoring/publish/ContentXml.h"
#include "authoring/publish/Digests.h"
#include "authoring/publish/SigningKey.h"
#include "support/ArchiveBuilder.h"
#include "tools/AuthoringFixture.h"
#include "tools/JsonSchema.h"

namespace zelor::authoring {
namespace {

namespace fs = boost::filesystem;
using test::ArchiveBuilder;
using test::readFile;
using test::ToolRun;
using test::writeFile;
using testing::HasSubstr;
using testing::IsEmpty;

struct CheckTest : test::Authoring {
    CheckTest() { publish(); }

    std::string path(const std::string& name) const { return repository + '/' + name; }
    std::string sign(const std::string& bytes) const {
        return SigningKey::load(privateKey).sign(digestsOfText(bytes).sha256);
    }
    void writeSigned(const std::string& identifier, const std::string& xml) const {
        writeFile(path("content/" + identifier + ".xml"), xml);
        writeFile(path("content/" + identifier + ".xml.sig"), sign(xml));
    }
    /// Changes signed content as an author could by hand.
    void edit(const std::string& identifier, const std::string& from, const std::string& to) const {
        std::string xml = readFile(path("content/" + identifier + ".xml"));
        ASSERT_NE(xml.find(from), std::string::npos) << xml;
        writeSigned(identifier, xml.replace(xml.find(from), from.size(), to));
    }
    /// An archive made by hand of a script and its signature.
    void script(const std::string& text, const std::function<void(ArchiveBuilder&)>& more = {}) const {
        ArchiveBuilder zip;
        zip.file("lock.bsh", text).file("lock.sig", sign(text));
        if (more) more(zip);
        writeFile(path("patches/lock.zip"), zip.finish());
        writeFile(path("patches/lock.sig"), sign(text));
    }
    std::string good() const { return readFile(source + "/lock.bsh"); }
};

/// What leaves its quotes or brackets must neither run nor decide about the others.
TEST_F(CheckTest, ManyScriptsAreParsedAsOneByOneAndNoneRuns) {
    const std::string run = "\nset +n\ntouch '" + path("ran") + "'\n";
    const std::string texts[] = {"echo good\n",
                                 run,
                                 "'" + run + "'",
                                 "\"" + run,
                                 ")" + run + "(",
                                 "}" + run,
                                 "if true; then",
                                 std::string("a\0b", 3) + run,
                                 "cat <<END\n",
                                 "echo \\",
                                 "",
                                 "exit 0" + run,
                                 "$(" + run,
                                 "`" + run,
                                 "#" + run + ")",
                                 "\nif [[ a ] ]; then\n"};
    std::vector<ScriptFile> scripts;
    for (std::size_t i = 0; i < 13 * std::size(texts); ++i) {
        scripts.push_back({"script " + std::to_string(i), path("s" + std::to_string(i))});
        writeFile(scripts.back().file, texts[i % std::size(texts)]);
    }
    scripts.push_back({"missing", path("none")});
    const std::vector<Findings> found = scriptFindings(scripts);
    ASSERT_EQ(found.size(), scripts.size());
    for (std::size_t i = 0; i < scripts.size(); ++i)
        EXPECT_EQ(findingsText(found[i]), findingsText(scriptFindings(scripts[i].place, scripts[i].file)))
            << scripts[i].place;
    EXPECT_THAT(found[6], testing::SizeIs(1));
    EXPECT_FALSE(boost::filesystem::exists(path("ran")));
}

TEST_F(CheckTest, AGoodRepositoryHasNoFindings) {
    const ToolRun run = check();
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(run.out, "4 entries, 4 patches: 0 errors, 0 warnings\n");
}

TEST_F(CheckTest, FindsEachPlantedFaultAndSaysItsRemedy) {
    struct Fault {
        const char* name;
        std::function<void()> plant;
        const char* severity;
        const char* place;
        const char* what;
        const char* remedy;
        bool together = false;  ///< also planted with others
    };
    const auto remove = [this](const std::string& name) { fs::remove(path(name)); };
    const Fault faults[] = {
        {"content changed",
         [&] { writeFile(path("content/CVE-3.xml"), readFile(path("content/CVE-3.xml")) + " "); }, "error",
         "content/CVE-3.xml", "fails its signature check", "find out who changed it", true},
        {"content unsigned", [&] { remove("content/CVE-3.xml.sig"); }, "error", "content/CVE-3.xml",
         "fails its signature check", "publish the entry again"},
        {"content malformed", [&] { writeSigned("CVE-3", "<remediation"); }, "error", "content/CVE-3.xml",
         "malformed XML", "publish the entry again"},
        {"content of another", [&] { writeSigned("CVE-3", readFile(path("content/CVE-1.xml"))); }, "error",
         "content/CVE-3.xml", "is for \"CVE-1\"", "publish the entry again"},
        {"empty content", [&] { writeSigned("CVE-3", R"(<remediation identifier="CVE-3"/>)"); }, "error",
         "content/CVE-3.xml", "has no cre", "add one"},
        {"empty product", [&] { edit("CVE-2", "cpe:/a:x:bundle\">", "\">"); }, "warning", "content/CVE-2.xml",
         "empty product matches", "leave the attribute out", true},
        {"archive missing", [&] { remove("patches/image.zip"); }, "error", "content/CVE-1.xml, ERI-8",
         "has no archive patches/image.zip", "publish the patch", true},
        {"archive tampered with",
         [&] {
             ArchiveBuilder zip;
             writeFile(path("patches/lock.zip"),
                       zip.file("lock.bsh", "evil").file("lock.sig", sign(good())).finish());
         },
         "error", "patches/lock.zip", "fails its signature check", "find out who changed it"},
        {"archive without signature",
         [&] {
             ArchiveBuilder zip;
             writeFile(path("patches/lock.zip"), zip.file("lock.bsh", good()).finish());
         },
         "error", "patches/lock.zip", "does not contain the signature lock.sig", "publish the patch again"},
        {"archive without patch",
         [&] {
             ArchiveBuilder zip;
             writeFile(path("patches/lock.zip"), zip.file("lock.sig", sign(good())).finish());
         },
         "error", "patches/lock.zip", "does not contain \"lock.bsh\"", "publish the patch again"},
        {"archive leaves the directory",
         [&] { script(good(), [](auto& zip) { zip.file("../../etc/x", "x"); }); }, "error",
         "patches/lock.zip", "refuse to unpack", "find out who changed it"},
        {"archive is none", [&] { writeFile(path("patches/lock.zip"), "no zip"); }, "error",
         "patches/lock.zip", "refuse to unpack", "publish the patch again"},
        {"archive holds more", [&] { script(good(), [](auto& zip) { zip.file("else.bsh", "x"); }); },
         "warning", "patches/lock.zip", "also contains \"else.bsh\"", "one patch per archive"},
        {"signature beside is old", [&] { writeFile(path("patches/lock.sig"), sign("old")); }, "warning",
         "patches/lock.zip", "signature beside it", "publish the patch again"},
        {"wrong md5", [&] { edit("CCE-1", "md5=\"", "md5=\"0"); }, "error", "content/CCE-1.xml, ERI-CCE-1-1",
         "is not that of \"lock.bsh\"", "publish the entry again", true},
        {"content from before digests",
         [&] {
             std::string xml = readFile(path("content/CCE-1.xml"));
             writeSigned("CCE-1",
                         std::regex_replace(xml, std::regex(" (sha256|length|archive\\w+)=\"\\w+\""), ""));
         },
         "error", "content/CCE-1.xml, ERI-CCE-1-1", "gives no digest of patches/lock.zip",
         "publish the entry again"},
        {"digest of another archive", [&] { script(good()); }, "error", "content/CCE-1.xml, ERI-CCE-1-1",
         "patches/lock.zip is not that of its content", "publish the entry again"},
        {"digest of another file", [&] { edit("CCE-1", " length=\"", " length=\"1"); }, "error",
         "content/CCE-1.xml, ERI-CCE-1-1", "\"lock.bsh\" is not that of its content",
         "publish the entry again", true},
        {"size too small", [&] { edit("CVE-1", "294 KB", "29 KB"); }, "warning", "content/CVE-1.xml, ERI-7-1",
         "too small", "\"294 KB\""},
        {"size in gigabytes", [&] { edit("CVE-1", "294 KB", "2 GB"); }, "warning",
         "content/CVE-1.xml, ERI-7-1", "reads as 2 bytes", "KB", true},
        {"patch id as path", [&] { edit("CVE-1", "image.dmg", "../image.dmg"); }, "error",
         "content/CVE-1.xml, ERI-8", "path separator", "plain file name"},
        {"patch id without dot", [&] { edit("CVE-1", "image.dmg", "image"); }, "error",
         "content/CVE-1.xml, ERI-8", "has no \".\"", "give it an extension"},
        {"long extension", [&] { edit("CCE-1", "lock.bsh", "lock.bash"); }, "warning", "content/CCE-1.xml",
         "never found in the buffer", "lock.bsh"},
        {"hidden .app", [&] { edit("CVE-1", "editor-2.1.pkg", "my.apple.pkg"); }, "warning",
         "content/CVE-1.xml, ERI-7-1", "is installed as .app", "rename the patch", true},
        {"names within names", [&] { edit("CVE-1", "editor-2.1.pkg", "old-image.dmg"); }, "warning",
         "patch \"old-image.dmg\"", "contains that of patch \"image.dmg\"", "rename one of the two"},
        {"one archive for two", [&] { edit("CVE-1", "editor-2.1.pkg", "image.pkg"); }, "error",
         "content/CVE-1.xml, ERI-7-1", "shares the archive image.zip", "rename one"},
        {"package of garbage",
         [&] {
             ArchiveBuilder zip;
             const std::string bytes(300'000, 'g');
             writeFile(path("patches/editor-2.1.zip"),
                       zip.file("editor-2.1.pkg", bytes).file("editor-2.1.sig", sign(bytes)).finish());
         },
         "error", "content/CVE-1.xml, ERI-7-1", "is not a package", "pkgbuild"},
        {"script does not parse", [&] { script("#!/bin/bash\nif true; then\n"); }, "error",
         "patches/lock.zip", "cannot parse the script: line", "correct the line", true},
        {"competing CREs", [&] { edit("CVE-1", "cpe:/a:x:two\">", "cpe:/a:x:one\">"); }, "error",
         "content/CVE-1.xml, CRE-CVE-1-2", "this one never is", "different platforms or products", true},
        {"several ERIs",
         [&] {
             edit("CVE-3", "</cre>",
                  "<eri id=\"ERI-9\"><product>cpe:/o:apple:mac_os_x</product><instructions>OS "
                  "Remediation</instructions></eri></cre>");
         },
         "warning", "content/CVE-3.xml, CRE-CVE-3", "has 2 ERIs", "one ERI for each identifier"},
        {"one ERI id twice", [&] { edit("CVE-3", "\"ERI-CVE-3-1\"", "\"ERI-8\""); }, "error",
         "content/CVE-3.xml, ERI-8", "its id is duplicated: content/CVE-1.xml", "unique id"},
        {"knowledge-base number", [&] { edit("CVE-1", "<mskb></mskb>", "<mskb>KB1</mskb>"); }, "warning",
         "content/CVE-1.xml, ERI-7-1", "is skipped on this platform", "leave mskb out", true},
        {"own installer without silent",
         [&] {
             const std::string eri = "\"ERI-8\" reboot=\"false\">";
             edit("CVE-1", eri, eri + "<instructions>Using install option</instructions>");
         },
         "warning", "content/CVE-1.xml, ERI-8", "the shell refuses the command",
         "name the bundle's installer in silent"},
        {"image of no kind",
         [&] {
             writeFile(source + "/image.dmg", "text");
             publish();
         },
         "warning", "patches/image.zip", "is not a disk image of a known kind", "hdiutil create"},
        {"identifier of no kind", [&] { writeSigned("X-1", R"(<remediation identifier="X-1"/>)"); }, "error",
         "content/X-1.xml", "begins with neither", "identifier that requests name", true},
        {"archive that nobody names", [&] { writeFile(path("patches/old.zip"), "x"); }, "warning",
         "patches/old.zip", "no content names it", "remove it", true},
        {"signature of nothing", [&] { writeFile(path("content/CVE-8.xml.sig"), "x"); }, "warning",
         "content/CVE-8.xml.sig", "missing content", "remove it", true},
        {"something else", [&] { writeFile(path("patches/notes.txt"), "x"); }, "warning", "patches/notes.txt",
         "no agent asks for it", "remove it", true},
        {"no speed file", [&] { remove("speed.bin"); }, "warning", "speed.bin", "1024 bytes per second",
         "publish again", true},
    };
    const auto report = [&] {
        std::vector<std::string> words = {"check", repository, "--key", publicKey, "--json"};
        const ToolRun run = test::contentTool(words);
        const bool error = run.out.find("\"severity\": \"error\"") != std::string::npos;
        EXPECT_EQ(run.status, error ? 1 : 0);
        words.emplace_back("--warnings-as-errors");
        EXPECT_EQ(test::contentTool(words).status, 1);
        return nlohmann::json::parse(run.out).at("findings");
    };
    const auto expectFound = [](const nlohmann::json& findings, const Fault& fault) {
        const bool found = std::any_of(findings.begin(), findings.end(), [&](const nlohmann::json& finding) {
            const auto holds = [&](const char* field, const char* text) {
                return finding.at(field).get<std::string>().find(text) != std::string::npos;
            };
            return finding.at("severity") == fault.severity && holds("place", fault.place) &&
                   holds("what", fault.what) && holds("remedy", fault.remedy);
        });
        EXPECT_TRUE(found) << fault.name << " is not among " << findings.dump(1);
    };
    fs::rename(repository, dir / "good");
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.name);
        fs::remove_all(repository);
        ASSERT_EQ(shell("cp -R good repository"), 0);
        fault.plant();
        expectFound(report(), fault);
    }
    // No fault hides another.
    fs::remove_all(repository);
    fs::rename(dir / "good", repository);
    for (const Fault& fault : faults) {
        if (fault.together) fault.plant();
    }
    const nlohmann::json broken = report();
    for (const Fault& fault : faults) {
        if (fault.together) expectFound(broken, fault);
    }
    EXPECT_GE(std::count_if(std::begin(faults), std::end(faults), [](const Fault& f) { return f.together; }),
              12);
}

TEST_F(CheckTest, WritesSarif) {
    const test::JsonSchema schema(nlohmann::json::parse(readFile(ZELOR_SARIF_SCHEMA)));
    const std::vector<std::string> command = {"check", repository, "--key", publicKey, "--sarif"};
    const auto checkTo = [&](const std::string& file) {
        std::vector<std::string> words = command;
        words.push_back(file);
        return test::contentTool(words);
    };
    EXPECT_EQ(nlohmann::json::parse(checkTo("-").out)["runs"][0]["results"], nlohmann::json::array());
    writeFile(path("content/a \"b\"\n\xff.txt"), "x");
    writeSigned("CVE-3", "<remediation");
    const std::string file = dir / "findings.sarif";
    const ToolRun run = checkTo(file);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("error: content/CVE-3.xml"));
    nlohmann::json log = nlohmann::json::parse(readFile(file));
    EXPECT_EQ(schema.problem(log), "");
    nlohmann::json& results = log["runs"][0]["results"];
    const auto find = [&](const char* uri) {
        return std::count_if(results.begin(), results.end(), [&](const nlohmann::json& result) {
            return result["locations"][0]["physicalLocation"]["artifactLocation"]["uri"] == uri;
        });
    };
    EXPECT_GE(find("content/CVE-3.xml"), 1);
    EXPECT_EQ(find("content/a%20%22b%22%0A%FF.txt"), 1);
    results[0]["level"] = "fatal";
    EXPECT_EQ(schema.problem(log), "$.runs[0].results[0].level breaks enum");
    EXPECT_EQ(checkTo("/dev/null").status, 2);
    EXPECT_EQ(checkTo(dir / "none/findings.sarif").status, 2);
}

TEST_F(CheckTest, UnusableArgumentsAreNoFindings) {
    EXPECT_EQ(test::contentTool({"check", dir / "none", "--key", publicKey}).status, 2);
    EXPECT_EQ(test::contentTool({"check", repository, "--key", privateKey}).status, 2);
    EXPECT_EQ(test::contentTool({"check", repository}).status, 2);
    EXPECT_EQ(test::contentTool({"chek"}).status, 2);
    EXPECT_EQ(test::contentTool({"--help"}).status, 0);
}

TEST_F(CheckTest, HostileContentCannotWriteToTheTerminal) {
    edit("CVE-3", "\"ERI-CVE-3-1\"", "\"ERI&#x1b;[2J\"");
    fs::rename(path("patches/lock.zip"), path("patches/gone.zip"));
    EXPECT_EQ(check().out.find('\x1b'), std::string::npos);
}

TEST_F(CheckTest, ABareBundleWouldLoseItsDirectory) {
    ASSERT_EQ(publish(R"([{"identifier": "CVE-2", "product": "cpe:/a:x", "file": "Bundle.app/Bundle.app"}])")
                  .status,
              0);
    EXPECT_THAT(check().out, HasSubstr("straight into /Applications/"));
}

TEST(NameChecksTest, ContainmentIsFoundAmongManyNames) {
    std::set<std::string> names = {"foo.pkg", "barfoo.pkg", "foo.pkg.dmg"};
    for (int i = 0; i < 5000; ++i)
        names.insert("patch-" + std::to_string(100000 + i) + ".pkg");
    const Findings findings = containmentFindings(names);
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[0].place, "patch \"barfoo.pkg\"");
    EXPECT_EQ(findings[1].place, "patch \"foo.pkg.dmg\"");
    EXPECT_THAT(containmentFindings({"a.pkg", "b.pkg", "c.dmg"}), IsEmpty());
}

TEST(NameChecksTest, PatchNames) {
    for (const char* good : {"a.pkg", "Editor.app", "image-1.2.dmg"})
        EXPECT_THAT(patchNameFindings("p", good, false), IsEmpty()) << good;
    EXPECT_THAT(patchNameFindings("p", "x.bsh", true), IsEmpty());
    struct Case {
        const char* patchId;
        const char* what;
    };
    for (const Case& c : {Case{"..", "names a directory"},
                          {"a\nb.pkg", "control character"},
                          {".pkg", "has no name"},
                          {"a.", "has no name"},
                          {"a.SIG", "collides"},
                          {"a=b.pkg", "contains \"=\""},
                          {" a.pkg", "white space"},
                          {"a.pkg.dmg", "installed as .pkg"},
                          {"a.exe", "no installer"}}) {
        const Findings findings = patchNameFindings("p", c.patchId, false);
        ASSERT_EQ(findings.size(), 1U) << c.patchId;
        EXPECT_THAT(findings[0].what, HasSubstr(c.what));
    }
}

TEST(ContentChecksTest, CresCompeteUnlessTheLaterOneIsTheGeneralCase) {
    struct Case {
        const char* name;
        const char *platform1, *product1, *platform2, *product2;
        const char* what;
    };
    const Case cases[] = {
        {"different", "cpe:/o:a", "cpe:/a:x", "cpe:/o:a", "cpe:/a:y", ""},
        {"exception first", "cpe:/o:a", "cpe:/a:x", "cpe:/o:a", "", ""},
        {"exception for both", "cpe:/o:a", "cpe:/a:x", "", "", ""},
        {"the same", "cpe:/o:a", "cpe:/a:x", "cpe:/o:a", "cpe:/a:x", "never is"},
        {"both general", "", "", "", "", "never is"},
        {"general first", "cpe:/o:a", "", "cpe:/o:a", "cpe:/a:x", "never is"},
        {"crossing", "cpe:/o:a", "", "", "cpe:/a:x", "the first match is used"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ContentEri eri;
        eri.id = "1";
        eri.patchId = "a.pkg";
        ContentEntry entry{
            "e", "CVE-1", {{"A", c.platform1, c.product1, {eri}}, {"B", c.platform2, c.product2, {eri}}}};
        const Findings findings = entryFindings(entry);
        ASSERT_EQ(findings.size(), *c.what ? 1U : 0U);
        if (!findings.empty()) {
            EXPECT_THAT(findings[0].what, HasSubstr(c.what));
        }
    }
}

TEST(SizeCheckTest, AllowsTheArchiveTheFileAndRounding) {
    constexpr std::uint64_t kMb = 1048576;
    EXPECT_THAT(sizeFindings("p", "10 MB", 10 * kMb, 10 * kMb), IsEmpty());
    EXPECT_THAT(sizeFindings("p", "10.1 MB", 10 * kMb + 1, 10 * kMb), IsEmpty());
    EXPECT_THAT(sizeFindings("p", "30 MB", 10 * kMb, 30 * kMb), IsEmpty()) << "compressed in the archive";
    EXPECT_EQ(sizeFindings("p", "9 MB", 10 * kMb, 10 * kMb).size(), 1U);
    EXPECT_EQ(sizeFindings("p", "12 MB", 10 * kMb, 10 * kMb).size(), 1U);
    EXPECT_EQ(sizeFindings("p", "", 10 * kMb, 10 * kMb).size(), 1U);
}

}  // namespace
}  // namespace zelor::authoring

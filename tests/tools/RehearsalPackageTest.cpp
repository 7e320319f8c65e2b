#include <archive.h>
#include <archive_entry.h>

#include <memory>

#include "rehearsal/ArchiveWriter.h"
#include "rehearsal/PackageText.h"
#include "tools/RehearsalFixture.h"

namespace fs = boost::filesystem;

namespace zelor::test {

namespace {

using rehearsal::ArchiveWriter;
using testing::HasSubstr;
using testing::Not;

struct RehearsalPackage : RehearsalMac {
    std::string source = dir / "source", package = dir / "editor-2.1.pkg", scripts = dir / "scripts";

    void build(Words more = {}, const std::string& version = "2.1") {
        Words words{"build-pkg", "--id", "com.example.editor", "--version", version, source, package};
        words.insert(words.begin() + 1, more.begin(), more.end());
        mac(words);
    }
    MacRun install() { return tool("installer", {"-pkg", package, "-target", "/"}); }
};

std::string successText(const std::string& title, bool upgrade) {
    return "installer: Package name is " + title + "\ninstaller: " + (upgrade ? "Upgrading" : "Installing") +
           " at base path /\ninstaller: The " + (upgrade ? "upgrade" : "install") + " was successful.\n";
}

TEST_F(RehearsalPackage, InstallsWhatWasBuiltAndUpgradesIt) {
    makeSource(source);
    build({"--install-location", "/Applications"});
    MacRun run = install();
    EXPECT_EQ(run.out, successText("editor-2.1", false)) << run.err;
    EXPECT_EQ(run.exit, 0);
    EXPECT_EQ(treeOf(root + "/Applications"), treeOf(source));

    writeFile(source + "/empty", "no longer");
    build({"--install-location", "/Applications", "--name", "Editor <2> & \"more\"", "--restart"}, "2.2");
    run = install();
    EXPECT_EQ(run.out, successText("Editor <2> & \"more\"", true) +
                           "installer: The install requires restarting now.\n");
    EXPECT_EQ(treeOf(root + "/Applications"), treeOf(source));
    const auto receipts = state().at("receipts");
    ASSERT_EQ(receipts.size(), 1U);
    EXPECT_EQ(receipts[0].at("version"), "2.2");
    EXPECT_EQ(receipts[0].at("location"), "/Applications");
}

TEST_F(RehearsalPackage, RunsScriptsAroundThePayload) {
    writeFile(source + "/tool.txt", "tool");
    writeFile(scripts + "/helper", "help");
    writeFile(scripts + "/preinstall", "test ! -e \"$2/tool.txt\" && cat helper > \"$3/before\"\n");
    writeFile(scripts + "/postinstall", "test -e \"$2/tool.txt\" && printf '%s\\n' \"$@\" > \"$3/after\"\n");
    build({"--install-location", "/opt/a b", "--scripts", scripts});
    EXPECT_EQ(install().exit, 0);
    EXPECT_EQ(readFile(root + "/before"), "help");
    EXPECT_EQ(readFile(root + "/after"), package + "\n" + root + "/opt/a b\n" + root + "\n");
}

TEST_F(RehearsalPackage, FailsWithItsScripts) {
    writeFile(source + "/tool.txt", "tool");
    for (const std::string script : {"preinstall", "postinstall"}) {
        fs::remove_all(scripts);
        writeFile(scripts + "/" + script, "echo it broke\nexit 3\n");
        build({"--scripts", scripts});
        const MacRun run = install();
        EXPECT_EQ(run.exit, 1);
        EXPECT_THAT(run.out, HasSubstr("installer: The install failed. ("));
        EXPECT_THAT(run.out, HasSubstr("running scripts from the package \xe2\x80\x9c"
                                       "editor-2.1.pkg"));
        EXPECT_EQ(fs::exists(root + "/tool.txt"), script == "postinstall");
        EXPECT_TRUE(state().at("receipts").empty());
    }
    EXPECT_THAT(readFile(tools + "/state/install.log"), HasSubstr("it broke"));
}

TEST_F(RehearsalPackage, RefusesWhatIsNoPackage) {
    writeFile(dir / "text.pkg", "no package at all");
    writeFile(dir / "empty.pkg", "");
    fs::create_directory(dir / "directory.pkg");
    for (const std::string name : {"text.pkg", "empty.pkg", "directory.pkg", "missing.pkg"}) {
        const MacRun run = tool("installer", {"-pkg", dir / name, "-target", "/"});
        EXPECT_EQ(run.exit, 1) << name;
        EXPECT_EQ(run.out, "") << name;
        EXPECT_EQ(run.err,
                  "installer: Error - the package path specified was invalid: '" + (dir / name) + "'.\n");
    }
}

TEST_F(RehearsalPackage, NoticesDamage) {
    makeSource(source);
    build();
    std::string bytes = readFile(package);
    bytes.at(bytes.size() - 40) = static_cast<char>(bytes.at(bytes.size() - 40) ^ 0x55);
    writeFile(package, bytes);
    const MacRun run = install();
    EXPECT_EQ(run.exit, 1);
    EXPECT_THAT(run.out + run.err, Not(HasSubstr("successful")));
    // Only what init wrote exists.
    for (const fs::directory_entry& entry : fs::directory_iterator(root))
        EXPECT_EQ(entry.path().filename(), "etc");
}

/// Payloads that no author's tool would write.
class PayloadWriter {
  public:
    explicit PayloadWriter(const std::string& path) : writer_(archive_write_new(), archive_write_free) {
        archive_write_set_format_cpio_newc(writer_.get());
        archive_write_add_filter_gzip(writer_.get());
        archive_write_open_filename(writer_.get(), path.c_str());
    }
    void add(const std::string& name, unsigned mode, const std::string& content) {
        const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                             archive_entry_free);
        archive_entry_copy_pathname(entry.get(), name.c_str());
        archive_entry_set_mode(entry.get(), static_cast<mode_t>(mode));
        const bool isFile = S_ISREG(mode);
        archive_entry_set_size(entry.get(), isFile ? static_cast<la_int64_t>(content.size()) : 0);
        if (S_ISLNK(mode)) archive_entry_copy_symlink(entry.get(), content.c_str());
        ASSERT_EQ(archive_write_header(writer_.get(), entry.get()), ARCHIVE_OK);
        if (isFile) archive_write_data(writer_.get(), content.data(), content.size());
    }

  private:
    std::unique_ptr<archive, int (*)(archive*)> writer_;
};

struct HostileEntry {
    const char* name;
    unsigned mode;
    const char* content;
};

TEST_F(RehearsalPackage, KeepsHostilePayloadsInsideTheRoot) {
    const std::string outside = dir / "outside";
    fs::create_directory(outside);
    fs::create_directory_symlink(outside, root + "/way-out");
    const std::vector<std::vector<HostileEntry>> payloads{
        {{"../outside/a", S_IFREG | 0644, "x"}},
        {{"./b/../../../outside/a", S_IFREG | 0644, "x"}},
        {{"/etc/zelor-rehearsal-test", S_IFREG | 0644, "x"}},
        {{"link", S_IFLNK | 0777, "../../outside"}, {"link/a", S_IFREG | 0644, "x"}},
        {{"link", S_IFLNK | 0777, "/../outside"}},
        {{"link", S_IFLNK | 0777, "sub"}, {"link/a", S_IFREG | 0644, "x"}},
        {{"fifo", S_IFIFO | 0644, ""}},
        {{"way-out/a", S_IFREG | 0644, "x"}},
    };
    for (const auto& payload : payloads) {
        const std::string archive = dir / "payload";
        {
            PayloadWriter writer(archive);
            writer.add("first", S_IFREG | 0644, "harmless");
            for (const HostileEntry& entry : payload)
                writer.add(entry.name, entry.mode, entry.content);
        }
        rehearsal::PackageInfo info;
        info.id = "com.example.hostile";
        rehearsal::ArchiveWriter writer(rehearsal::ArchiveWriter::Kind::xar, package);
        writer.addText("PackageInfo", rehearsal::packageInfoXml(info, 1, 1));
        writer.addFile("Payload", archive);
        writer.commit();
        const MacRun run = install();
        EXPECT_EQ(run.exit, 1) << payload.front().name;
        EXPECT_THAT(run.out, HasSubstr("extracting files from the package")) << payload.front().name;
        EXPECT_FALSE(fs::exists(root + "/first")) << payload.front().name;
        EXPECT_TRUE(fs::is_empty(outside)) << payload.front().name;
        EXPECT_TRUE(state().at("receipts").empty());
    }
    EXPECT_FALSE(fs::exists("/etc/zelor-rehearsal-test"));
}

TEST_F(RehearsalPackage, TakesAbsoluteLinksBelowTheRoot) {
    fs::create_directories(source);
    fs::create_symlink("/Library/x", source + "/link");
    build();
    EXPECT_EQ(install().exit, 0);
    EXPECT_EQ(fs::read_symlink(root + "/link"), root + "/Library/x");
}

TEST_F(RehearsalPackage, ActsOutFaults) {
    writeFile(source + "/tool.txt", "tool");
    build();
    struct Case {
        const char* outcome;
        int exit;
        const char* says;
    };
    const std::vector<Case> cases{
        {"fail", 1, "installer: The install failed. ("},
        {"not-root", 1, "installer: Must be run as root to install this package.\n"}};
    for (const Case& c : cases) {
        for (const Words& subject : {Words{"--package", "com.example.editor"},
                                     Words{"--package", "editor-2.1.pkg"}, Words{"--tool", "installer"}}) {
            mac({"fault", subject[0], subject[1], c.outcome});
            const MacRun run = install();
            EXPECT_EQ(run.exit, c.exit) << c.outcome;
            EXPECT_THAT(run.out + run.err,
                        HasSubstr(subject[0] == "--tool" && run.out.empty() && c.outcome[0] == 'f'
                                      ? "The install failed."
                                      : c.says));
            mac({"fault", subject[0], subject[1], "ok"});
        }
    }
    EXPECT_FALSE(fs::exists(root + "/tool.txt"));
    EXPECT_EQ(install().exit, 0);
}

TEST(RehearsalPackageText, ReadsDescriptions) {
    using rehearsal::parseDistribution;
    using rehearsal::parsePackageInfo;
    for (const char* bad :
         {"", "<pkg-info", "<pkg-info/>", "<pkg-info identifier='a' install-location='/a/../..'/>",
          "<pkg-info identifier='a'><scripts><preinstall file='../x'/></scripts></pkg-info>",
          "<pkg-info identifier='a'><scripts><postinstall file='..'/></scripts></pkg-info>"})
        EXPECT_THROW(rehearsal::parsePackageInfo(bad), std::runtime_error) << bad;
    EXPECT_EQ(rehearsal::parsePackageInfo("<pkg-info identifier='a'/>").installLocation, "/");
    const auto product = rehearsal::parseDistribution(
        "<installer-gui-script><title>Two</title><pkg-ref id='b'/><pkg-ref id='a' "
        "onConclusion='RequireRestart'/>"
        "<pkg-ref id='b'> #b.pkg\n</pkg-ref><pkg-ref id='a'>a.pkg</pkg-ref></installer-gui-script>");
    EXPECT_THAT(product.components, testing::ElementsAre("b.pkg", "a.pkg"));
    EXPECT_TRUE(product.restart);
    EXPECT_THROW(rehearsal::parseDistribution("<other/>"), std::runtime_error);
}

}  // namespace

}  // namespace zelor::test

#include "tools/RehearsalFixture.h"

namespace fs = boost::filesystem;

namespace zelor::test {

namespace {

struct RehearsalImage : RehearsalMac {
    std::string source = dir / "source", image = dir / "Example 1.dmg",
                mountPoint = root + "/var/zelor/mountpoint";

    RehearsalImage() {
        makeSource(source);
        fs::create_symlink("/Applications", source + "/Applications");
        mac({"build-dmg", "--volume", "Example Disk", source, image});
    }
    MacRun attach(const std::string& file = "") {
        return tool("hdiutil",
                    {"attach", "-nobrowse", "-mountPoint", mountPoint, file.empty() ? image : file});
    }
    MacRun detach() { return tool("hdiutil", {"detach", mountPoint}); }
};

TEST_F(RehearsalImage, MountsATreeAsItWasAndTakesItAway) {
    MacRun run = attach();
    EXPECT_EQ(run.exit, 0) << run.err;
    EXPECT_EQ(run.out, "/dev/disk2          \t                               \t" + mountPoint + "\n");
    EXPECT_EQ(treeOf(mountPoint), treeOf(source));
    EXPECT_EQ(state().at("mounts").at(0).at("volume"), "Example Disk");

    run = detach();
    EXPECT_EQ(run.exit, 0);
    EXPECT_EQ(run.out, "\"disk2\" ejected.\n");
    EXPECT_TRUE(fs::is_empty(mountPoint));
    run = detach();
    EXPECT_EQ(run.exit, 1);
    EXPECT_EQ(run.err, "hdiutil: detach failed - No such file or directory\n");
    EXPECT_EQ(attach().exit, 0);
}

TEST_F(RehearsalImage, MountsBelowVolumesByDefault) {
    EXPECT_EQ(tool("hdiutil", {"attach", image}).exit, 0);
    EXPECT_TRUE(fs::exists(root + "/Volumes/Example Disk/empty"));
    EXPECT_EQ(tool("hdiutil", {"detach", "/dev/disk2"}).out, "\"disk2\" ejected.\n");
}

TEST_F(RehearsalImage, RefusesWhatItCannotMount) {
    struct Case {
        const char* name;
        std::string content;
        const char* reason;
    };
    std::string cut = readFile(image).substr(0, 18 * 2048);
    for (const Case& c :
         std::vector<Case>{{"text.dmg", "no image", "image not recognized"},
                           {"raw.dmg", std::string(64 * 1024, 'z'), "no mountable file systems"},
                           {"cut.dmg", cut, "no mountable file systems"},
                           {"empty.dmg", "", "image not recognized"}}) {
        writeFile(dir / c.name, c.content);
        const MacRun run = attach(dir / c.name);
        EXPECT_EQ(run.exit, 1) << c.name;
        EXPECT_EQ(run.out, "");
        EXPECT_THAT(run.err, testing::HasSubstr(std::string("hdiutil: attach failed - ") + c.reason + "\n"))
            << c.name;
        EXPECT_TRUE(state().at("mounts").empty()) << c.name;
    }
    EXPECT_EQ(attach(dir / "missing.dmg").err, "hdiutil: attach failed - No such file or directory\n");
}

TEST_F(RehearsalImage, NeverMountsOutsideTheRootOrOverFiles) {
    fs::create_directory_symlink(dir / "elsewhere", root + "/way-out");
    fs::create_directory(dir / "elsewhere");
    for (const std::string& place :
         {dir / "elsewhere", root, root + "/../elsewhere/x", root + "/way-out/x"}) {
        const MacRun run = tool("hdiutil", {"attach", "-mountpoint", place, image});
        EXPECT_EQ(run.exit, 1) << place;
        EXPECT_THAT(run.err, testing::HasSubstr("not below the rehearsal's root"));
    }
    EXPECT_TRUE(fs::is_empty(dir / "elsewhere"));
    writeFile(mountPoint + "/precious", "mine");
    EXPECT_EQ(attach().err, "hdiutil: attach failed - Resource busy\n");
    EXPECT_EQ(detach().exit, 1);
    EXPECT_EQ(readFile(mountPoint + "/precious"), "mine");
}

TEST_F(RehearsalImage, StaysBusyWhileTheFaultIsOn) {
    attach();
    mac({"fault", "--image", "Example Disk", "busy"});
    MacRun run = detach();
    EXPECT_EQ(run.exit, 16);
    EXPECT_EQ(run.err, "hdiutil: couldn't unmount \"disk2\" - Resource busy\n");
    EXPECT_TRUE(fs::exists(mountPoint + "/empty"));
    EXPECT_EQ(attach().err, "hdiutil: attach failed - Resource busy\n");

    mac({"fault", "--image", "Example Disk", "busy-eject"});
    for (int i = 0; i < 2; ++i) {
        run = detach();
        EXPECT_EQ(run.exit, 16);
        EXPECT_EQ(run.out, "\"disk2\" unmounted.\n");
        EXPECT_EQ(run.err, "hdiutil: couldn't eject \"disk2\" - Resource busy\n");
        EXPECT_TRUE(fs::is_empty(mountPoint));
    }
    run = attach();  // the stuck disk keeps its number, but not its mount point
    EXPECT_THAT(run.out, testing::StartsWith("/dev/disk3 "));
    EXPECT_EQ(tool("hdiutil", {"detach", "-force", mountPoint}).out, "\"disk3\" ejected.\n");
    mac({"fault", "--image", "Example Disk", "ok"});
    EXPECT_EQ(detach().out, "\"disk2\" ejected.\n");
    EXPECT_TRUE(state().at("mounts").empty());
}

TEST_F(RehearsalImage, FailsOnDemandAndResets) {
    mac({"fault", "--image", "Example 1.dmg", "fail"});
    EXPECT_EQ(attach().err, "hdiutil: attach failed - no mountable file systems\n");
    mac({"reset"});
    EXPECT_EQ(attach().exit, 0);
    mac({"reset"});
    EXPECT_FALSE(fs::exists(mountPoint));
    EXPECT_EQ(detach().exit, 1);
}

TEST_F(RehearsalImage, BuildsOnlyWhatCanBeMounted) {
    const auto refused = [&](const Words& words) {
        const MacRun run = tool("zelor-rehearsal", words);
        EXPECT_NE(run.exit, 0);
        EXPECT_THAT(run.err, testing::HasSubstr("zelor-rehearsal: "));
        return run.err;
    };
    refused({"build-dmg", "--volume", std::string(33, 'x'), source, dir / "a.dmg"});
    refused({"build-dmg", "--volume", "a/b", source, dir / "a.dmg"});
    refused({"build-dmg", "--volume", "a", dir / "missing", dir / "a.dmg"});
    EXPECT_THAT(refused({"build-dmg", "--volume", "a", source, source + "/inside.dmg"}),
                testing::HasSubstr("inside"));
    mkfifo((source + "/fifo").c_str(), 0600);
    EXPECT_THAT(refused({"build-dmg", "--volume", "a", source, dir / "a.dmg"}), testing::HasSubstr("/fifo"));
    EXPECT_FALSE(fs::exists(dir / "a.dmg"));
    EXPECT_FALSE(fs::exists(dir / "a.dmg.unfinished"));
}

}  // namespace

}  // namespace zelor::test

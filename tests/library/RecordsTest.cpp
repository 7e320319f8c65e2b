#include <gtest/gtest.h>

#include "remediation/RemediationManager.h"
#include "tests/library/FakeAgent.h"

using zelor::test::makeCre;
using zelor::test::readFile;
using zelor::test::writeFile;

namespace {

TEST(Records, StartEmptyAndCopyDeeply) {
    remediateMetadata row;
    EXPECT_EQ(row.getCveOrCceId() + row.getCombinedCpes() + row.getProductCpe() + row.getPlatformCpe() +
                  row.getPackageName(),
              "");
    EXPECT_FALSE(row.getCreEriDataPresent() || row.getOsRemediation());
    EXPECT_TRUE(row.getcreEriData().getEriIds().empty());

    row.setcreEriData(makeCre("CVE-1", {{"ERI-1", "a.pkg"}, {"ERI-2", "b.pkg"}}));
    remediateMetadata copy = row;
    creEriParsedData changed = copy.getcreEriData();
    changed.setInstalledSuccessfully(true);
    copy.setcreEriData(changed);
    EXPECT_FALSE(row.getcreEriData().getInstalledSuccessfully());
    EXPECT_TRUE(copy.getcreEriData().getInstalledSuccessfully());

    auto blocks = row.getcreEriData().getParsedEriDataBlocks();
    blocks.clear();
    EXPECT_EQ(row.getcreEriData().getParsedEriDataBlocks().size(), 2U);
    EXPECT_EQ(row.getcreEriData().getParsedEriDataBlocks()[1].getPatchId(), "b.pkg");
}

class InstalledPatches : public testing::Test {
  protected:
    bool applied(const std::vector<zelor::test::Eri>& eris) {
        creEriParsedData cre = makeCre("CVE-1", eris);
        return manager.verifyIfAlreadyAppliedRem(cre);
    }
    zelor::test::FakeAgent agent;
    RemediationManager manager{agent.installPath()};
};

TEST_F(InstalledPatches, OnlySuccessesAreRecorded) {
    EXPECT_FALSE(applied({{"ERI-1", ""}}));
    manager.addEntryInInstalledPatchesFile(-1, "ERI-1");
    EXPECT_FALSE(boost::filesystem::exists(agent.recordPath()));
    manager.addEntryInInstalledPatchesFile(0, "ERI-1");
    manager.addEntryInInstalledPatchesFile(0, "ERI-2");
    EXPECT_EQ(readFile(agent.recordPath()), "ERI-1\nERI-2\n");
    EXPECT_TRUE(applied({{"ERI-1", ""}}));
    EXPECT_TRUE(applied({{"ERI-9", ""}, {"ERI-2", ""}})) << "any one of its ERIs counts";
}

TEST_F(InstalledPatches, LinesAreComparedWhole) {
    writeFile(agent.recordPath(), "abc\nspaced \nreturned\r\nlast");
    EXPECT_FALSE(applied({{"abcd", ""}}));
    EXPECT_FALSE(applied({{"ab", ""}}));
    EXPECT_FALSE(applied({{"spaced", ""}}));
    EXPECT_FALSE(applied({{"returned", ""}}));
    EXPECT_TRUE(applied({{"last", ""}}));
    manager.addEntryInInstalledPatchesFile(0, "next");
    EXPECT_TRUE(applied({{"last", ""}})) << "a missing line end must not glue two ids together";
    EXPECT_TRUE(applied({{"next", ""}}));
    EXPECT_FALSE(applied({{"lastnext", ""}}));
}

TEST_F(InstalledPatches, SeesWhatOthersDidToTheFile) {
    writeFile(agent.recordPath(), "ERI-1\n");
    EXPECT_TRUE(applied({{"ERI-1", ""}}));
    writeFile(agent.recordPath(), "");
    EXPECT_FALSE(applied({{"ERI-1", ""}}));
    writeFile(agent.recordPath() + ".new", "ERI-8\nERI-9\n");
    boost::filesystem::rename(agent.recordPath() + ".new", agent.recordPath());
    EXPECT_TRUE(applied({{"ERI-9", ""}}));
    EXPECT_FALSE(applied({{"ERI-1", ""}}));
    boost::filesystem::remove(agent.recordPath());
    EXPECT_FALSE(applied({{"ERI-9", ""}}));
}

TEST_F(InstalledPatches, TheTrailSaysWhatWasAskedOncePerCall) {
    writeFile(agent.recordPath(), "");
    applied({{"ERI-1", ""}});
    EXPECT_EQ(agent.countLogged("verifyIfAlreadyAppliedRem"), 0);
    writeFile(agent.recordPath(), "x\ny\n");
    applied({{"ERI-1", ""}, {"ERI-2", ""}});
    EXPECT_TRUE(agent.logged(
        "DEBUG",
        "[Remediation Manager] (verifyIfAlreadyAppliedRem) for creId = CRE-CVE-1 number of eris = 2"));
    EXPECT_EQ(agent.countLogged("verifyIfAlreadyAppliedRem"), 1);
}

TEST_F(InstalledPatches, AMissingFolderStaysSilent) {
    boost::filesystem::remove_all(boost::filesystem::path(agent.recordPath()).parent_path());
    manager.addEntryInInstalledPatchesFile(0, "ERI-1");
    EXPECT_TRUE(agent.logged("DEBUG",
                             "[Remediation Manager] Inside addEntryInInstalledPatchesFile: Added entry for "
                             "successfully installed eri: ERI-1"));
    EXPECT_FALSE(applied({{"ERI-1", ""}}));
}

}  // namespace

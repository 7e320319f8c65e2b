#include <gtest/gtest.h>

#include "platform/macos/MacPatchManager.h"
#include "remediation/apply/ConfigurationPhase.h"
#include "remediation/apply/NeededArchives.h"
#include "remediation/apply/OsUpdatePhase.h"
#include "remediation/apply/ProductPhase.h"
#include "tests/library/FakeAgent.h"

// The parts behind the manager, each made only from its inputs.

namespace zelor::remediation {

namespace {

using Manager = RemediationManager;
using Map = Progress::Map;

/// A Progress and its inputs as plain members.
struct ProgressInputs {
    boost::mutex mutex;
    Map map;
    Progress::Duplicates duplicates;
    Progress::PartialResults partialResults;
    RunEvents events;
    Progress progress{map, duplicates, partialResults, mutex, events};
};

/// The inputs of the phases.
struct PhaseInputs : ProgressInputs {
    boost::mutex cancelMutex;
    std::atomic<bool> cancelAll{false}, reboot{false}, scan{false}, failed{false}, succeeded{false},
        internalError{false}, downloadDone{false};
    Cancellation::Texts cancelled;
    std::string current, platform, listName = "list";
    boost::thread downloadThread;
    test::FakeAgent agent;
    std::string installPath = agent.installPath(), contentDirectory = agent.contentDir(),
                recordPath = agent.recordPath();
    Cancellation cancellation{
        {cancelAll, cancelled, current, downloadThread}, duplicates, cancelMutex, progress};
    BufferedPatches buffered{listName};
    AppliedRemediations applied{recordPath};
    RequestContent content{installPath, platform};
    MacPatchManager installer;
    Download download{installPath, downloadDone, internalError, cancellation, events};
    PatchSource source{contentDirectory, internalError, download, buffered, progress, cancellation, events};
    PhaseParts parts{progress, cancellation, source,    applied,
                     buffered, content,      installer, {reboot, scan, failed, succeeded, internalError},
                     events};
};

remediateMetadata rowOf(const std::string& key, const std::vector<test::Eri>& eris, bool os = false) {
    remediateMetadata row;
    row.setCombinedCpes(key);
    row.setPackageName(key);
    row.setCreEriDataPresent(true);
    row.setOsRemediation(os);
    row.setcreEriData(test::makeCre(key, eris));
    return row;
}

TEST(ProgressPart, HoldsPartialResultsBackUntilTheLastOne) {
    ProgressInputs in;
    const remediateMetadata row = rowOf("two", {});
    in.progress.addRemediation(row);
    in.progress.addRemediation(row);
    in.duplicates.emplace("two", "removed||oval:x");
    in.progress.record("two", Manager::REM_INSTALLING);
    in.progress.record("two", Manager::REM_FAILED_9);
    EXPECT_EQ(in.progress.copy(), (Map{{"two", 3}, {"removed", 3}}));
    in.progress.record("two", Manager::REM_SUCCESS);
    EXPECT_EQ(in.progress.copy(), (Map{{"two", 5}, {"removed", 5}})) << "one failure decides";

    in.progress.removeRemediation(row);
    in.progress.record("two", Manager::REM_SUCCESS);
    EXPECT_EQ(in.progress.copy().at("two"), 4U) << "one remediation has no partial results";
}

TEST(ProgressPart, EndsWhatIsUnfinishedAndNothingElse) {
    ProgressInputs in;
    std::vector<remediateMetadata> patches{rowOf("done", {}), rowOf("missing", {}), rowOf("begun", {})};
    std::vector<remediateMetadata> configurations;
    in.progress.record("done", Manager::REM_SUCCESS);
    in.progress.record("missing", Manager::REM_FILE_UNAVAILABLE);
    in.progress.record("begun", Manager::REM_DOWNLOADING);
    for (const char* key : {"done", "missing", "begun"})
        in.progress.failUnfinished(key, "a reason");
    EXPECT_EQ(in.progress.copy(), (Map{{"done", 4}, {"missing", 12}, {"begun", 7}}));
    in.progress.abortRemaining({patches, configurations});
    EXPECT_EQ(in.progress.copy(), (Map{{"done", 4}, {"missing", 13}, {"begun", 7}}));
}

TEST(PhaseParts, ApplyRowsWithoutAManager) {
    PhaseInputs in;
    in.agent.addTool("softwareupdate", "case $1 in -l) echo '   * Safari9.0-9.0';; *) echo Done.;; esac");
    in.agent.addTool("installer", "echo 'installer: The install was successful.'");
    in.agent.addFile("ok.sh", "exit 0");
    in.agent.addFile("editor.pkg", "a package");
    std::vector<remediateMetadata> configurations{rowOf("script", {{"ERI-1", "ok.sh", true}})};
    std::vector<remediateMetadata> patches{rowOf("Apple Safari", {}, true),
                                           rowOf("editor", {{"ERI-2", "editor.pkg"}}),
                                           rowOf("lost", {{"ERI-3", "lost.pkg"}})};

    ConfigurationPhase(in.parts).apply(configurations);
    EXPECT_EQ(in.progress.copy(), (Map{{"script", 4}}));
    EXPECT_TRUE(in.reboot);
    OsUpdatePhase(in.parts).install(patches);
    EXPECT_EQ(in.progress.copy(), (Map{{"script", 4}, {"Apple Safari", 4}}));
    EXPECT_EQ(in.current, "Apple Safari");
    EXPECT_FALSE(in.failed);
    ProductPhase(in.parts).install(patches);
    EXPECT_EQ(in.progress.copy(), (Map{{"script", 4}, {"Apple Safari", 4}, {"editor", 4}, {"lost", 12}}));
    EXPECT_TRUE(in.failed);
    EXPECT_TRUE(in.succeeded);
    EXPECT_EQ(test::readFile(in.recordPath), "ERI-1\nERI-2\n");
}

TEST(PhaseParts, LeaveTheRestWhenARequestOrTheRunIsCancelled) {
    PhaseInputs in;
    in.agent.addFile("first.pkg", "a package");
    in.agent.beforeDownload = [&](const std::string&) { in.cancellation.setAll(true); };
    in.cancellation.setRequests({{"single", ""}});
    std::vector<remediateMetadata> patches{rowOf("single", {{"ERI-1", "single.pkg"}}),
                                           rowOf("first", {{"ERI-2", "first.pkg"}}),
                                           rowOf("second", {{"ERI-3", "second.pkg"}})};
    ProductPhase(in.parts).install(patches);
    EXPECT_EQ(in.progress.copy(), (Map{{"single", 13}, {"first", 1}}));
    EXPECT_EQ(in.agent.calls, std::vector<std::string>{"download first"});
}

TEST(AheadOfNeedParts, NamesTheArchivesThatThePhasesWillAskForInTheirOrder) {
    std::vector<remediateMetadata> configurations = {
        rowOf("all", {{"E1", "a.sh"}, {"E2", "b.sh"}}),
        rowOf("applied", {{"new", "x.sh"}, {"done", "x.sh"}}),
        rowOf("cancelled", {{"E3", "x.sh"}}),
        rowOf("ends", {{"E4", "c.sh"}, {"E5", "nodot"}, {"E6", "x.sh"}}),
        rowOf("unsafe", {{"E7", "../x.sh"}, {"E8", "x.sh"}}),
        rowOf("again", {{"E1", "a.sh"}})};
    std::vector<remediateMetadata> patches = {rowOf("one will do", {{"P1", "d.pkg"}, {"P2", "x.pkg"}}),
                                              rowOf("no content", {{"P3", "x.pkg"}}),
                                              rowOf("not installable", {{"P4", "e.exe"}, {"P5", "f.dmg"}}),
                                              rowOf("os", {{"P6", "x.pkg"}}, true),
                                              rowOf("buffered", {{"P7", "kept.pkg"}}),
                                              rowOf("unrecordable", {{"P\n", "g.pkg"}, {"Q", "h.pkg"}})};
    patches[1].setCreEriDataPresent(false);
    std::string named;
    for (const NeededArchive& archive : neededArchives(
             {patches, configurations}, {[](const std::string&eriId) { return eriId == "done"; },
                                         [](const std::string&name, const std::string&md5) {
                                             return name == "kept.pkg" && md5 == "0123";
                                         },
                                         [](const std::string&key) { return key == "cancelled"; }}))
        named += archive.key + ":" + archive.stem + archive.extension + " ";
    EXPECT_EQ(named,
              "all:a.sh all:b.sh ends:c.sh one will do:d.pkg not installable:e.exe not installable:f.dmg "
              "unrecordable:g.pkg unrecordable:h.pkg ");
}

}  // namespace

}  // namespace zelor::remediation

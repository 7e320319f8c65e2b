#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/macos/InstallerKinds.h"
#include "remediation/CallReport.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunObserver.h"
#include "tests/library/FakeAgent.h"

using zelor::Applied;
using zelor::CallReport;
using zelor::test::Eri;
using zelor::test::writeFile;

namespace {

using Lines = std::vector<std::string>;

/// Records each event as a line: "settled k1 5: why".
class Recorder : public zelor::RunObserver {
  public:
    void started(const std::string& key, const std::string& identifier) override {
        add(key, "started " + key + " " + identifier);
    }
    void changed(const std::string& key, unsigned long value) override {
        add(key, "changed " + key + " " + std::to_string(value));
    }
    void downloading(const zelor::DownloadState& download) override {
        add(download.key, "downloading " + download.key + " " + download.patch + " " +
                              std::to_string(download.bytesDone) + "/" + std::to_string(download.bytesTotal));
    }
    void settled(const zelor::RequestResult& result) override {
        add(result.key, "settled " + result.key + " " + std::to_string(result.value) +
                            (result.applied == Applied::now      ? " now"
                             : result.applied == Applied::before ? " before"
                                                                 : "") +
                            (result.restartNeeded ? " restart" : "") +
                            (result.reason.empty() ? "" : ": " + result.reason) +
                            (result.output.empty() ? "" : " | " + result.output));
        identifiers[result.key] = result.identifier;
        if (onSettled) onSettled(result);
    }
    void buffered(const std::string& patch, zelor::BufferOutcome outcome,
                  const std::string& reason) override {
        static const char* const kNames[] = {"downloading", "buffered", "already", "skipped", "too large"};
        add("", patch + " " + kNames[static_cast<int>(outcome)] + (reason.empty() ? "" : ": " + reason));
    }
    void ended(const zelor::RunEnd& end) override {
        add("", std::string("ended") + (end.rebootNeeded ? " reboot" : "") +
                    (end.allRemFailed ? " allFailed" : ""));
    }

    Lines all;
    std::map<std::string, Lines> of;  ///< by key
    std::map<std::string, std::string> identifiers;
    std::function<void(const zelor::RequestResult&)> onSettled;

  private:
    void add(const std::string& key, const std::string& line) {
        all.push_back(line);
        of[key].push_back(line);
    }
};

class RunObserver : public testing::Test {
  protected:
    RunObserver() {
        manager.setContentDownloadDir(agent.contentDir());
        manager.setRunObserver(&events);
        agent.addTool("installer", "cat \"$2\"");
        agent.addTool("softwareupdate",
                      "case $1 in -l) printf '   * Safari9.0-9.0\\n   * Tool-1\\n   * Old-1\\n';; *) case $2 "
                      "in Old*) echo No updates are available;; Tool*) "
                      "printf 'Tool-1:\\nno room\\n';; *) printf 'Done.\\nPlease Restart immediately.\\n';; "
                      "esac;; esac");
    }
    void addOs(const std::string& identifier) {
        Eri os{"ERI-OS", "", false};
        os.product = "cpe:/o:apple:mac_os_x";
        os.instructions = "OS remediation";
        agent.addContent(identifier, {os});
    }
    void run(const std::map<std::string, std::string>& requests) {
        manager.setovalIdMap(requests);
        manager.concertedRemediationStart();
    }
    /// The last event of every request equals the value that the map reads.
    void expectLastResultsOf(const std::map<std::string, unsigned long>& progress) {
        for (const auto& [key, value] : progress) {
            const std::string shown = " " + std::to_string(value);
            ASSERT_FALSE(events.of[key].empty()) << key;
            EXPECT_NE(events.of[key].back().find("settled " + key + shown), std::string::npos)
                << events.of[key].back() << " but the map reads" << shown;
        }
    }

    zelor::test::FakeAgent agent;
    Recorder events;
    RemediationManager manager{agent.installPath()};
};

TEST_F(RunObserver, ReportsEveryResultWithItsReason) {
    addOs("CVE-OS");
    agent.addContent("CCE-1", {{"ERI-C1", "ok.sh", true}});
    agent.addContent("CCE-2", {{"ERI-C2", "bad.sh"}});
    agent.addContent("CCE-3", {{"ERI-C3", "killed.sh"}});
    agent.addContent("CCE-4", {{"ERI-C4", ""}});
    agent.addContent("CCE-5", {{"ERI-C5", "unsigned.sh"}});
    agent.addContent("CVE-1", {{"ERI-1", "good.pkg"}, {"ERI-1b", "more.pkg"}});
    agent.addContent("CVE-2", {{"ERI-2", "full.pkg"}});
    agent.addContent("CVE-3", {{"ERI-3", "lost.pkg"}});
    agent.addContent("CVE-4", {{"ERI-4", "recorded.pkg", true}});
    agent.addContent("CVE-5", {{"ERI-5", "../up.pkg"}});
    agent.addContent("CVE-6", {{"ERI-6", "strange.tar"}});
    agent.addContent("CVE-7", {{"ERI-7", "nodot"}});
    agent.addContent("CVE-8", {{"ERI-8", ""}});
    agent.addFile("ok.sh", "exit 0");
    agent.addFile("bad.sh", "echo one; echo two >&2; exit 3");
    agent.addFile("killed.sh", "kill -9 $$");
    agent.addFile("unsigned.sh", "exit 0", false);
    agent.addFile("good.pkg", "The install was successful.");
    agent.addFile("more.pkg", "The install was successful.");
    agent.addFile("full.pkg", "installer: Package name is X\ninstaller: The install failed (no space)\n");
    agent.addFile("strange.tar", "x");
    writeFile(agent.recordPath(), "ERI-4\n");
    agent.beforeDownload = [](const std::string& stem) {
        CallReport::transferred(1, 10);
        CallReport::transferred(2, 10);  // too soon after the one before
        CallReport::transferred(10, 10);
        if (stem == "lost") CallReport::addReason("the repository answered 404");
    };
    agent.beforeGetCre = [](const std::string& identifier) {
        if (identifier == "CVE-404") CallReport::addReason("nothing is published");
    };
    const std::map<std::string, std::string> requests = {{"c1", "CCE-1"},
                                                         {"c2", "CCE-2"},
                                                         {"c3", "CCE-3"},
                                                         {"c4", "CCE-4"},
                                                         {"c5", "CCE-5"},
                                                         {"v1", "CVE-1"},
                                                         {"v2", "CVE-2"},
                                                         {"v3", "CVE-3"},
                                                         {"v4", "CVE-4"},
                                                         {"v5", "CVE-5"},
                                                         {"v6", "CVE-6"},
                                                         {"v7", "CVE-7"},
                                                         {"v8", "CVE-8"},
                                                         {"n1", "CVE-404"},
                                                         {"n2", "CVE-405"},
                                                         {"a,b,c", "CVE-1"},
                                                         {"o1||Apple Safari", "CVE-OS"},
                                                         {"o2||Tool", "CVE-OS"},
                                                         {"o4||Old", "CVE-OS"},
                                                         {"o3||Nothing", "CVE-OS"}};
    run(requests);
    const std::map<std::string, std::string> last = {
        {"c1", "settled c1 4 now restart"},
        {"c2", "settled c2 5: exit status 3: two | one\ntwo\n"},
        {"c3", "settled c3 5: ended by signal 9"},
        {"c4", "settled c4 8: the content names no script"},
        {"c5", "settled c5 12: the signature of 'unsigned.sh' is not good"},
        {"v1", "settled v1 4 now"},
        {"v2",
         "settled v2 5: installer: The install failed (no space) | installer: Package name is X\n"
         "installer: The install failed (no space)\n"},
        {"v3", "settled v3 12: the repository answered 404"},
        {"v4", "settled v4 4 before"},
        {"v5", "settled v5 12: the file name '../up.pkg' is refused: it holds a path separator"},
        {"v6", "settled v6 5: 'strange.tar' is no " + zelor::platform::installableText()},
        {"v7", "settled v7 8: the content's patch name 'nodot' has no extension"},
        {"v8", "settled v8 5: the content names no patch"},
        {"n1", "settled n1 6: nothing is published"},
        {"n2", "settled n2 6: the remediation content could not be obtained or parsed"},
        {"a,b,c", "settled a,b,c 8: the request names more than two CPEs"},
        {"o1||Apple Safari", "settled o1||Apple Safari 4 now restart"},
        {"o2||Tool", "settled o2||Tool 5: no room | Tool-1:\nno room\n"},
        {"o4||Old", "settled o4||Old 4 before"},
        {"o3||Nothing", "settled o3||Nothing 5: softwareupdate lists no update that belongs to it"}};
    for (const auto& [key, line] : last) {
        ASSERT_FALSE(events.of[key].empty()) << key;
        EXPECT_EQ(events.of[key].back(), line);
        EXPECT_EQ(events.identifiers[key], requests.at(key));
    }
    expectLastResultsOf(manager.getRemediationProgressMap());
    EXPECT_EQ(events.of["c2"],
              (Lines{"started c2 CCE-2", "changed c2 1", "downloading c2 bad.sh 1/10",
                     "downloading c2 bad.sh 10/10", "changed c2 2", "changed c2 3", last.at("c2")}));
    EXPECT_EQ(events.all.back(), "ended reboot");
}

TEST_F(RunObserver, AnEventComesBeforeItsValueAndACancelAfterTheResult) {
    agent.addContent("CVE-1", {{"ERI-1", "lost.pkg"}});
    agent.addContent("CVE-2", {{"ERI-2", "lost.pkg"}});
    bool shown = false;
    events.onSettled = [&](const zelor::RequestResult& result) {
        shown = shown || manager.getRemediationProgressMap()[result.key] == result.value;
    };
    agent.beforeDownload = [this](const std::string&) {
        if (events.of.count("k1") != 0 && events.of["k1"].back().find("12") != std::string::npos)
            manager.setCancelAllRem(true);
    };
    run({{"k1", "CVE-1"}, {"k2", "CVE-2"}});
    EXPECT_FALSE(shown);
    const Lines k1 = events.of["k1"];
    ASSERT_GE(k1.size(), 2U);
    EXPECT_EQ(k1[k1.size() - 2], "settled k1 12: the archive of 'lost.pkg' was not downloaded");
    EXPECT_EQ(k1.back(), "settled k1 13");
    EXPECT_EQ(events.of["k2"].back(), "settled k2 13");
    EXPECT_EQ(events.all.back(), "ended allFailed");
}

TEST_F(RunObserver, AnExceptionOfAnEventEndsNothing) {
    agent.addContent("CCE-1", {{"ERI-1", "ok.sh"}});
    agent.addFile("ok.sh", "exit 0");
    events.onSettled = [](const zelor::RequestResult&) { throw std::runtime_error("no memory"); };
    run({{"k", "CCE-1"}});
    EXPECT_EQ(manager.getRemediationProgressMap().at("k"), 4U);
    EXPECT_EQ(agent.countLogged("The run's observer threw an exception: no memory"), 1);
}

TEST_F(RunObserver, AnUnexpectedErrorOfTheRunIsTheReason) {
    agent.addContent("CCE-1", {{"ERI-1", "ok.sh"}});
    agent.beforeGetCre = [](const std::string&) { throw std::runtime_error("no memory"); };
    run({{"k", "CCE-1"}});
    EXPECT_EQ(events.of["k"].back(), "settled k 7: the run ended with an unexpected error: no memory");
    expectLastResultsOf(manager.getRemediationProgressMap());
}

TEST_F(RunObserver, ReportsTheOutcomeOfEachBufferedPatch) {
    Eri large{"ERI-5", "large.pkg"};
    large.size = "9000 MB";
    agent.addContent("CVE-1", {{"ERI-1", "editor.pkg"}, {"ERI-2", "there.pkg"}, {"ERI-3", "../evil.pkg"}});
    agent.addContent("CVE-2", {{"ERI-4", "lost.pkg"}, large, {"ERI-6", "odd.pkg"}});
    RecordAccess::md5sum(RecordAccess::blocks(RecordAccess::creEriData(agent.content["CVE-2"]))[2]) = "a\tb";
    for (const char* name : {"editor.pkg", "odd.pkg"})
        agent.addFile(name, "x");
    agent.bufferFile("there.pkg", "x");
    writeFile(agent.listPath(), "there.pkg=0123\n");
    agent.beforeDownload = [](const std::string& stem) {
        if (stem == "lost") CallReport::addReason("the repository answered 404");
    };
    manager.bufferPatches({{"k1", "CVE-1"}, {"k2", "CVE-2"}});
    EXPECT_EQ(events.of[""],
              (Lines{"editor.pkg downloading", "editor.pkg buffered", "there.pkg already",
                     "../evil.pkg skipped: its name is refused: it holds a path separator",
                     "lost.pkg downloading", "lost.pkg skipped: the repository answered 404",
                     "large.pkg too large: it does not fit into what is left of the buffer's size",
                     "odd.pkg downloading", "odd.pkg skipped: its name or its md5 holds a control character",
                     "ended"}));
}

TEST(CallReports, KeepTheFirstReasonAndTheEndOfTheLastOutputOfTheirOwnCall) {
    CallReport::addReason("dropped: nobody asks");
    std::vector<std::pair<std::uint64_t, std::uint64_t>> transfers;
    CallReport outer([&](std::uint64_t done, std::uint64_t total) { transfers.emplace_back(done, total); });
    {
        CallReport inner;
        CallReport::addReason("inner");
        CallReport::transferred(1, 2);
        CallReport::askForRestart();
        EXPECT_EQ(inner.reason(), "inner");
        EXPECT_TRUE(inner.restartAsked());
    }
    EXPECT_TRUE(outer.reason().empty() && transfers.empty() && !outer.restartAsked());
    CallReport::addReason(std::string(2 * CallReport::kReasonBytes, 'r'));
    CallReport::addReason("second");
    CallReport::setOutput("first");
    CallReport::setOutput(std::string(CallReport::kOutputBytes, 'a') + "end");
    CallReport::transferred(3, 4);
    EXPECT_EQ(outer.reason(), std::string(CallReport::kReasonBytes, 'r'));
    EXPECT_EQ(outer.output(), std::string(CallReport::kOutputBytes - 3, 'a') + "end");
    EXPECT_EQ(transfers.size(), 1U);
}

}  // namespace

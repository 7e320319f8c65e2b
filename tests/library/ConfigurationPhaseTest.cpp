#include <gtest/gtest.h>

#include "remediation/RemediationManager.h"
#include "tests/library/FakeAgent.h"

using zelor::test::readFile;
using zelor::test::writeFile;

namespace {

using Map = std::map<std::string, unsigned long>;

class ConfigurationPhase : public testing::Test {
  protected:
    Map run(const std::map<std::string, std::string>& requests) {
        manager.setContentDownloadDir(agent.contentDir());
        manager.setovalIdMap(requests);
        manager.concertedRemediationStart();
        return manager.getRemediationProgressMap();
    }
    zelor::test::FakeAgent agent;
    RemediationManager manager{agent.installPath()};
};

TEST_F(ConfigurationPhase, RunsScriptsAndRecordsTheirOutcome) {
    agent.addContent("CCE-1", {{"ERI-1", "ok.sh", true}});
    agent.addContent("CCE-2", {{"ERI-2", "fails.sh"}});
    agent.addContent("CCE-3", {{"ERI-3", "unsigned.sh"}});
    agent.addContent("CCE-4", {{"ERI-4", "lost.sh"}});
    agent.addContent("CCE-5", {{"ERI-5", ""}});
    agent.addContent("CCE-6", {{"ERI-6", "noextension"}});
    agent.addContent("CCE-7", {});
    agent.addFile("ok.sh", "echo \"ran $0\" > '" + agent.dir / "ran" + "'");
    agent.addFile("fails.sh", "echo why >&2; exit 1");
    agent.addFile("unsigned.sh", "touch '" + agent.dir / "never" + "'", false);
    EXPECT_EQ(run({{"1", "CCE-1"},
                   {"2", "CCE-2"},
                   {"3", "CCE-3"},
                   {"4", "CCE-4"},
                   {"5", "CCE-5"},
                   {"6", "CCE-6"},
                   {"7", "CCE-7"},
                   {"8", "CCE-404"}}),
              (Map{{"1", 4}, {"2", 5}, {"3", 12}, {"4", 12}, {"5", 8}, {"6", 8}, {"7", 8}, {"8", 6}}));
    EXPECT_EQ(readFile(agent.dir / "ran"), "ran " + agent.contentDir() + "/ok.sh\n");
    EXPECT_FALSE(boost::filesystem::exists(agent.dir / "never"));
    EXPECT_EQ(readFile(agent.recordPath()), "ERI-1\n");
    EXPECT_TRUE(manager.getRebootNeeded());
    EXPECT_EQ(agent.calls.back().find("removeCre"), std::string::npos) << "what failed keeps its content";

    const std::string script = agent.contentDir() + "/fails.sh";
    for (const std::string& line : std::vector<std::string>{
             "DEBUG  >>> [Remediation Manager] (applyConfigs) starting ...",
             "DEBUG  [Remediation Manager] (applyConfigs) Applying configs for CCE: CCE-2",
             "DEBUG  [Remediation Manager] (applyConfigs) The config file path:" + script,
             "DEBUG [MacPatchManager] Inside applyConfig",
             "DEBUG [MacHardeningFacilitator] Welcome to compliance remediation, for '" + script + "'",
             "DEBUG [MacHardeningFacilitator] exit process code for " + script + " is = 256",
             "DEBUG [MacHardeningFacilitator] output of " + script + " = why\n",
             "INFO  [Remediation Manager] The RESULT for Config apply for : CCE - CCE-1 is : Succeeded",
             "INFO  [Remediation Manager] The RESULT for Config apply for : CCE - CCE-2 is : Failed",
             "ERROR  [Remediation Manager] (applyConfigs) The config file to harden the system '' does not "
             "exist OR it "
             "failed the signature verification.",
             "ERROR [Remediation Manager] (applyConfigs) Patch id is empty for cpe = '5' and CCE = 'CCE-5'",
             "DEBUG  <<< [Remediation Manager] (applyConfigs) DONE!! ..."}) {
        EXPECT_EQ(agent.countLogged(line) > 0, true) << line;
    }
}

TEST_F(ConfigurationPhase, AppliesNothingTwice) {
    agent.addContent("CCE-1", {{"ERI-1", "ok.sh", true}});
    writeFile(agent.recordPath(), "ERI-1\n");
    EXPECT_EQ(run({{"1", "CCE-1"}}), (Map{{"1", 4}}));
    EXPECT_EQ(agent.calls, (std::vector<std::string>{"getCre cpe:/o:apple:mac_os_x  CCE-1",
                                                     "removeCreFromCache CCE-1", "removeCreFile CCE-1"}));
    EXPECT_TRUE(
        agent.logged("DEBUG",
                     "[Remediation Manager] (applyConfigs) verifyIfAlreadyAppliedRem returned true for a "
                     "config. CCE is: CCE-1"));
}

TEST_F(ConfigurationPhase, TheFirstFailingBlockDecides) {
    agent.addContent("CCE-1", {{"ERI-1", "a.sh"}, {"ERI-2", "fails.sh"}, {"ERI-3", "never.sh"}});
    agent.addFile("a.sh", "exit 0");
    agent.addFile("fails.sh", "exit 3");
    EXPECT_EQ(run({{"1", "CCE-1"}}), (Map{{"1", 5}}));
    EXPECT_EQ(readFile(agent.recordPath()), "ERI-1\n");
    EXPECT_EQ(agent.countLogged("never.sh"), 0);
}

TEST_F(ConfigurationPhase, ReleasesABufferedCopyOnlyOnSuccess) {
    agent.addContent("CCE-1", {{"ERI-1", "good.ksh"}});
    agent.addContent("CCE-2", {{"ERI-2", "fail.ksh"}});
    agent.bufferFile("good.ksh", "exit 0");
    agent.bufferFile("fail.ksh", "exit 1");
    writeFile(agent.listPath(), "good.ksh=0123\nfail.ksh=0123\n");
    EXPECT_EQ(run({{"1", "CCE-1"}, {"2", "CCE-2"}}), (Map{{"1", 4}, {"2", 5}}));
    EXPECT_EQ(readFile(agent.listPath()), "fail.ksh=0123\n");
    EXPECT_FALSE(boost::filesystem::exists(agent.bufferDir() + "/good.zip"));
    EXPECT_TRUE(boost::filesystem::exists(agent.bufferDir() + "/fail.zip"));
}

TEST_F(ConfigurationPhase, CutsAHangingScriptOffAtTheLimit) {
    // A minute is the smallest limit, so the script sends itself the TERM that the limit would.
    agent.addContent("CCE-1", {{"ERI-1", "killed.sh"}});
    agent.addFile("killed.sh", "kill -TERM $$; sleep 600");
    EXPECT_EQ(run({{"1", "CCE-1"}}), (Map{{"1", 5}}));
    EXPECT_EQ(agent.countLogged("exit process code for " + agent.contentDir() + "/killed.sh is = 15"), 1);
}

}  // namespace

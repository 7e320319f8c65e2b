#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/AgentSettings.h"
#include "base/SystemRoot.h"
#include "collaborators/CacheStore.h"
#include "collaborators/ConfigurationManager.h"
#include "support/TempDir.h"

namespace zelor::agent {
namespace {

using test::readFile;
using test::TempDir;
using test::writeFile;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct AgentSettingsTest : testing::Test {
    TempDir root;
    AgentSettingsTest() { setSystemRoot(root.path().string()); }
    std::string ini(const std::string& text) {
        writeFile(root / "etc/zelor/zelor.ini", text);
        return root / "etc/zelor/zelor.ini";
    }
    std::string problemsOf(const AgentSettings& settings) {
        std::string all;
        settings.reportProblems([&](const std::string& line) { all += line + "\n"; });
        return all;
    }
    std::string logText() { return readFile(root / "var/log/zelor/remediation.log"); }
};

TEST_F(AgentSettingsTest, EveryKeyHasItsDefaultBelowTheRoot) {
    const auto settings = AgentSettings::load(ini("# nothing set\n"));
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"ScanManager.ProfileId", "Mac OS X 10.10"},
        {"ScanManager.InstallPath", root / "opt/zelor"},
        {"Repository.Url", ""},
        {"Repository.TrustedKey", ""},
        {"Buffer.UnzipFolder", root / "var/zelor/unzip"},
        {"Buffer.PatchesDir", root / "var/zelor/buffer"},
        {"Buffer.PatchesDirSizeMB", "2000"},
        {"Buffer.SpeedPercent", "25"},
        {"Installation.VendorProducts", "silent"},
        {"Installation.ThirdPartyProducts", "quiet"},
        {"Limits.CommandMinutes", "0"},
        {"Log.File", root / "var/log/zelor/remediation.log"},
        {"Log.Level", "debug"},
    };
    ASSERT_EQ(settings->all().size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(settings->all()[i].key, expected[i].first);
        EXPECT_EQ(settings->all()[i].value, expected[i].second) << expected[i].first;
        EXPECT_FALSE(settings->all()[i].fromFile);
    }
    EXPECT_EQ(settings->get("Buffer.Unknown"), "");
    EXPECT_THAT(problemsOf(*settings), IsEmpty());
}

TEST_F(AgentSettingsTest, TakesWhatTheFileSets) {
    const auto settings = AgentSettings::load(
        ini("[Buffer]\nSpeedPercent =  40 \nPatchesDir = /data/patches/\nPatchesDirSizeMB =\n"
            "[Repository]\nUrl = http://127.0.0.1:8000/a=b\nTrustedKey = /etc/zelor/key.pem\n"));
    EXPECT_EQ(settings->get("Buffer.SpeedPercent"), "40");
    EXPECT_EQ(settings->get("Buffer.PatchesDir"), root / "data/patches");
    EXPECT_EQ(settings->get("Buffer.PatchesDirSizeMB"), "2000") << "an empty value counts as unset";
    EXPECT_EQ(settings->get("Repository.Url"), "http://127.0.0.1:8000/a=b");
    EXPECT_EQ(settings->get("Repository.TrustedKey"), root / "etc/zelor/key.pem");
    setSystemRoot("");
    EXPECT_EQ(AgentSettings::load(settings->iniFile())->get("Buffer.PatchesDir"), "/data/patches");
}

TEST_F(AgentSettingsTest, UnusableFilesGiveAllDefaultsAndOneProblem) {
    struct Case {
        const char* name;
        std::string text;
        const char* told;
    };
    const Case cases[] = {
        {"no section end", "[Buffer\nSpeedPercent = 40\n", "line 1"},
        {"no equals sign", "[Buffer]\nSpeedPercent = 40\nrubbish\n", "line 3"},
        {"key twice", "[Buffer]\nSpeedPercent = 40\nSpeedPercent = 41\n", "duplicate"},
        {"too large", "[Buffer]\nSpeedPercent = 40\n" + std::string(2 << 20, '#') + "\n", "larger than"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto settings = AgentSettings::load(ini(c.text));
        EXPECT_EQ(settings->get("Buffer.SpeedPercent"), "25");
        const std::string problems = problemsOf(*settings);
        EXPECT_THAT(problems, HasSubstr(settings->iniFile()));
        EXPECT_THAT(problems, HasSubstr(c.told));
        EXPECT_THAT(problemsOf(*settings), IsEmpty()) << "told once";
    }
    EXPECT_THAT(problemsOf(*AgentSettings::load(root / "none.ini")), HasSubstr("No such file"));
    EXPECT_THAT(problemsOf(*AgentSettings::load(root / "etc")), HasSubstr("not a regular file"));
}

TEST_F(AgentSettingsTest, UnusableValuesGiveTheDefaultOfTheirKeyAlone) {
    const auto settings = AgentSettings::load(
        ini("[Buffer]\nSpeedPercent = a lot\nPatchesDirSizeMB = 7\nUnzipFolder = relative\n"
            "PatchesDir = /var/../../up\n[Limits]\nCommandMinutes = -1\n"));
    EXPECT_EQ(settings->get("Buffer.SpeedPercent"), "25");
    EXPECT_EQ(settings->get("Buffer.PatchesDirSizeMB"), "7");
    EXPECT_EQ(settings->get("Buffer.UnzipFolder"), root / "var/zelor/unzip");
    EXPECT_EQ(settings->get("Buffer.PatchesDir"), root / "var/zelor/buffer");
    EXPECT_EQ(settings->get("Limits.CommandMinutes"), "0");
    EXPECT_THAT(problemsOf(*settings), HasSubstr("Buffer.SpeedPercent = \"a lot\""));
}

TEST_F(AgentSettingsTest, CurrentFollowsTheFileAndTheRootAndLogsAProblemOnce) {
    ini("[Buffer]\nSpeedPercent = 40\n");
    const auto first = AgentSettings::current();
    EXPECT_EQ(first->get("Buffer.SpeedPercent"), "40");
    EXPECT_EQ(AgentSettings::current(), first) << "unchanged files are not read again";
    ini("[Buffer]\nSpeedPercent = 5\n");
    EXPECT_EQ(AgentSettings::current()->get("Buffer.SpeedPercent"), "5");

    ini("rubbish of quite another size\n");
    AgentSettings::current();
    AgentSettings::current();
    const std::string log = logText();
    const auto told = log.find("[AgentSettings]");
    EXPECT_NE(told, std::string::npos);
    EXPECT_EQ(log.find("[AgentSettings]", told + 1), std::string::npos) << log;

    const TempDir other;
    writeFile(other / "etc/zelor/zelor.ini", "[Buffer]\nSpeedPercent = 60\n");
    setSystemRoot(other.path().string());
    EXPECT_EQ(AgentSettings::current()->get("Buffer.SpeedPercent"), "60");
}

TEST_F(AgentSettingsTest, ConfigurationManagerAnswersForItsFile) {
    ini("[Buffer]\nUnzipFolder = /u\n[Installation]\nVendorProducts = interactive\n");
    writeFile(root / "other.ini", "[Buffer]\nUnzipFolder = /o\nPatchesDirSizeMB = 9\n");
    ConfigurationManager* own = ConfigurationManager::GetInstance("");
    ConfigurationManager* other = ConfigurationManager::GetInstance(root / "other.ini");
    EXPECT_EQ(own->getUnzipFileFolder(), root / "u");
    EXPECT_EQ(own->getVendorProductInstallationType(), "interactive");
    EXPECT_EQ(own->getThirdPartyProductInstallationType(), "quiet");
    EXPECT_EQ(own->getBufferPatchesDirSize(), "2000");
    EXPECT_EQ(other->getUnzipFileFolder(), root / "o");
    EXPECT_EQ(other->getBufferPatchesDirSize(), "9");
    EXPECT_EQ(other->getBufferPatchesDir(), root / "var/zelor/buffer");
    EXPECT_EQ(other->getBufferSpeedPercent(), "25");
    EXPECT_EQ(ConfigurationManager::GetInstance(""), own);
}

TEST_F(AgentSettingsTest, CacheStoreReadsOneCpePerLine) {
    ini("[ScanManager]\nInstallPath = /agent\n");
    EXPECT_THAT(CacheStore::GetSplCaseCPEs(), IsEmpty());
    EXPECT_THAT(logText(), Not(HasSubstr("[CacheStore]"))) << "no file is no fault";
    writeFile(root / "agent/special-case-cpes.txt", "# note\n\n  cpe:/o:a:b \r\ncpe:/o:c:d\ncpe:/o:a:b");
    EXPECT_THAT(CacheStore::GetSplCaseCPEs(), testing::ElementsAre("cpe:/o:a:b", "cpe:/o:c:d"));
    boost::filesystem::remove(root / "agent/special-case-cpes.txt");
    boost::filesystem::create_directory(root / "agent/special-case-cpes.txt");
    EXPECT_THAT(CacheStore::GetSplCaseCPEs(), IsEmpty());
    EXPECT_THAT(logText(), HasSubstr("[CacheStore]"));
}

}  // namespace
}  // namespace zelor::agent

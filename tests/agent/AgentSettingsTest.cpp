#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "agent/AgentSettings.h"
#include "agent/settings/SettingsTable.h"
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
    static std::string valueOf(const AgentSettings& settings, const std::string& key) {
        for (const Setting& setting : settings.all()) {
            if (setting.key == key) return setting.value;
        }
        return "no such key";
    }
    std::string logText() { return readFile(root / "var/log/zelor/remediation.log"); }
};

TEST_F(AgentSettingsTest, EveryKeyHasItsDefaultBelowTheRoot) {
    const auto settings = AgentSettings::load(ini("# nothing set\n"));
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"ScanManager.ProfileId", ""},
        {"ScanManager.InstallPath", root / "opt/zelor"},
        {"Repository.Url", ""},
        {"Repository.TrustedKey", ""},
        {"Repository.RequireDigests", "false"},
        {"Repository.Root", ""},
        {"Repository.Freshness", "warn"},
        {"Network.Proxy", ""},
        {"Network.NoProxy", ""},
        {"Network.CaFile", ""},
        {"Buffer.UnzipFolder", root / "var/zelor/unzip"},
        {"Buffer.PatchesDir", root / "var/zelor/buffer"},
        {"Buffer.PatchesDirSizeMB", "2000"},
        {"Buffer.SpeedPercent", "25"},
        {"Installation.VendorProducts", "silent"},
        {"Installation.ThirdPartyProducts", "quiet"},
        {"Limits.CommandMinutes", "0"},
        {"Limits.RunMinutes", "720"},
        {"Limits.ContentSeconds", "120"},
        {"Limits.PatchKiBPerSecond", "4"},
        {"Limits.PatchMinutes", "10"},
        {"Limits.AheadMegabytes", "2048"},
        {"Log.File", root / "var/log/zelor/remediation.log"},
        {"Log.Level", "debug"},
    };
    ASSERT_EQ(settings->all().size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(settings->all()[i].key, expected[i].first);
        EXPECT_EQ(settings->all()[i].value, expected[i].second) << expected[i].first;
        EXPECT_FALSE(settings->all()[i].fromFile);
    }
    EXPECT_EQ(settings->values().commandMinutes, 0U);
    EXPECT_EQ(settings->values().logLevel, LogLevel::debug);
    EXPECT_THAT(problemsOf(*settings), IsEmpty());
}

TEST_F(AgentSettingsTest, TakesWhatTheFileSets) {
    const auto settings = AgentSettings::load(
        ini("[Buffer]\nSpeedPercent =  40 \nPatchesDir = /data/patches/\nPatchesDirSizeMB =\n"
            "[Repository]\nUrl = http://127.0.0.1:8000/a=b\nTrustedKey = /etc/zelor/key.pem\n"));
    EXPECT_EQ(valueOf(*settings, "Buffer.SpeedPercent"), "40");
    EXPECT_EQ(valueOf(*settings, "Buffer.PatchesDir"), root / "data/patches");
    EXPECT_EQ(valueOf(*settings, "Buffer.PatchesDirSizeMB"), "2000") << "an empty value counts as unset";
    EXPECT_EQ(valueOf(*settings, "Repository.Url"), "http://127.0.0.1:8000/a=b");
    EXPECT_EQ(valueOf(*settings, "Repository.TrustedKey"), root / "etc/zelor/key.pem");
    setSystemRoot("");
    EXPECT_EQ(valueOf(*AgentSettings::load(settings->iniFile()), "Buffer.PatchesDir"), "/data/patches");
}

TEST_F(AgentSettingsTest, UnusableFilesGiveAllDefaultsAndOneProblem) {
    struct Case {
        const char* name;
        std::string text;
        const char* reported;
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
        EXPECT_EQ(valueOf(*settings, "Buffer.SpeedPercent"), "25");
        const std::string problems = problemsOf(*settings);
        EXPECT_THAT(problems, HasSubstr(settings->iniFile()));
        EXPECT_THAT(problems, HasSubstr(c.reported));
        EXPECT_THAT(problemsOf(*settings), IsEmpty()) << "reported once";
    }
    EXPECT_THAT(problemsOf(*AgentSettings::load(root / "none.ini")), HasSubstr("No such file"));
    EXPECT_THAT(problemsOf(*AgentSettings::load(root / "etc")), HasSubstr("not a regular file"));
}

TEST_F(AgentSettingsTest, UnusableValuesGiveTheDefaultOfTheirKey) {
    const auto settings = AgentSettings::load(
        ini("[Buffer]\nSpeedPercent = a lot\nPatchesDirSizeMB = 7\nUnzipFolder = relative\n"
            "PatchesDir = /var/../../up\n[Limits]\nCommandMinutes = -1\n[Network]\nNoProxy = 10.0.0.0/8\n"
            "[Repository]\nFreshness = yes\n"));
    EXPECT_EQ(valueOf(*settings, "Buffer.SpeedPercent"), "25");
    EXPECT_EQ(valueOf(*settings, "Buffer.PatchesDirSizeMB"), "7");
    EXPECT_EQ(valueOf(*settings, "Buffer.UnzipFolder"), root / "var/zelor/unzip");
    EXPECT_EQ(valueOf(*settings, "Buffer.PatchesDir"), root / "var/zelor/buffer");
    EXPECT_EQ(valueOf(*settings, "Limits.CommandMinutes"), "0");
    EXPECT_THAT(settings->problems(),
                testing::Contains(HasSubstr("Network.NoProxy = \"10.0.0.0/8\" is not")));
    EXPECT_EQ(valueOf(*settings, "Repository.Freshness"), "warn");
    EXPECT_THAT(problemsOf(*settings), HasSubstr("Buffer.SpeedPercent = \"a lot\""));
    for (const char* proxy :
         {"System", "user:secret@proxy:3128", "http://user:secret@", "http://p:1/x", "socks5://user:secret@p",
          "http://user:secret/x@p", "http://user:secret@:3128", "http:// p"}) {
        const auto refused = AgentSettings::load(ini("[Network]\nProxy = " + std::string(proxy) + "\n"));
        EXPECT_EQ(refused->values().proxy, "") << proxy;
        EXPECT_THAT(problemsOf(*refused),
                    testing::AllOf(HasSubstr("Network.Proxy "), Not(HasSubstr("secret"))));
    }
    for (const char* proxy : {"system", "http://p", "https://p:3128", "HTTP://us%40er:p@[::1]:3128"})
        EXPECT_EQ(AgentSettings::load(ini("[Network]\nProxy = " + std::string(proxy) + "\n"))->values().proxy,
                  proxy);
}

TEST_F(AgentSettingsTest, UnknownNamesAreReportedWithTheNearestKnownOne) {
    struct {
        const char* text;
        const char* warning;  ///< "" for none
    } const rows[] = {
        {"[Bufer]\nSpeedPercent = 40\n",
         "[Bufer] SpeedPercent is not a known key and is ignored; "
         "the nearest one is [Buffer] SpeedPercent"},
        {"[Buffer]\nspeedpercent = 40\n", "nearest one is [Buffer] SpeedPercent"},
        {"[Buffer]\nUrl = http://x\n",
         "[Buffer] Url is not a known key and is ignored; "
         "the nearest one is [Repository] Url"},
        {"[Log]\nFiles = /x\n", "nearest one is [Log] File"},
        {"[Limits]\nUmbrella = 1\n", "[Limits] Umbrella is not a known key and is ignored; the manual page"},
        {"Url = http://x\n",
         "Url outside the sections is not a known key and is ignored; "
         "the nearest one is [Repository] Url"},
        {"[repository]\nurl = http://x\n", "nearest one is [Repository] Url"},
        {"[Log]\nLevel = loud\n", "Log.Level = \"loud\" is not debug, info or error; taking the default"},
        {"[Buffer]\n[Limits]\nCommandMinutes = 1\n", ""},
    };
    for (const auto& row : rows) {
        const auto settings = AgentSettings::load(ini(row.text));
        EXPECT_THAT(settings->problems(), IsEmpty()) << row.text;
        if (*row.warning == '\0') {
            EXPECT_THAT(settings->warnings(), IsEmpty()) << row.text;
        } else {
            EXPECT_THAT(settings->warnings(), testing::ElementsAre(HasSubstr(row.warning))) << row.text;
        }
    }
    std::string many = "[" + std::string(100000, 'x') + "]\n";
    for (int i = 0; i < 1000; ++i)
        many += "key" + std::to_string(i) + " = 1\n";
    EXPECT_EQ(AgentSettings::load(ini(many))->warnings().size(), 21U) << "bounded";
}

/// The rows of a page as "Section.Key", their default and the text that follows.
struct PageRow {
    std::string name, fallback, text;
};

// The pages describe exactly the rows of the table.
TEST_F(AgentSettingsTest, ThePagesSayWhatTheTableSays) {
    std::vector<PageRow> page;
    std::vector<PageRow> manual;
    std::string section;
    std::string sample;
    std::istringstream markdown(readFile(std::string(ZELOR_DOCS) + "/configuration.md"));
    bool inSample = false;
    for (std::string line; std::getline(markdown, line);) {
        if (line.rfind("```", 0) == 0)
            inSample = line == "```ini";
        else if (inSample)
            sample += line + '\n';
        std::smatch found;
        if (std::regex_match(line, found, std::regex("### \\[(.*)\\]"))) section = found[1];
        if (std::regex_match(line, found, std::regex("\\| `(\\w+)` \\| (none|`(.*?)`) \\| (.*)")))
            page.push_back({section + '.' + found[1].str(), found[3], found[4]});
    }
    std::istringstream mdoc(readFile(std::string(ZELOR_DOCS) + "/man/zelor.ini.5"));
    for (std::string line; std::getline(mdoc, line);) {
        std::smatch found;
        if (std::regex_match(line, found, std::regex("\\.Ss \\[(.*)\\]"))) section = found[1];
        if (std::regex_match(line, found, std::regex("\\.It Cm (\\w+)( No = (.*))?"))) {
            manual.push_back({section + '.' + found[1].str(), found[3], ""});
        } else if (!manual.empty()) {
            manual.back().text += line + ' ';
        }
    }
    ASSERT_EQ(page.size(), settingsTable().size());
    ASSERT_EQ(manual.size(), settingsTable().size());
    for (std::size_t i = 0; i < page.size(); ++i) {
        const SettingEntry& entry = settingsTable()[i];
        for (const PageRow& row : {page[i], manual[i]}) {
            EXPECT_EQ(row.name, entry.name());
            EXPECT_EQ(row.fallback, entry.fallback) << entry.name();
            EXPECT_THAT(row.text, HasSubstr(entry.meaning)) << entry.name();
        }
    }
    const auto settings = AgentSettings::load(ini(sample));
    EXPECT_THAT(settings->problems(), IsEmpty());
    EXPECT_THAT(settings->warnings(), IsEmpty());
    for (const Setting& setting : settings->all())
        EXPECT_TRUE(setting.fromFile) << setting.key << " is missing in the sample";
}

TEST_F(AgentSettingsTest, CurrentFollowsTheFileAndTheRootAndLogsAProblemOnce) {
    ini("[Buffer]\nSpeedPercent = 40\n");
    const auto first = AgentSettings::current();
    EXPECT_EQ(valueOf(*first, "Buffer.SpeedPercent"), "40");
    EXPECT_EQ(AgentSettings::current(), first) << "unchanged files are not read again";
    ini("[Buffer]\nSpeedPercent = 5\n");
    EXPECT_EQ(valueOf(*AgentSettings::current(), "Buffer.SpeedPercent"), "5");

    ini("rubbish of quite another size\n");
    AgentSettings::current();
    AgentSettings::current();
    const std::string log = logText();
    const auto reported = log.find("[AgentSettings]");
    EXPECT_NE(reported, std::string::npos);
    EXPECT_EQ(log.find("[AgentSettings]", reported + 1), std::string::npos) << log;

    const TempDir other;
    writeFile(other / "etc/zelor/zelor.ini", "[Buffer]\nSpeedPercent = 60\n");
    setSystemRoot(other.path().string());
    EXPECT_EQ(valueOf(*AgentSettings::current(), "Buffer.SpeedPercent"), "60");
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

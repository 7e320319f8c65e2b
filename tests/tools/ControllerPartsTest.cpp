#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "base/SystemRoot.h"
#include "controller/InputError.h"
#include "controller/Setup.h"
#include "controller/Text.h"
#include "controller/live/PlainLines.h"
#include "controller/live/RequestLabel.h"
#include "controller/live/Watch.h"
#include "controller/report/ReportJson.h"
#include "controller/run/RunLog.h"
#include "tests/support/TempDir.h"

namespace zelor::controller {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

std::string problemOf(const std::string& text) {
    try {
        parseRequests(text, "r.json");
    } catch (const InputError& e) {
        return e.what();
    }
    return "no problem";
}

TEST(ControllerSetup, MakesWhatIsMissingOnTheSystemWhereNobodyElseCanReplaceIt) {
    const test::TempDir dir;
    setSystemRoot(dir.path().string());
    Place place;
    place.settings = agent::AgentSettings::load(dir / "etc/zelor/zelor.ini");
    place.installPath = dir / "opt/zelor";
    prepareFolders(place, false);
    for (const char* made : {"opt/zelor", "var/log/zelor", "var/zelor/unzip", "var/zelor/buffer"}) {
        struct stat info {};
        EXPECT_EQ(::stat((dir / made).c_str(), &info), 0) << made;
        EXPECT_EQ(info.st_mode & 07777U, 0700U) << made;
    }
    boost::filesystem::remove(dir / "opt/zelor");
    ::chmod((dir / "opt").c_str(), 0777);
    EXPECT_THROW(prepareFolders(place, false), InputError);
    EXPECT_FALSE(boost::filesystem::exists(dir / "opt/zelor"));
    setSystemRoot("");
}

TEST(ControllerRequests, ReadsAnObjectOfStrings) {
    const RequestMap map =
        parseRequests("\xef\xbb\xbf{\"b||P\": \"CVE-1\", \"a\\u00e9\": \"CCE-2\"}", "r.json");
    EXPECT_EQ(map, (RequestMap{{"a\xc3\xa9", "CCE-2"}, {"b||P", "CVE-1"}}));
}

TEST(ControllerRequests, TellsWhatIsWrongAndWhere) {
    const struct {
        const char* text;
        std::vector<std::string> told;
    } cases[] = {
        {"", {"r.json, line 1", "byte 1", "not valid JSON"}},
        {"{\n\"a\": \"CVE-1\",\n}", {"line 3", "not valid JSON"}},
        {"{\"a\": \"CVE-1\"} x", {"line 1", "byte 16"}},
        {"{\"a\xff\": \"CVE-1\"}", {"line 1", "byte 4", "UTF-8"}},
        {"{\n\n\"a\": 7}", {"line 3", "\"a\" has a number", "as a string"}},
        {"{\"a\": [\"CVE-1\"]}", {"\"a\" has an array"}},
        {"{\"a\": {\"b\": \"c\"}}", {"\"a\" has an object"}},
        {"[\"a\"]", {"the text is an array where an object is needed"}},
        {"\"a\"", {"the text is a string"}},
        {"{\"a\": \"CVE-1\",\n \"b\": \"x\",\n \"a\": \"CVE-2\"}", {"line 3", "\"a\" stands there twice"}},
        {"{\"a\": \" \"}", {"\"a\" is empty"}},
        {"{}", {"r.json holds no request"}},
        {"{\"\\u001b[2Ja\": 1}", {"\"?[2Ja\""}},
    };
    for (const auto& one : cases) {
        for (const std::string& part : one.told)
            EXPECT_THAT(problemOf(one.text), HasSubstr(part)) << one.text;
    }
}

TEST(ControllerRequests, NamesAFileThatCannotBeRead) {
    const test::TempDir dir;
    EXPECT_THROW(loadRequests(dir / "none.json"), InputError);
    EXPECT_THROW(loadRequests(dir.path().string()), InputError);
}

TEST(ControllerStates, EndByFinalValues) {
    EXPECT_EQ(runExitStatus(3, 3, false), 0);
    EXPECT_EQ(runExitStatus(3, 1, false), 1);
    EXPECT_EQ(runExitStatus(3, 0, false), 3);
    EXPECT_EQ(runExitStatus(3, 3, true), 130);
    EXPECT_EQ(stateName(8), "invalid-request");
    EXPECT_EQ(stateName(11), "failed");
    EXPECT_EQ(stateName(static_cast<ProgressValue>(-2)), "failed");
}

std::vector<std::pair<std::size_t, ProgressValue>> pairs(const std::vector<Change>& changes) {
    std::vector<std::pair<std::size_t, ProgressValue>> all;
    for (const Change& change : changes)
        all.emplace_back(change.request, change.value);
    return all;
}

TEST(ControllerResults, StandUnderTheKeysAsGiven) {
    using Pairs = std::vector<std::pair<std::size_t, ProgressValue>>;
    // The library reports the second and third under "a"; "a,b" sorts between the keys but not the report
    // keys.
    ResultTable table({{"a,b", "CVE-0"}, {"a||oval:1", "CVE-1"}, {"a||oval:2", "CVE-2"}, {"a||p", "CVE-3"}});
    EXPECT_EQ(pairs(table.apply({})), Pairs{});
    EXPECT_EQ(pairs(table.apply({{"a", 0}, {"zz", 4}})), (Pairs{{1, 0}, {2, 0}}));
    EXPECT_EQ(pairs(table.apply({{"a", 4}, {"a,b", 1}, {"a||p", 99}})),
              (Pairs{{0, 1}, {1, 4}, {2, 4}, {3, 99}}));
    EXPECT_EQ(pairs(table.apply({{"a", 4}, {"a,b", 1}, {"a||p", 99}})), Pairs{});
    EXPECT_EQ(table.count(4), 2U);
    EXPECT_EQ(table.count(1), 1U);
    EXPECT_EQ(table.count(5), 1U);
    EXPECT_EQ(table.finished(), 3U);
}

TEST(ControllerResults, AreWrittenAsJson) {
    ResultTable table({{"k\"\n||P", "CVE-1"}, {"never", "CVE-2"}});
    table.apply({{"k\"\n||P", 12}});
    std::ostringstream out;
    writeResultJson(out, table, {true, false, true});
    const auto expected = nlohmann::json::parse(R"({"requests": {
        "k\"\n||P": {"identifier": "CVE-1", "value": 12, "state": "file-unavailable"},
        "never": {"identifier": "CVE-2", "value": 0, "state": "queued"}},
        "rebootNeeded": true, "scanNeeded": false, "allFailed": true})");
    EXPECT_EQ(nlohmann::json::parse(out.str()), expected);
    EXPECT_EQ(eventJson(1.23456, "a\n", 4), R"({"t":1.235,"key":"a\n","value":4,"state":"success"})");
}

TEST(ControllerText, LetsNothingHarmfulThrough) {
    const struct {
        const char* text;
        const char* printed;
    } cases[] = {
        {"Editor \xc3\xa9", "Editor \xc3\xa9"},
        {"\x1b[31mred", "?[31mred"},
        {"a\nb\tc\x7f", "a?b?c?"},
        {"\xc2\x9b"
         "31m",
         "?31m"},
        {"\xff\xfe", "??"},
        {"cut \xe2\x82", "cut ??"},
        {"\xc0\xaf", "??"},
        {"\xed\xa0\x80", "???"},
        {"a\xe2\x80\xae"
         "b",
         "a?b"},
        {"e\xcc\x81", "e\xcc\x81"},
    };
    for (const auto& one : cases)
        EXPECT_EQ(base::printable(one.text), one.printed) << one.text;
}

TEST(ControllerText, CutsByColumnsAndNeverInsideACharacter) {
    const std::string wide = "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e";  // three characters, six columns
    EXPECT_EQ(columnsOf(wide), 6U);
    EXPECT_EQ(columnsOf("e\xcc\x81"), 1U);
    EXPECT_EQ(cutToColumns(wide, 6, "~"), wide);
    EXPECT_EQ(cutToColumns(wide, 5, "~"), wide.substr(0, 6) + "~");
    EXPECT_EQ(cutToColumns(wide, 4, "~"), wide.substr(0, 3) + "~");
    EXPECT_EQ(fitToColumns(wide, 4, "~"), wide.substr(0, 3) + "~ ");
    EXPECT_EQ(cutToColumns("abc", 0, "~"), "");
    EXPECT_EQ(fitToColumns("ab", 4, "~"), "ab  ");
}

TEST(ControllerText, SaysAmountsShortly) {
    EXPECT_EQ(bytesText(0), "0 B");
    EXPECT_EQ(bytesText(1023), "1023 B");
    EXPECT_EQ(bytesText(1536), "1.5 KB");
    EXPECT_EQ(bytesText(1048575), "1.0 MB");
    EXPECT_EQ(clockText(-1), "0:00");
    EXPECT_EQ(clockText(3723), "1:02:03");
    EXPECT_EQ(durationText(0.04), "0.0 s");
    EXPECT_EQ(durationText(59.7), "1 min 0 s");
    EXPECT_EQ(countText(1, "request"), "1 request");
}

TEST(ControllerText, NamesARequest) {
    EXPECT_EQ(requestLabel("cpe:/o:x,cpe:/a:y|| Example\x1b Editor "), "Example? Editor");
    EXPECT_EQ(requestLabel("cpe:/o:x,cpe:/a:y||oval:org:1"), "cpe:/a:y");
    EXPECT_EQ(requestLabel("cpe:/o:x,||"), "cpe:/o:x");
    EXPECT_EQ(requestLabel("||"), "||");
}

TEST(ControllerWatch, LooksOftenWhileThingsChangeAndSeldomWhenLookingIsDear) {
    using std::chrono::milliseconds;
    LookPacer pacer(milliseconds(50));
    std::vector<long> pauses;
    for (const bool changed : {false, false, false, false, false, false, true, false})
        pauses.push_back(pacer.next(changed, {}).count());
    EXPECT_THAT(pauses, ElementsAre(4, 8, 16, 32, 50, 50, 2, 4));
    EXPECT_EQ(pacer.next(true, milliseconds(100)).count(), 2000);
}

TEST(ControllerRunLog, FindsTheReasonsOfFailures) {
    RunLog log;
    const auto debug = [&](const std::string& line) { log.take(false, line); };
    const auto error = [&](const std::string& line) { log.take(true, line); };
    debug(" [Remediation Manager] (parseCreEriForSupersedesTrue) Combined cpe is : k3");
    error(" [Remediation Manager] More than 2 CPEs given by UI for CVE/CCE :CVE-3and cpes are: k3");
    error("[CreCacher] no usable content for CVE-4: the repository answered 404");
    debug(" [Remediation Manager] (applyConfigs) Applying configs for CCE: CCE-1");
    error("[MacPatchManager] Inside getValueFromIni, Error while getting for the key ScanManager.ProfileId");
    debug("[MacHardeningFacilitator] exit process code for /c/a = b.sh is = 768");
    debug("[MacHardeningFacilitator] output of /c/ab.sh = one\ntwo\n");
    debug(" [Remediation Manager] The RESULT for Config apply for : CCE - CCE-1 is : Failed");
    debug(" [Remediation Manager] (installOsPatches) Patching OS Package = Apple Safari");
    error("[MacPatchManager] The pkg remediation failed = checking\nNo network.\n\n");
    debug(" [Remediation Manager] (installNonOsPatches) eriDataV.size = 1");
    error("[Downloader] cannot fetch http://r/x.zip: 404");
    error(" [Remediation Manager] The patch file '' DOES NOT exist OR it failed signature verification.");
    debug(
        " [Remediation Manager] (installNonOsPatches) The remediation result for cpe = k is \"x\" is "
        "\"Failed\"");
    error("[Late] nobody's");
    debug(" [Remediation Manager] (installNonOsPatches) eriDataV.size = 1");
    debug(
        " [Remediation Manager] (installNonOsPatches) The remediation result for cpe = good is "
        "\"Succeeded\"");

    const auto reason = [&](const std::string& key, const std::string& id) {
        return shortReason(log.notes(key, id));
    };
    EXPECT_EQ(reason("k3", "CVE-3"), "the request names more than two CPEs");
    EXPECT_EQ(reason("k4", "CVE-4"), "no usable content for CVE-4: the repository answered 404");
    EXPECT_EQ(reason("k1", "CCE-1"), "exit status 3: two");
    EXPECT_EQ(reason("cpe:/o:x||Apple Safari", "CVE-5"), "No network.");
    EXPECT_EQ(reason("k is \"x\"", "CVE-6"), "cannot fetch http://r/x.zip: 404");
    EXPECT_EQ(reason("good", "CVE-7"), "");
}

}  // namespace
}  // namespace zelor::controller

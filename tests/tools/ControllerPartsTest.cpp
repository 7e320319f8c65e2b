#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "base/Strings.h"
#include "base/SystemRoot.h"
#include "controller/ArgumentOrder.h"
#include "controller/CommandLine.h"
#include "controller/InputError.h"
#include "controller/Setup.h"
#include "controller/Text.h"
#include "controller/live/PlainLines.h"
#include "controller/live/Watch.h"
#include "controller/plan/PlanWarnings.h"
#include "controller/report/ReportJson.h"
#include "controller/run/RunRecord.h"
#include "remediation/Version.h"
#include "tests/support/TempDir.h"

namespace zelor::controller {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

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
    Paths paths;
    paths.settings = agent::AgentSettings::load(dir / "etc/zelor/zelor.ini");
    paths.installPath = dir / "opt/zelor";
    prepareDirectories(paths, false);
    for (const char* made : {"opt/zelor", "var/log/zelor", "var/zelor/unzip", "var/zelor/buffer"}) {
        struct stat info {};
        EXPECT_EQ(::stat((dir / made).c_str(), &info), 0) << made;
        EXPECT_EQ(info.st_mode & 07777U, 0700U) << made;
    }
    boost::filesystem::remove(dir / "opt/zelor");
    ::chmod((dir / "opt").c_str(), 0777);
    EXPECT_THROW(prepareDirectories(paths, false), InputError);
    EXPECT_FALSE(boost::filesystem::exists(dir / "opt/zelor"));
    setSystemRoot("");
}

TEST(ControllerRequests, ReadsAnObjectOfStrings) {
    const RequestMap map =
        parseRequests("\xef\xbb\xbf{\"b||P\": \"CVE-1\", \"a\\u00e9\": \"CCE-2\"}", "r.json").usable();
    EXPECT_EQ(map, (RequestMap{{"a\xc3\xa9", "CCE-2"}, {"b||P", "CVE-1"}}));
}

TEST(ControllerRequests, SaysWhatIsWrongAndWhere) {
    const struct {
        const char* text;
        std::vector<std::string> reported;
    } cases[] = {
        {"", {"r.json, line 1", "byte 1", "not valid JSON"}},
        {"{\n\"a\": \"CVE-1\",\n}", {"line 3", "not valid JSON"}},
        {"{\"a\": \"CVE-1\"} x", {"line 1", "byte 16"}},
        {"{\"a\xff\": \"CVE-1\"}", {"line 1", "byte 4", "UTF-8"}},
        {"{\"a\": [\"CVE-1\"}", {"not valid JSON"}},
        {"[\"a\"]", {"the text is an array where an object is needed"}},
        {"\"a\"", {"the text is a string"}},
        {"{\"a\": \"CVE-1\",\n \"b\": \"x\",\n \"a\": null}", {"line 3", "\"a\" is duplicated"}},
        {"{}", {"r.json contains no request"}},
        {"{\"\\u001b[2Ja\": \"\", \"\\u001b[2Ja\": \"\"}", {"\"?[2Ja\""}},
    };
    for (const auto& one : cases) {
        for (const std::string& part : one.reported)
            EXPECT_THAT(problemOf(one.text), HasSubstr(part)) << one.text;
    }
}

TEST(ControllerRequests, SetInvalidOnesAsideAndKeepTheOthers) {
    const Requests requests = parseRequests(
        "{\"good\": \"CVE-1\",\n\"null\": null, \"number\": 7, \"object\": {\"good\": \"CVE-2\", \"x\": "
        "[\"y\"]},"
        "\n\"array\": [{\"z\": \"CVE-3\"}], \"blank\": \" \\t\", \" \": \"CVE-4\", \"\": null, \"last\": "
        "\"CCE-5\"}",
        "r.json");
    EXPECT_EQ(requests.usable(), (RequestMap{{"good", "CVE-1"}, {"last", "CCE-5"}}));
    EXPECT_EQ(requests.all.size(), 9U);
    const std::map<std::string, std::string> reasons = {{"null", "line 2: its identifier is null; write"},
                                                        {"number", "line 2: its identifier is a number"},
                                                        {"object", "line 2: its identifier is an object"},
                                                        {"array", "line 3: its identifier is an array"},
                                                        {"blank", "line 3: its identifier is empty; give"},
                                                        {" ", "line 3: its key is empty; give"},
                                                        {"", "line 3: its key is empty; give"}};
    ASSERT_EQ(requests.invalid.size(), reasons.size());
    for (const auto& [key, reason] : reasons)
        EXPECT_THAT(requests.invalid.at(key), HasSubstr(reason));
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

TEST(ControllerResults, UseTheKeysAsGiven) {
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

/// A result as the library reports it.
RequestResult settled(const std::string& key, unsigned long value, const std::string& reason = "",
                      Applied applied = Applied::no, const std::string& output = "") {
    RequestResult result;
    result.key = key;
    result.value = value;
    result.reason = reason;
    result.applied = applied;
    result.output = output;
    return result;
}

TEST(ControllerResults, KeepInvalidRequestsApart) {
    // Both are reported under "a", and the library knows only the second one.
    ResultTable table({{"a||oval:1", ""}, {"a||oval:2", "CVE-2"}});
    table.setInvalid({{"a||oval:1", "line 1: ..."}});
    EXPECT_EQ(pairs(table.apply({})), (std::vector<std::pair<std::size_t, ProgressValue>>{{0, 8}}));
    table.apply({{"a", 4}});
    EXPECT_EQ(table.results()[0].value, 8U);
    EXPECT_EQ(table.results()[1].value, 4U);
    EXPECT_EQ(table.count(8), 1U);
}

TEST(ControllerResults, AreWrittenAsJson) {
    ResultTable table({{"k\"\n||P", "CVE-1"}, {"never", "CVE-2"}});
    table.apply({{"k\"\n||P", 12}});
    RunFacts facts{"mac-7", "Mac OS X", "10.10.5", "cpe:/o:apple:mac_os_x:10.10", "", {}, {}, 1.23456};
    const RequestDetails details{{"no\xffreason", "", Applied::now, EarlierResult{5, "it broke"}}, 0.5};
    std::ostringstream out;
    writeResultJson(out, table, {true, false, true, false}, facts,
                    [&](std::size_t request) { return request == 0 ? details : RequestDetails(); });
    const auto expected = nlohmann::json::parse(R"({"schema": 1, "version": ")" ZELOR_VERSION_STRING R"(",
        "host": "mac-7",
        "platform": {"name": "Mac OS X", "version": "10.10.5", "cpe": "cpe:/o:apple:mac_os_x:10.10"},
        "started": "1970-01-01T00:00:00Z", "finished": "1970-01-01T00:00:00Z", "seconds": 1.235,
        "requests": {
        "k\"\n||P": {"identifier": "CVE-1", "value": 12, "state": "file-unavailable", "reason": "no\ufffdreason",
                     "applied": "now", "seconds": 0.5,
                     "beforeCancel": {"value": 5, "state": "failed", "reason": "it broke"}},
        "never": {"identifier": "CVE-2", "value": 0, "state": "queued", "seconds": 0.0}},
        "rebootNeeded": true, "restartNeededByThisRun": false, "scanNeeded": false, "allFailed": true, "end": "complete"})");
    EXPECT_EQ(nlohmann::json::parse(out.str()), expected);
    const std::string key = "a\n";
    EXPECT_EQ(eventJson(1.23456, {&key, &key, 4, true}, {{"", "", Applied::before, {}}, 0.25}),
              R"({"t":1.235,"key":"a\n","value":4,"state":"success","applied":"before","seconds":0.25})");
    EXPECT_EQ(eventJson(1, {&key, &key, 1, true}, {}),
              R"({"t":1.0,"key":"a\n","value":1,"state":"downloading"})");
    EXPECT_EQ(nlohmann::json::parse(eventJson(1, {&key, &key, 1, true}, {}, &facts))["host"], "mac-7");
}

TEST(ControllerRunRecord, KeepsWhatACancelWouldErase) {
    const struct {
        const char* name;
        std::vector<RequestResult> events;
        unsigned long value;
        std::string reason;
        Applied applied;
        std::string output;
    } cases[] = {
        {"a failure",
         {settled("k", 5, "exit status 3: no\x1broom", Applied::no, "no room\n")},
         5,
         "exit status 3: no?room",
         Applied::no,
         "no room"},
        {"a success", {settled("k", 4, "", Applied::before, "much\n")}, 4, "", Applied::before, ""},
        {"a cancel alone", {settled("k", 13)}, 13, "", Applied::no, ""},
        {"a cancel after a failure",
         {settled("k", 12, "refused"), settled("k", 13)},
         13,
         "before the cancel file-unavailable: refused",
         Applied::no,
         ""},
        {"two cancels",
         {settled("k", 5, "broke", Applied::no, "said"), settled("k", 13), settled("k", 13)},
         13,
         "before the cancel failed: broke",
         Applied::no,
         "said"},
        {"a cancel after a success",
         {settled("k", 4, "", Applied::now), settled("k", 13, "", Applied::now)},
         13,
         "before the cancel success",
         Applied::now,
         ""},
        {"a cancel withdrawn",
         {settled("k", 12, "refused"), settled("k", 13), settled("k", 4, "", Applied::now)},
         4,
         "",
         Applied::now,
         ""},
        {"a value seen late",
         {settled("k", 12, "refused"), settled("k", 13)},
         12,
         "refused",
         Applied::no,
         ""},
        {"a value that is gone",
         {settled("k", 12, "refused"), settled("k", 5, "broke")},
         12,
         "",
         Applied::no,
         ""},
        {"nothing", {}, 6, "", Applied::no, ""},
    };
    const std::string key = "k";
    for (const auto& one : cases) {
        RunRecord record;
        for (const RequestResult& event : one.events)
            record.settled(event);
        const Result result{&key, &key, one.value, true};
        EXPECT_EQ(record.reason(result), one.reason) << one.name;
        EXPECT_EQ(record.outcome(result).applied, one.applied) << one.name;
        EXPECT_EQ(record.outcome(result).output, one.output) << one.name;
    }
}

TEST(ControllerRunRecord, SaysThatTheTimeLimitEndedARun) {
    const std::string key = "k";
    RunRecord record;
    record.settled(settled("k", 12, "refused"));
    record.setAbortReason("the time was up");
    EXPECT_EQ(record.reason({&key, &key, 12, true}), "refused");
    const std::string other = "another";
    EXPECT_EQ(record.reason({&other, &other, 13, true}), "the time was up");
    record.settled(settled("k", 13));
    EXPECT_EQ(record.reason({&key, &key, 13, true}),
              "the time was up; before the cancel file-unavailable: refused");
    EXPECT_EQ(record.outcome({&key, &key, 13, true}).reason, "the time was up");
}

TEST(ControllerRunRecord, KeepsTheEndOfALongOutput) {
    std::string output;
    for (int line = 1; line <= 60; ++line)
        output += "line " + std::to_string(line) + '\n';
    RunRecord record;
    record.settled(settled("k", 5, "broke", Applied::no, output));
    const std::string key = "k";
    const std::string kept = record.outcome({&key, &key, 5, true}).output;
    EXPECT_EQ(kept.substr(0, 12), "...\nline 21\n");
    EXPECT_EQ(kept.substr(kept.size() - 8), "\nline 60");
    EXPECT_FALSE(record.restartNeeded());
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

TEST(ControllerText, FoldsLinesAndLeavesNothingOut) {
    EXPECT_EQ(folded("as it is, however long", 0, 4), "as it is, however long");
    EXPECT_EQ(folded("2026  one two three four", 14, 6), "2026  one two\n      three\n      four");
    EXPECT_EQ(folded("abcdefghij", 4, 2), "abcd\n  ef\n  gh\n  ij");
    std::string word = "https://repository.example/patches/";
    for (std::size_t columns = 1; columns < 60; ++columns) {
        std::string all;
        for (const char c : folded("reason: " + word, columns, 6))
            if (c != '\n' && c != ' ') all += c;
        EXPECT_EQ(all, "reason:" + word) << columns;
    }
}
TEST(ControllerArguments, AreTakenInAnyUsualOrder) {
    const CommandWords words{{"run", "plan", "help"}, {"--root", "--json"}, {"--json"}};
    using Words = std::vector<std::string>;
    const struct {
        Words given, arranged;
    } cases[] = {
        {{"run", "r.json", "--root", "d"}, {"run", "r.json", "--root", "d"}},
        {{"--root", "plan", "-v", "run", "r.json"}, {"run", "--root", "plan", "-v", "r.json"}},
        {{"--root=d", "run", "-"}, {"run", "--root=d", "-"}},
        {{"--json", "plan", "r.json"}, {"plan", "--json", "r.json"}},
        {{"--json", "p.json", "plan", "r.json"}, {"plan", "--json", "p.json", "r.json"}},
        {{"--json", "-v", "plan"}, {"plan", "--json", "-v"}},
        {{"help"}, {"--help"}},
        {{"help", "run", "x"}, {"run", "--help"}},
        {{"--root", "d", "help", "run"}, {"run", "--help"}},
        {{"help", "-h"}, {"help", "-h"}},
        {{"-h", "plan"}, {"plan", "--help"}},
        {{"--root", "d", "-h"}, {"--help"}},
        {{"-V", "run"}, {"--version"}},
        {{"run", "-V"}, {"run", "-V"}},
    };
    for (const auto& one : cases)
        EXPECT_EQ(arrangedArguments(one.given, words), one.arranged) << one.arranged.back();
    const std::map<std::string, Words> refused = {{"name a command", {}},
                                                  {"zelor-remediate --help", {"--root", "run"}},
                                                  {"did you mean \"plan\"?", {"paln", "r.json"}},
                                                  {"use one of: run, plan, help", {"help", "??????"}}};
    for (const auto& [message, given] : refused) {
        try {
            arrangedArguments(given, words);
            ADD_FAILURE() << message;
        } catch (const InputError& e) {
            EXPECT_THAT(e.what(), HasSubstr(message));
        }
    }
}

TEST(ControllerArguments, MisspeltOnesHaveANearWord) {
    const std::vector<std::string> options = {"--json", "--events", "--verbose", "-v", "-q"};
    const std::map<std::string, std::string> nearest = {{"--jsno", "--json"},
                                                        {"--JSON", "--json"},
                                                        {"--event", "--events"},
                                                        {"--verb", "--verbose"},
                                                        {"--frobnicate", ""},
                                                        {"-x", ""},
                                                        {"", ""},
                                                        {std::string(1000, '-'), ""}};
    for (const auto& [word, expected] : nearest)
        EXPECT_EQ(base::nearestWord(word, options), expected) << word;
}

TEST(ControllerPlace, IsRefusedForItsRealCause) {
    EXPECT_THAT(checkSystem({false, false, true}, true).error().text, HasSubstr("not a Mac"));
    EXPECT_THAT(checkSystem({false, false, false}, false).error().text, HasSubstr("--root DIR"));
    EXPECT_THAT(checkSystem({false, true, false}, true).error().text, HasSubstr("must run as root"));
    EXPECT_TRUE(checkSystem({false, true, false}, false));
    EXPECT_TRUE(checkSystem({false, true, true}, true));
    EXPECT_TRUE(checkSystem({true, false, false}, true));
    EXPECT_THAT(writeRemedy(EROFS, true), HasSubstr("disk"));
    EXPECT_THAT(writeRemedy(EROFS, false), Not(HasSubstr("run as root")));
    EXPECT_THAT(writeRemedy(EACCES, false), HasSubstr("run as root"));
    EXPECT_THAT(writeRemedy(EACCES, true), Not(HasSubstr("run as root")));
}

TEST(ControllerSummary, SaysWhatTheCancelledReadBeforeAndWhatNeedsARestart) {
    ResultTable table({{"a", "CVE-1"}, {"b", "CVE-2"}, {"c", "CVE-3"}, {"d", "CVE-4"}});
    table.apply({{"a", 4}, {"b", 13}, {"c", 11}, {"d", 5}});
    EXPECT_EQ(runSummary(table, {12}, {true, false, false, true}, "/l", 2),
              "4 requests in 2.0 s: 1 success, 2 failed, 1 aborted.\n"
              "Of the aborted, 1 request had a result before the cancel: 1 file-unavailable.\n"
              "A restart is needed to complete what this run applied.\nLog: /l\n");
    EXPECT_THAT(runSummary(table, {}, {true, false, false, false}, "/l", 2),
                HasSubstr("only if there was none"));
    EXPECT_THAT(runSummary(table, {}, {}, "/l", 2), testing::Not(HasSubstr("restart")));
    RunFlags late;
    late.endReason = "the time was up";
    EXPECT_THAT(runSummary(table, {}, late, "/l", 2),
                HasSubstr("The requests that were left are aborted: the time was up.\n"));
}

TEST(ControllerOutage, IsSaidOnceWithWhatItAffects) {
    const std::string down = "the repository does not answer since 10:15:02 UTC";
    OutageReason outage;
    EXPECT_EQ(outage.shown("http://h: refused"), "http://h: refused");
    EXPECT_EQ(outage.shown(down + ": http://h: refused"), down + ": http://h: refused");
    EXPECT_EQ(outage.shown(down), "no answer");
    EXPECT_EQ(outage.shown("exit status 3"), "exit status 3");
    EXPECT_EQ(outageText(outageIn({"", "exit status 3"})), "");
    RunFlags flags;
    flags.outage = outageIn({"", down + ": http://h: refused", down, "exit status 3"}, {down});
    const std::string once =
        "The repository does not answer since 10:15:02 UTC: 1 patch and 2 requests could not be completed";
    EXPECT_EQ(outageText(flags.outage), once);
    const ResultTable table(RequestMap{{"a", "CVE-1"}});
    EXPECT_THAT(runSummary(table, {}, flags, "/l", 2), HasSubstr("\n" + once + ".\n"));
}

TEST(ControllerCpeNames, AreWrittenInTheOlderForm) {
    const struct {
        const char* name23;
        const char* name22;
    } cases[] = {
        {"cpe:2.3:a:example:editor:2.1:*:*:*:*:*:*:*", "cpe:/a:example:editor:2.1"},
        {"cpe:2.3:o:apple:mac_os_x:*:*:*:*:*:*:*:*", "cpe:/o:apple:mac_os_x"},
        {"CPE:2.3:A:Example:Editor", "cpe:/a:example:editor"},
        {"cpe:2.3:a:x:y:1\\.0:-:*:en", "cpe:/a:x:y:1.0:-::en"},
        {"cpe:2.3:a:x\\:z:y\\!:1?:*", "cpe:/a:x%3az:y%21:1%01"},
        {"cpe:2.3:a:x:y:1:*:*:*:*:mac_os:*:*", "cpe:/a:x:y:1::~~~mac_os~~"},
        {"cpe:2.3:h:x:y:1:*:*:*:*:*:*:*", ""},
        {"cpe:2.3:a:x\\", ""},
        {"cpe:2.3:a:x y", ""},
        {"cpe:2.3:a:1:2:3:4:5:6:7:8:9:10:11", ""},
        {"cpe:2.3:", ""},
        {"cpe:/a:x:y", ""},
    };
    for (const auto& one : cases)
        EXPECT_EQ(cpe22Name(one.name23).value_or(""), one.name22) << one.name23;
}

}  // namespace
}  // namespace zelor::controller

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/Text.h"
#include "controller/live/LiveFrame.h"
#include "controller/live/LiveProgress.h"
#include "controller/live/RateMeter.h"

namespace zelor::controller {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> texts(const std::vector<FrameLine>& lines) {
    std::vector<std::string> all;
    for (const FrameLine& line : lines)
        all.push_back(line.text);
    return all;
}

LiveView exampleView() {
    LiveView view;
    view.rows = {
        {"Editor", "CVE-2014-1", "downloading", Tone::busy, 0.25, Transfer{3145728, 12582912, 1048576}, ""},
        {"Lock", "CCE-1", "installing", Tone::busy, 61, std::nullopt, ""},
        {"Later", "CVE-2", "queued", Tone::waiting, 0, std::nullopt, ""}};
    view.moreWaiting = 2;
    view.done = 5;
    view.total = 10;
    view.counts = {{"success", 4}, {"failed", 1}};
    view.seconds = 75;
    return view;
}

TEST(ControllerFrame, ShowsRowsAndTotal) {
    EXPECT_THAT(
        texts(liveFrame(exampleView(), {90, 24, false, false})),
        ElementsAre(
            "- Editor    CVE-2014-1  downloading       ###----------  3.0/12.0 MB  1.0 MB/s  0:09 left",
            "- Lock      CCE-1       installing        1:01", ". Later     CVE-2       queued",
            "  and 2 more", "5 of 10 done  ##############--------------  1:15  4 success, 1 failed"));
    EXPECT_EQ(liveFrame(exampleView(), {100, 24, true, true})[1].text,
              "\x1b[36m\xe2\xa0\x8b\x1b[0m Lock      \x1b[2mCCE-1\x1b[0m       \x1b[36minstalling\x1b[0m     "
              "   1:01");
}

TEST(ControllerFrame, FitsEveryTerminal) {
    LiveView view = exampleView();
    view.rows[0].name = "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e of a very long name that goes on and on and on";
    view.end = controller::EarlyEnd::signal;
    for (std::size_t columns = 1; columns < 140; ++columns) {
        for (const std::size_t lines : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 24U}) {
            const LiveStyle style{columns, lines, columns % 2 == 0, columns % 3 == 0};
            const auto frame = liveFrame(view, style);
            EXPECT_LE(frame.size(), std::max<std::size_t>(lines - 1, 1)) << columns << 'x' << lines;
            for (const FrameLine& line : frame) {
                EXPECT_LT(line.columns, columns);
                std::string bare;
                for (std::size_t i = 0; i < line.text.size(); ++i) {
                    if (line.text[i] == '\x1b') {
                        i = line.text.find('m', i);
                    } else {
                        bare += line.text[i];
                    }
                }
                EXPECT_EQ(columnsOf(bare), line.columns) << line.text;
            }
        }
    }
}

TEST(ControllerFrame, CountsTheLinesThatATerminalWrapsAfterItShrank) {
    const std::vector<FrameLine> frame = {{"", 0}, {"", 10}, {"", 79}};
    EXPECT_EQ(linesOnScreen(frame, 80), 3U);
    EXPECT_EQ(linesOnScreen(frame, 40), 4U);
    EXPECT_EQ(linesOnScreen(frame, 10), 10U);
}

TEST(ControllerFrame, SettlesARow) {
    const LiveRow failed{"Editor", "CVE-1", "failed", Tone::bad, 12.3, std::nullopt, "exit status 3"};
    LiveView view;
    view.identifierColumns = 5;
    const auto text = [&](std::size_t columns) {
        std::string all;
        for (const FrameLine& line : settledLines(failed, view, {columns, 24, false, false})) {
            EXPECT_LT(line.columns, columns);
            all += line.text + '\n';
        }
        return all;
    };
    EXPECT_EQ(text(80), "x Editor    CVE-1  failed            12 s  exit status 3\n");
    EXPECT_EQ(text(40), "x Editor    failed            12 s\n    exit status 3\n");
    EXPECT_EQ(text(12), "x Editor  ~\n    exit\n    status\n    3\n");
}

TEST(ControllerLive, MeasuresTheRateOfTheLastSeconds) {
    RateMeter meter;
    EXPECT_EQ(meter.rate(0, 10), 0);
    EXPECT_EQ(meter.rate(100, 10.1), 0);
    EXPECT_DOUBLE_EQ(meter.rate(1000, 11), 1000);
    for (int second = 12; second <= 20; ++second)
        meter.rate(1000 + 2000 * static_cast<std::uint64_t>(second - 11), second);
    EXPECT_DOUBLE_EQ(meter.rate(21000, 21), 2000);
    EXPECT_EQ(meter.rate(5, 22), 0);  // another attempt, from the start
}

/// A run of three requests by hand.
struct ControllerLiveModel : testing::Test {
    ResultTable table{{{"a||A", "CVE-1"}, {"b||B", "CVE-2"}, {"c||C", "CCE-3"}}};
    LiveModel model{3, [](const Result& result) { return result.value == 5 ? "broken" : ""; }};
    ProgressMap progress;

    void step(double time, const std::string& key, ProgressValue value) {
        progress[key] = value;
        const auto changes = table.apply(progress);
        model.changed(table, changes, time);
    }
    std::vector<std::string> shown(double time, std::size_t rows = 9,
                                   const agent::DownloadSnapshot& download = {}) {
        std::vector<std::string> all;
        const LiveView view = model.view(table, time, rows, download);
        for (const LiveRow& row : view.rows)
            all.push_back(row.name + ' ' + row.state);
        if (view.moreWaiting > 0) all.push_back("+" + std::to_string(view.moreWaiting));
        return all;
    }
    std::vector<std::string> settled(double time, bool atEnd = false) {
        std::vector<std::string> all;
        for (const LiveRow& row : model.takeSettled(table, time, atEnd))
            all.push_back(row.name + ' ' + row.state + ' ' + durationText(row.seconds) + ' ' + row.reason);
        return all;
    }
};

TEST_F(ControllerLiveModel, SettlesWhatHasComeToRest) {
    step(0, "b||B", 1);
    EXPECT_THAT(shown(0), ElementsAre("B downloading", "A queued", "C queued"));
    EXPECT_THAT(shown(0, 1), ElementsAre("B downloading", "+2"));
    step(1, "b||B", 4);
    EXPECT_THAT(settled(1.1), ElementsAre());
    step(1.2, "b||B", 1);  // its next ERI
    EXPECT_THAT(settled(9), ElementsAre());
    step(10, "b||B", 5);
    EXPECT_THAT(shown(10), ElementsAre("B failed", "A queued", "C queued"));
    EXPECT_THAT(settled(11), ElementsAre("B failed 10 s broken"));
    EXPECT_THAT(settled(12), ElementsAre());
    EXPECT_THAT(shown(12), ElementsAre("A queued", "C queued"));
    step(13, "b||B", 13);  // a cancel of the whole run replaces some results
    step(13, "c||C", 13);
    EXPECT_THAT(settled(13, true), ElementsAre("B aborted 0.0 s ", "C aborted 0.0 s "));
}

TEST_F(ControllerLiveModel, ShowsTheDownloadWithTheRequestThatWaitsForIt) {
    step(0, "a||A", 3);
    step(0, "b||B", 1);
    agent::DownloadSnapshot download{true, "b.zip", 100, 1000, {}};
    model.view(table, 0, 9, download);
    download.bytesDone = 600;
    const LiveView view = model.view(table, 1, 9, download);
    EXPECT_FALSE(view.rows[0].transfer);
    ASSERT_TRUE(view.rows[1].transfer);
    EXPECT_EQ(view.rows[1].transfer->done, 600U);
    EXPECT_DOUBLE_EQ(view.rows[1].transfer->rate, 500);
    download.resource = "c.zip";
    EXPECT_EQ(model.view(table, 2, 9, download).rows[1].transfer->rate, 0);
    EXPECT_EQ(view.done, 0U);
    EXPECT_EQ(view.total, 3U);
}

}  // namespace
}  // namespace zelor::controller

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/thread/thread.hpp>
#include <random>
#include <regex>
#include <thread>

#include "agent/ContentCacheControl.h"
#include "agent/Prefetch.h"
#include "agent/content/PatchDigests.h"
#include "agent/download/ArchiveAhead.h"
#include "base/SystemRoot.h"
#include "collaborators/RemediationResourceDownloader.h"
#include "support/RepositoryServer.h"

namespace zelor::agent {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::IsEmpty;

/// Waits for it, up to ten seconds.
template <class Condition>
bool becomes(const Condition& condition) {
    const auto end = steady_clock::now() + std::chrono::seconds(10);
    while (!condition() && steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
}

struct ArchiveAheadOfNeedTest : testing::Test {
    test::TempDir root;
    test::RepositoryServer server;
    std::string installPath = root / "opt";

    ArchiveAheadOfNeedTest() {
        setSystemRoot(root.path().string());
        test::writeFile(root / "etc/zelor/zelor.ini", "[Repository]\nUrl = " + server.url() + "\n");
        startNewRun();
    }
    ~ArchiveAheadOfNeedTest() override { archiveAheadAt(installPath).join(); }

    /// Publishes an archive; content says that it is of `wanted`, if that is not empty.
    std::string publish(const std::string& stem, const std::string& bytes, const std::string& wanted) {
        server.publish("patches/" + stem + ".zip", bytes);
        Sha256 sha256;
        sha256.add(wanted);
        std::optional<FileDigest> digest;
        if (!wanted.empty()) digest = sha256.finish();
        WantedPatches::instance().say({installPath, stem, "", ""}, {{stem + ".sh", {}, digest}});
        return stem;
    }
    void begin(const std::vector<std::string>& stems, std::uint64_t bytes = 1'000'000) {
        archiveAheadAt(installPath).begin(stems, {bytes});
    }
    /// As a run asks for it. The archive's bytes, "" without one.
    std::string get(const std::string& stem) {
        std::string path = root / ("content/" + stem + ".zip");
        const int result = RemediationResourceDownloader::GetInstance()->getResource(stem, path, ".sh",
                                                                                     installPath, false, 0);
        const std::string bytes = test::readFile(path);
        EXPECT_EQ(result == 0, !bytes.empty()) << stem;
        boost::filesystem::remove(path);
        return bytes;
    }
    /// The archives that the repository was asked for since the last call.
    std::vector<std::string> asked() {
        std::vector<std::string> stems;
        for (const auto& line : server.takeLog())
            stems.push_back(line.request.path.substr(9, line.request.path.size() - 13));
        return stems;
    }
    /// What lies in the directory.
    std::vector<std::string> names(const std::string& directory) const {
        std::vector<std::string> found;
        boost::system::error_code none;
        for (boost::filesystem::directory_iterator it(root / directory, none), end; it != end; ++it)
            found.push_back(it->path().filename().string());
        return found;
    }
    /// The log since the last call, without times.
    std::string takeLog() {
        const std::string path = root / "var/log/zelor/remediation.log";
        std::string lines =
            std::regex_replace(test::readFile(path).substr(logged_), std::regex("\n.{24}"), "\n");
        logged_ = test::readFile(path).size();
        return lines.substr(std::min<std::size_t>(lines.size(), 24));
    }

  private:
    std::size_t logged_ = 0;
};

TEST(AheadOfNeedRoom, IsWithinTheBudgetAndLeavesSpace) {
    constexpr std::uint64_t mib = 1U << 20U, much = 1U << 30U;
    const struct {
        std::uint64_t length;
        AheadUse use;
        std::uint64_t free;
        AheadRoom room;
    } rows[] = {
        {10 * mib, {}, much, AheadRoom::now},
        {101 * mib, {}, much, AheadRoom::never},
        {~std::uint64_t{0}, {}, much, AheadRoom::never},
        {10 * mib, {1, 90 * mib, 0}, much, AheadRoom::now},
        {10 * mib, {1, 91 * mib, 0}, much, AheadRoom::later},
        {10 * mib, {1, 200 * mib, 0}, much, AheadRoom::later},
        {1, {48, 48, 0}, much, AheadRoom::later},
        {10 * mib, {}, 532 * mib, AheadRoom::now},
        {10 * mib, {}, 532 * mib - 1, AheadRoom::later},
        {10 * mib, {1, 5 * mib, 5 * mib}, 532 * mib, AheadRoom::later},
        {1, {}, 0, AheadRoom::later},
    };
    for (const auto& row : rows)
        EXPECT_EQ(aheadRoom(row.length, row.use, {100 * mib}, row.free), row.room)
            << row.length << ' ' << row.use.bytes << ' ' << row.free;
}

TEST_F(ArchiveAheadOfNeedTest, ComesInOrderAsFarAsThereIsRoomAndOnlyOnce) {
    const std::string bytes(40'000, 'x');
    const std::string huge(300'000, 'x');
    std::vector<std::string> stems = {publish("huge", huge, huge)};
    for (const char* stem : {"a", "b", "c", "d", "e"})
        stems.push_back(publish(stem, bytes, bytes));
    std::atomic<std::uint64_t> free{0};
    ArchiveAhead& ahead = archiveAheadAt(installPath);
    ahead.begin(stems, {100'000, [&](const std::string&) { return free.load(); }});
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_THAT(asked(), IsEmpty()) << "without free space";
    free = 1U << 30U;
    ASSERT_TRUE(becomes([&] { return names("opt/partial").size() == 4; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_THAT(asked(), testing::UnorderedElementsAre("a", "b")) << "within the budget";
    EXPECT_EQ(get("huge"), huge);
    for (const char* stem : {"a", "b"})
        EXPECT_EQ(get(stem), bytes);
    ASSERT_TRUE(becomes([&] { return names("opt/partial").size() == 4; }));
    EXPECT_EQ(get("d"), bytes);
    ASSERT_TRUE(becomes([&] { return names("opt/partial").size() == 2; })) << "c is passed over";
    EXPECT_THAT(asked(), testing::UnorderedElementsAre("huge", "c", "d", "e"));
    EXPECT_EQ(get("e"), bytes);
    ahead.join();
    EXPECT_THAT(names("opt/partial"), IsEmpty());
}

TEST_F(ArchiveAheadOfNeedTest, WhateverComesEarlyEndsAsIfItCameNow) {
    const std::string good(50'000, 'g');
    const std::string bad(50'000, 'b');
    authoring::ServerFault drop, moved, missing, endless;
    drop.dropAfter = 20'000;
    moved.status = 302;
    moved.headers = {{"Location", "/patches/target.zip"}};
    missing.status = 404;
    endless.withoutLength = true;
    publish("target", good, good);
    const struct {
        const char* name;
        std::string bytes, wanted;
        authoring::ServerFault fault;
        int more;  ///< requests, for what is left to who asks
    } rows[] = {
        {"good", good, good, {}, 0},
        {"without digest", good, "", {}, 0},
        {"another", bad, good, {}, 0},
        {"shorter", bad.substr(1), good, {}, 0},
        {"longer", bad + "b", good, {}, 0},
        {"missing", good, good, missing, 0},
        {"dropped", good, good, drop, 0},
        {"moved", good, good, moved, 1},
        {"without length", good, "", endless, 1},
    };
    for (const auto& row : rows) {
        const std::string stem = publish("x", row.bytes, row.wanted);
        const auto always = [&](const authoring::ServerRequest& request, int number) {
            const bool first = row.fault.dropAfter && number != 0;
            return first || request.path != "/patches/x.zip" ? authoring::ServerFault() : row.fault;
        };
        server.onRequest(always);
        takeLog();
        const std::string late = get(stem);
        const std::string log = takeLog();
        const std::size_t requests = asked().size();
        server.onRequest(always);
        begin({stem});
        ASSERT_TRUE(becomes([&] { return server.answers() != 0; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(takeLog(), "") << row.name;
        EXPECT_EQ(get(stem), late) << row.name;
        EXPECT_EQ(takeLog(), log) << row.name;
        EXPECT_EQ(asked().size(), requests + static_cast<std::size_t>(row.more)) << row.name;
        EXPECT_THAT(names("opt/partial"), IsEmpty()) << row.name;
    }
}

TEST_F(ArchiveAheadOfNeedTest, AnOutageEndsItAndLeavesNothing) {
    std::vector<std::string> stems;
    for (int i = 0; i < 100; ++i)
        stems.push_back(publish("a" + std::to_string(i), "x", "x"));
    server.onRequest([](const authoring::ServerRequest&, int number) {
        authoring::ServerFault fault;
        if (number >= 10) fault.status = 503;
        return fault;
    });
    begin(stems);
    ASSERT_TRUE(becomes([&] { return server.answers() > 10 && names("opt/partial").size() == 2 * 10; }));
    EXPECT_LE(asked().size(), 10U + 16U);
    server.behave();
    for (const std::string& stem : {stems[0], stems[50]})
        EXPECT_EQ(get(stem), "x");
    archiveAheadAt(installPath).join();
    EXPECT_THAT(names("opt/partial"), IsEmpty());
}

/// One run's worth of announcements, questions and cancels in any order.
struct RandomCancels {
    const std::string installPath, content;
    const std::map<std::string, std::string>& archives;  ///< bytes by stem
    std::minstd_rand random;
    std::string problem{};

    unsigned below(unsigned end) { return static_cast<unsigned>(random() % end); }
    void pause(unsigned most) { std::this_thread::sleep_for(std::chrono::microseconds(below(most))); }

    void ask(const std::string& stem) {
        std::string path = content + "/" + stem + ".zip";
        int result = 0;
        const bool slow = below(8) == 0;
        boost::thread download([&] {
            result = RemediationResourceDownloader::GetInstance()->getResource(stem, path, ".sh", installPath,
                                                                               slow, 1'000'000);
        });
        const bool cancelled = below(2) == 0;
        if (cancelled) {
            pause(10'000);
            download.interrupt();
        }
        const auto start = steady_clock::now();
        download.join();
        // Not a second: what came is flushed, and others may keep the disk busy.
        if (steady_clock::now() - start > std::chrono::seconds(10)) problem = "too late";
        if (result == 0 ? test::readFile(path) != archives.at(stem) : !cancelled)
            problem = stem + " is not what it was";
        // What an interrupted download keeps is for the next one, as ever.
        for (const std::string& kept : {path, installPath + "/partial/" + stem + ".zip.part",
                                        installPath + "/partial/" + stem + ".zip.part.version"})
            boost::filesystem::remove(kept);
    }

    void run() {
        Prefetch prefetch(installPath);
        std::vector<NeededArchive> needed;
        for (const auto& archive : archives)
            needed.push_back({"key of " + archive.first, archive.first, ".sh"});
        prefetch.archivesNeeded(needed);
        for (unsigned steps = below(5); steps-- > 0;) {
            pause(4'000);
            const std::string& stem = needed[below(static_cast<unsigned>(needed.size()))].stem;
            below(2) == 0 ? prefetch.notNeeded("key of " + stem) : ask(stem);
        }
        if (below(2) == 0) prefetch.cancelled();
        if (below(2) == 0) prefetch.ended();
    }
};

TEST_F(ArchiveAheadOfNeedTest, AThousandCancelsAtRandomLeaveNothing) {
    const std::map<std::string, std::size_t> sizes = {{"a", 1},      {"b", 200},     {"c", 5'000},
                                                      {"d", 20'000}, {"e", 100'000}, {"f", 300'000}};
    std::map<std::string, std::string> archives;
    for (const auto& [stem, size] : sizes) {
        archives[stem] = std::string(size, stem.front());
        publish(stem, archives[stem], size % 3 == 0 ? "" : archives[stem]);
    }
    server.onRequest([](const authoring::ServerRequest&, int number) {
        authoring::ServerFault slow;
        if (number % 3 == 0) slow.bytesPerSecond = 1'000'000;
        return slow;
    });
    std::vector<std::unique_ptr<RandomCancels>> works;
    boost::thread_group threads;
    for (unsigned i = 0; i < 8; ++i) {
        const std::string number = std::to_string(i);
        works.push_back(std::make_unique<RandomCancels>(RandomCancels{
            root / ("opt-" + number), root / ("content-" + number), archives, std::minstd_rand(i + 1)}));
        threads.create_thread([work = works.back().get()] {
            for (int round = 0; round < 125 && work->problem.empty(); ++round)
                work->run();
        });
    }
    threads.join_all();
    for (unsigned i = 0; i < 8; ++i) {
        EXPECT_EQ(works[i]->problem, "") << "seed " << i + 1;
        for (const char* directory : {"opt-", "content-"})
            EXPECT_THAT(names(directory + std::to_string(i) + (directory[0] == 'o' ? "/partial" : "")),
                        IsEmpty());
    }
}

}  // namespace
}  // namespace zelor::agent

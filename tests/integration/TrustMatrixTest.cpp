#include <cstdio>

#include "tests/integration/TrustMatrix.h"

namespace zelor::test {
namespace {

TEST_P(TrustMatrix, OnlyAGoodArchiveWithAGoodSignatureIsRunOrCopied) {
    std::vector<Cell> refused, accepted;
    for (Cell& cell : cells())
        (cell.accepted() ? accepted : refused).push_back(std::move(cell));
    ASSERT_EQ(accepted.size(), 2 * kinds.size()) << "good, and good but for set-id bits";

    int survived = 0;
    const IntegrationFixture::Map results = run(refused);
    EXPECT_THAT(changes(before, snapshotOf(fixture.dir.path(), own)), testing::IsEmpty());
    EXPECT_TRUE(fs::is_empty(fixture.dir / "opt/partial"));
    EXPECT_EQ(fixture.record(), "");
    const std::vector<std::string> errors = errorLines();
    for (const Cell& cell : refused) {
        const bool held = results.at(cell.key()) == 12 && named(errors, cell);
        EXPECT_TRUE(held) << cell.stem() << " reads " << results.at(cell.key()) << ", wanted: " << cell.cause;
        survived += held ? 1 : 0;
    }

    for (const char* state : {"good", "setuid"}) {
        std::vector<Cell> now;
        std::copy_if(accepted.begin(), accepted.end(), std::back_inserter(now),
                     [&](const Cell& cell) { return cell.archiveState == state; });
        const IntegrationFixture::Map good = run(now);
        for (const Cell& cell : now) {
            const bool held = good.at(cell.key()) == 4 && fs::exists(cell.kind->mark);
            EXPECT_TRUE(held) << cell.stem() << " reads " << good.at(cell.key());
            survived += held ? 1 : 0;
            fs::remove(cell.kind->mark);
        }
    }
    for (const auto& entry : fs::recursive_directory_iterator(fixture.dir.path()))
        EXPECT_EQ(entry.status().permissions() & 06000, 0) << entry.path() << " kept a set-id bit";
    EXPECT_EQ(fixture.cameEarly >= 40, GetParam());
    std::printf("trust matrix: %zu tried, %d survived\n", refused.size() + accepted.size(), survived);
}

INSTANTIATE_TEST_SUITE_P(AheadOfNeed, TrustMatrix, testing::Bool());

}  // namespace
}  // namespace zelor::test

#include <gtest/gtest.h>

#include "agent/archive/ArchivePolicy.h"

namespace zelor::agent {
namespace {

TEST(ArchivePolicy, NamesStayBelowTheDestination) {
    ExtractionLimits limits;
    limits.nameLength = 20;
    struct Case {
        std::string name;
        bool good;
    };
    const Case cases[] = {
        {"a", true},
        {"a/b.pkg", true},
        {"./a//b/", true},
        {"..a/b..", true},
        {"...", true},
        {"a\\..\\b", true},
        {std::string(20, 'n'), true},
        {"", false},
        {"/a", false},
        {"//a", false},
        {"..", false},
        {"../a", false},
        {"a/../b", false},
        {"a/..", false},
        {"./../a", false},
        {"a/./..//b", false},
        {std::string(21, 'n'), false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(checkEntryName(c.name, limits).has_value(), c.good) << c.name;
    EXPECT_EQ(pathComponents("./a//b/./c/"), (std::vector<std::string>{"a", "b", "c"}));
}

TEST(ArchivePolicy, LinksLeadInside) {
    struct Case {
        const char* link;
        std::string target;
        bool good;
    };
    const Case cases[] = {
        {"l", "a", true},
        {"l", "./a/b", true},
        {"l", ".", true},
        {"d/l", "../a", true},
        {"d/l", "..", true},
        {"d/e/l", "../../a", true},
        {"d/l", "..a/b", true},
        {"l", "", false},
        {"l", "/etc/passwd", false},
        {"l", "..", false},
        {"l", "../a", false},
        {"d/l", "../../a", false},
        {"d/l", "./.././../a", false},
        // The directory may itself be a link, and ".." starts from its target.
        {"l", "d/..", false},
        {"d/l", "../e/../../a", false},
        {"l", std::string(5000, 'n'), false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(checkLinkTarget(pathComponents(c.link), c.target, {}).has_value(), c.good)
            << c.link << " -> " << c.target;
    }
}

TEST(ArchivePolicy, TheTightestRuleBoundsTheUnpackedSize) {
    ExtractionLimits limits;
    limits.unpackedBytes = 1000000;
    limits.freeMargin = 100;
    limits.ratio = 10;
    limits.ratioAllowance = 5;
    constexpr std::uint64_t kHuge = ~0ULL;
    EXPECT_EQ(unpackedAllowance(kHuge, kHuge, limits).bytes, 1000000U);
    EXPECT_EQ(unpackedAllowance(7, kHuge, limits).bytes, 75U);
    EXPECT_EQ(unpackedAllowance(100, 300, limits).bytes, 200U);
    EXPECT_EQ(unpackedAllowance(100, 99, limits).bytes, 0U);
    EXPECT_NE(unpackedAllowance(7, kHuge, limits).rule, unpackedAllowance(100, 300, limits).rule);
}

}  // namespace
}  // namespace zelor::agent

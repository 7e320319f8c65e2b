#include <gtest/gtest.h>

#include "base/AccessList.h"

namespace zelor::base {
namespace {

TEST(AccessList, CountsWhatLetsOthersChange) {
    constexpr uid_t kSelf = 501;
    const AccessEntry denyAll{false, true, std::nullopt};  // as every home directory of a Mac has it
    const AccessEntry ours{true, true, kSelf};
    const AccessEntry roots{true, true, 0};
    const AccessEntry reader{true, false, 502};
    EXPECT_FALSE(othersMayChange({}, kSelf));
    EXPECT_FALSE(othersMayChange({denyAll, ours, roots, reader}, kSelf));
    EXPECT_TRUE(othersMayChange({ours, {true, true, 502}}, kSelf));
    EXPECT_TRUE(othersMayChange({{true, true, std::nullopt}}, kSelf)) << "a group, or everybody";
    EXPECT_TRUE(othersMayChange({denyAll, {true, true, 502}}, kSelf));
}

}  // namespace
}  // namespace zelor::base

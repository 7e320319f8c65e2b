#include <gtest/gtest.h>

#include "collaborators/Common.h"

TEST(Common, StripsOnlyTrailingSeparators) {
    EXPECT_EQ(Common::StripTrailingSeparators("/opt/zelor///"), "/opt/zelor");
    EXPECT_EQ(Common::StripTrailingSeparators("/opt//zelor"), "/opt//zelor");
    EXPECT_EQ(Common::StripTrailingSeparators("/"), "");
    EXPECT_EQ(Common::StripTrailingSeparators(""), "");
}

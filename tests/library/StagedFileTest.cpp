#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "base/Directories.h"
#include "base/StagedFile.h"
#include "support/TempDir.h"

namespace zelor::base {
namespace {

namespace fs = boost::filesystem;
using testing::ElementsAre;

struct StagedFileTest : testing::Test {
    test::TempDir dir;

    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const fs::directory_entry& entry : fs::directory_iterator(dir.path()))
            found.push_back(entry.path().filename().string());
        return found;
    }
};

TEST_F(StagedFileTest, AppearsCompleteOrNotAtAll) {
    test::writeFile(dir / "file", "old");
    test::writeFile(dir / "file.new", "left by a crash, and longer");
    {
        StagedFile abandoned(dir / "file", ".new", 0640);
        abandoned.write("half");
    }
    EXPECT_EQ(test::readFile(dir / "file"), "old");
    EXPECT_THAT(names(), ElementsAre("file"));

    StagedFile replaced(dir / "file", ".new", 0640);
    replaced.write("new");
    replaced.commit();
    struct stat info {};
    ASSERT_EQ(::stat((dir / "file").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0640U);
    EXPECT_EQ(test::readFile(dir / "file"), "new");
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(StagedFileTest, LeavesNothingWhenItCannotBeRenamed) {
    test::writeFile(dir / "taken/inner", "a directory in the file's place");
    const UniqueFd directory = openFile(dir.path().string(), O_RDONLY | O_DIRECTORY);
    EXPECT_THROW(replaceFileIn(directory, "taken", dir / "taken", "text"), std::runtime_error);
    EXPECT_THROW(replaceFile(dir / "taken", "text"), std::runtime_error);
    EXPECT_THAT(names(), ElementsAre("taken"));
}

TEST_F(StagedFileTest, ALinkUnderTheOtherNameIsNotFollowed) {
    test::writeFile(dir / "victim", "untouched");
    fs::create_symlink(dir / "victim", dir / "file.new");
    replaceFileIn(openFile(dir.path().string(), O_RDONLY | O_DIRECTORY), "file", dir / "file", "text");
    EXPECT_EQ(test::readFile(dir / "victim"), "untouched");
    EXPECT_EQ(test::readFile(dir / "file"), "text");
}

TEST(TemporaryDirectoryTest, IsRemovedWithWhatCannotBeWrittenTo) {
    std::string path;
    {
        const TemporaryDirectory directory("zelor-test");
        path = directory.path();
        test::writeFile(path + "/locked/inner", "text");
        fs::permissions(path + "/locked", fs::owner_read);
    }
    EXPECT_FALSE(fs::exists(path));
}

}  // namespace
}  // namespace zelor::base

#include "server-linux/sam_file.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace velmora;
using namespace velmora::ServerHelper;
using velmora::test::TempHome;

TEST(SamFile, PrivateFileInPrivateFolderGoneAfterwards) {
    TempHome home;
    std::string folder;
    {
        SamFile sam(SamLogin{"anna", "b39a61f16a4e11fa80580241f1d4aae8"}, home.path());
        ASSERT_TRUE(sam.valid());
        folder = sam.folder();
        EXPECT_EQ(folder.rfind(home.path() + "/", 0), 0u);
        struct stat info{};
        ASSERT_EQ(::stat(folder.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0700u);
        ASSERT_EQ(::stat(sam.path().c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0600u);
        EXPECT_EQ(test::readFile(sam.path()), samFileText(SamLogin{"anna", "b39a61f16a4e11fa80580241f1d4aae8"}));
    }
    EXPECT_FALSE(test::fileExists(folder));

    // A parent that can't take the folder gives no file and leaves nothing behind.
    SamFile nowhere(SamLogin{"anna", "b39a61f16a4e11fa80580241f1d4aae8"}, home.path() + "/missing");
    EXPECT_FALSE(nowhere.valid());
}

TEST(SamFile, ParentFolderPrefersTheRuntimeFolder) {
    TempHome home;
    EXPECT_EQ(samParentFolder({{"XDG_RUNTIME_DIR", home.path()}, {"TMPDIR", "/var/tmp"}}), home.path());
    EXPECT_EQ(samParentFolder({{"XDG_RUNTIME_DIR", home.path() + "/gone"}, {"TMPDIR", home.path()}}), home.path());
    EXPECT_EQ(samParentFolder({{"XDG_RUNTIME_DIR", "relative"}}), "/tmp");
    EXPECT_EQ(samParentFolder({}), "/tmp");
}

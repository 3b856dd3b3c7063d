#include <gtest/gtest.h>

#include "host/FolderItem.h"

TEST(FolderItemTest, APathKeepsTheSlashThatIsAllOfIt) {
    EXPECT_EQ(host::FolderItem("/").ShellPath().bytes(), "/");
}

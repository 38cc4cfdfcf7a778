#include "Foundation/VKFileSystem.h"

#include "VKTestSupport.h"

#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>
#include <unistd.h>

TEST(VKFileSystem, ExistenceFollowsLinksAndTellsFolders)
{
    VKTempDir dir;
    const QString file = dir.writeFile("a.dpx", "12345");
    const QString folder = dir.makeDir("sub");
    bool isDirectory = true;
    EXPECT_TRUE(VKFileSystem::fileExistsAtPath(file, &isDirectory));
    EXPECT_FALSE(isDirectory);
    EXPECT_TRUE(VKFileSystem::fileExistsAtPath(folder, &isDirectory));
    EXPECT_TRUE(isDirectory);
    EXPECT_FALSE(VKFileSystem::fileExistsAtPath(dir.filePath("missing"), &isDirectory));
    EXPECT_FALSE(isDirectory);
    EXPECT_FALSE(VKFileSystem::fileExistsAtPath(""));
    ASSERT_TRUE(QFile::link(dir.filePath("nowhere"), dir.filePath("dangling")));
    EXPECT_FALSE(VKFileSystem::fileExistsAtPath(dir.filePath("dangling")));
}

TEST(VKFileSystem, SizeIsTheDataOfRegularFilesOnly)
{
    VKTempDir dir;
    const QString file = dir.writeFile("frame 0001.dpx", QByteArray(70000, 'x'));
    EXPECT_EQ(VKFileSystem::filesizeCFI(file), 70000);
    EXPECT_EQ(VKFileSystem::filesizeCFI(dir.writeFile("empty")), 0);
    ASSERT_TRUE(QFile::link(file, dir.filePath("link")));
    EXPECT_EQ(VKFileSystem::filesizeCFI(dir.filePath("link")), 70000);

    VKError error;
    EXPECT_EQ(VKFileSystem::filesizeCFI(dir.path(), &error), 0);
    EXPECT_TRUE(error.isNull());
    EXPECT_EQ(VKFileSystem::filesizeCFI(dir.filePath("missing"), &error), 0);
    EXPECT_FALSE(error.isNull());
    EXPECT_TRUE(error.localizedDescription().contains(dir.filePath("missing")));
}

TEST(VKFileSystem, ListingGivesNamesOrAnError)
{
    VKTempDir dir;
    dir.writeFile("b.dpx");
    dir.writeFile(".hidden");
    dir.makeDir("sub");
    dir.writeFile(QString::fromUtf8("caf\xc3\xa9 01.exr"));
    std::optional<QStringList> names = VKFileSystem::contentsOfDirectoryAtPath(dir.path());
    ASSERT_TRUE(names.has_value());
    std::sort(names->begin(), names->end());
    EXPECT_EQ(*names, (QStringList{".hidden", "b.dpx", QString::fromUtf8("caf\xc3\xa9 01.exr"),
                                   "sub"}));
    EXPECT_EQ(VKFileSystem::contentsOfDirectoryAtPath(dir.filePath("sub")), QStringList{});

    for (const QString &path : {dir.filePath("missing"), dir.filePath("b.dpx")}) {
        VKError error;
        EXPECT_FALSE(VKFileSystem::contentsOfDirectoryAtPath(path, &error));
        EXPECT_FALSE(error.isNull()) << path;
    }
    EXPECT_FALSE(VKFileSystem::contentsOfDirectoryAtPath(""));
    if (::geteuid() != 0) { // permissions do not stop the super-user
        const QString locked = dir.makeDir("locked");
        QFile::setPermissions(locked, {});
        EXPECT_FALSE(VKFileSystem::contentsOfDirectoryAtPath(locked));
        QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
}

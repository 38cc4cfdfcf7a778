#include "Foundation/VKDate.h"
#include "Foundation/VKPath.h"

#include <QDir>

#include <gtest/gtest.h>

#include <cstdlib>

using L = QStringList;

TEST(VKPath, ComponentsKeepRootAndTrailingSlash)
{
    EXPECT_EQ(VKPath::pathComponents("/Volumes/A"), (L{"/", "Volumes", "A"}));
    EXPECT_EQ(VKPath::pathComponents("/Volumes/A/"), (L{"/", "Volumes", "A", "/"}));
    EXPECT_EQ(VKPath::pathComponents("/"), (L{"/"}));
    EXPECT_EQ(VKPath::pathComponents("a//b"), (L{"a", "b"}));
    EXPECT_EQ(VKPath::pathComponents("//a"), (L{"/", "a"}));
    EXPECT_EQ(VKPath::pathComponents(""), L{});
    EXPECT_EQ(VKPath::pathComponents("~"), (L{"~"}));
    EXPECT_EQ(VKPath::pathWithComponents({"/", "Volumes", "A"}), QStringLiteral("/Volumes/A"));
    EXPECT_EQ(VKPath::pathWithComponents({"a", "b", "/"}), QStringLiteral("a/b"));
}

TEST(VKPath, LastComponentAndDeletingIt)
{
    EXPECT_EQ(VKPath::lastPathComponent("/tmp/scratch.tiff"), QStringLiteral("scratch.tiff"));
    EXPECT_EQ(VKPath::lastPathComponent("/Volumes/A/"), QStringLiteral("A"));
    EXPECT_EQ(VKPath::lastPathComponent("/"), QStringLiteral("/"));
    EXPECT_EQ(VKPath::lastPathComponent("a//b"), QStringLiteral("b"));
    EXPECT_EQ(VKPath::lastPathComponent(""), QStringLiteral(""));
    EXPECT_EQ(VKPath::lastPathComponent("~"), QStringLiteral("~"));
    EXPECT_EQ(VKPath::deletingLastPathComponent("/tmp/scratch.tiff"), QStringLiteral("/tmp"));
    EXPECT_EQ(VKPath::deletingLastPathComponent("/Volumes/A/"), QStringLiteral("/Volumes"));
    EXPECT_EQ(VKPath::deletingLastPathComponent("/tmp"), QStringLiteral("/"));
    EXPECT_EQ(VKPath::deletingLastPathComponent("/"), QStringLiteral("/"));
    EXPECT_EQ(VKPath::deletingLastPathComponent("a//b"), QStringLiteral("a"));
    EXPECT_EQ(VKPath::deletingLastPathComponent("scratch.tiff"), QStringLiteral(""));
    EXPECT_EQ(VKPath::deletingLastPathComponent(""), QStringLiteral(""));
}

TEST(VKPath, ExtensionsWithSeveralDots)
{
    EXPECT_EQ(VKPath::pathExtension("clip.0001.dpx"), QStringLiteral("dpx"));
    EXPECT_EQ(VKPath::pathExtension("/tmp/scratch..tiff"), QStringLiteral("tiff"));
    EXPECT_EQ(VKPath::pathExtension(".profile"), QStringLiteral(""));
    EXPECT_EQ(VKPath::pathExtension("/a.b/c"), QStringLiteral(""));
    EXPECT_EQ(VKPath::pathExtension("/tmp/x.mov/"), QStringLiteral("mov"));
    EXPECT_EQ(VKPath::pathExtension(""), QStringLiteral(""));
    EXPECT_EQ(VKPath::pathExtension("/"), QStringLiteral(""));
    EXPECT_EQ(VKPath::deletingPathExtension("clip.0001.dpx"), QStringLiteral("clip.0001"));
    EXPECT_EQ(VKPath::deletingPathExtension("scratch..tiff"), QStringLiteral("scratch."));
    EXPECT_EQ(VKPath::deletingPathExtension(".tiff"), QStringLiteral(".tiff"));
    EXPECT_EQ(VKPath::deletingPathExtension("/tmp/"), QStringLiteral("/tmp"));
    EXPECT_EQ(VKPath::deletingPathExtension("/"), QStringLiteral("/"));
    EXPECT_EQ(VKPath::appendingPathExtension("a", "txt"), QStringLiteral("a.txt"));
}

TEST(VKPath, AppendingComponents)
{
    EXPECT_EQ(VKPath::appendingPathComponent("/tmp", "scratch.tiff"), QStringLiteral("/tmp/scratch.tiff"));
    EXPECT_EQ(VKPath::appendingPathComponent("/tmp/", "scratch.tiff"), QStringLiteral("/tmp/scratch.tiff"));
    EXPECT_EQ(VKPath::appendingPathComponent("/", "a"), QStringLiteral("/a"));
    EXPECT_EQ(VKPath::appendingPathComponent("", "a"), QStringLiteral("a"));
    EXPECT_EQ(VKPath::appendingPathComponent("/tmp", ""), QStringLiteral("/tmp"));
    EXPECT_EQ(VKPath::appendingPathComponent("a//b", "c/"), QStringLiteral("a/b/c"));
}

TEST(VKPath, TildeAndUserFolders)
{
    const QString home = VKPath::homeDirectory();
    EXPECT_EQ(VKPath::expandingTildeInPath("~"), home);
    EXPECT_EQ(VKPath::expandingTildeInPath("~/"), home);
    EXPECT_EQ(VKPath::expandingTildeInPath("~/Movies//a"), home + "/Movies/a");
    EXPECT_EQ(VKPath::expandingTildeInPath("~root/x"), QStringLiteral("/root/x"));
    EXPECT_EQ(VKPath::expandingTildeInPath("~no-such-user-here/x"), QStringLiteral("~no-such-user-here/x"));
    EXPECT_EQ(VKPath::expandingTildeInPath("/a~"), QStringLiteral("/a~"));
    EXPECT_EQ(VKPath::expandingTildeInPath(""), QStringLiteral(""));

    const QByteArray savedData = qgetenv("XDG_DATA_HOME");
    const QByteArray savedCache = qgetenv("XDG_CACHE_HOME");
    const QByteArray savedTmp = qgetenv("TMPDIR");
    qputenv("XDG_DATA_HOME", "/srv/data/");
    qputenv("XDG_CACHE_HOME", "relative/ignored");
    qputenv("TMPDIR", "/var/tmp//");
    EXPECT_EQ(VKPath::applicationSupportDirectory(), QStringLiteral("/srv/data"));
    EXPECT_EQ(VKPath::cachesDirectory(), home + "/.cache");
    EXPECT_EQ(VKPath::temporaryDirectory(), QStringLiteral("/var/tmp/"));
    qunsetenv("XDG_DATA_HOME");
    qunsetenv("TMPDIR");
    EXPECT_EQ(VKPath::applicationSupportDirectory(), home + "/.local/share");
    EXPECT_EQ(VKPath::temporaryDirectory(), QStringLiteral("/tmp/"));
    auto restore = [](const char *name, const QByteArray &value) {
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    };
    restore("XDG_DATA_HOME", savedData);
    restore("XDG_CACHE_HOME", savedCache);
    restore("TMPDIR", savedTmp);
}

TEST(VKDate, ReferenceDateConversions)
{
    const QDateTime ref = VKDate::referenceDate();
    EXPECT_EQ(ref.toString(Qt::ISODate), QStringLiteral("2001-01-01T00:00:00Z"));
    EXPECT_DOUBLE_EQ(VKDate::timeIntervalSince1970(ref), 978307200.0);
    EXPECT_DOUBLE_EQ(VKDate::timeIntervalSinceReferenceDate(ref), 0.0);
    const QDateTime d = VKDate::dateWithTimeIntervalSinceReferenceDate(-0.5);
    EXPECT_EQ(d.toString(Qt::ISODateWithMs), QStringLiteral("2000-12-31T23:59:59.500Z"));
    EXPECT_DOUBLE_EQ(VKDate::timeIntervalSinceReferenceDate(d), -0.5);
    EXPECT_EQ(VKDate::dateWithTimeIntervalSince1970(0).toString(Qt::ISODate), QStringLiteral("1970-01-01T00:00:00Z"));
    EXPECT_FALSE(VKDate::dateWithTimeIntervalSince1970(std::nan("")).isValid());
    EXPECT_DOUBLE_EQ(VKDate::timeIntervalBetween(ref.addSecs(90), ref), 90.0);
}

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

namespace {

struct PathCase
{
    const char *path;
    const char *expected;
};

void expectEach(QString (*function)(const QString &), std::initializer_list<PathCase> cases)
{
    for (const PathCase &c : cases)
        EXPECT_EQ(function(QString::fromUtf8(c.path)), QString::fromUtf8(c.expected)) << c.path;
}

} // namespace

TEST(VKPath, LastComponentExtensionAndDeletingThem)
{
    expectEach(VKPath::lastPathComponent, {{"/tmp/scratch.tiff", "scratch.tiff"},
                                           {"/Volumes/A/", "A"},
                                           {"/", "/"},
                                           {"a//b", "b"},
                                           {"", ""},
                                           {"~", "~"}});
    expectEach(VKPath::deletingLastPathComponent, {{"/tmp/scratch.tiff", "/tmp"},
                                                   {"/Volumes/A/", "/Volumes"},
                                                   {"/tmp", "/"},
                                                   {"/", "/"},
                                                   {"a//b", "a"},
                                                   {"scratch.tiff", ""},
                                                   {"", ""}});
    expectEach(VKPath::pathExtension, {{"clip.0001.dpx", "dpx"},
                                       {"/tmp/scratch..tiff", "tiff"},
                                       {".profile", ""},
                                       {"/a.b/c", ""},
                                       {"/tmp/x.mov/", "mov"},
                                       {"", ""},
                                       {"/", ""}});
    expectEach(VKPath::deletingPathExtension, {{"clip.0001.dpx", "clip.0001"},
                                               {"scratch..tiff", "scratch."},
                                               {".tiff", ".tiff"},
                                               {"/tmp/", "/tmp"},
                                               {"/", "/"}});
    EXPECT_EQ(VKPath::appendingPathExtension("a", "txt"), QStringLiteral("a.txt"));
    EXPECT_EQ(VKPath::appendingPathComponent("/tmp/", "scratch.tiff"), "/tmp/scratch.tiff");
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
    EXPECT_EQ(VKPath::expandingTildeInPath("~no-such-user-here/x"),
              QStringLiteral("~no-such-user-here/x"));
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
    EXPECT_EQ(VKDate::dateWithTimeIntervalSince1970(0).toString(Qt::ISODate),
              QStringLiteral("1970-01-01T00:00:00Z"));
    EXPECT_FALSE(VKDate::dateWithTimeIntervalSince1970(std::nan("")).isValid());
    EXPECT_DOUBLE_EQ(VKDate::timeIntervalBetween(ref.addSecs(90), ref), 90.0);
}

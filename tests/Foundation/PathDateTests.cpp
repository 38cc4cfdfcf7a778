#include "Foundation/VKDate.h"
#include "Foundation/VKPathString.h"
#include "Foundation/VKSearchPaths.h"

#include <QDir>

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

using L = QStringList;

namespace {

struct PathCase
{
    const char *path;
    QString expected;
};

void expectEach(const std::function<QString(const QString &)> &function, const char *name,
                std::initializer_list<PathCase> cases)
{
    for (const PathCase &c : cases)
        EXPECT_EQ(function(QString::fromUtf8(c.path)), c.expected) << name << "(" << c.path << ")";
}

} // namespace

TEST(VKPathString, ComponentsKeepRootAndTrailingSlash)
{
    // clang-format off
    const struct { const char *path; L components; } cases[] = {
        {"/Volumes/A", {"/", "Volumes", "A"}}, {"/Volumes/A/", {"/", "Volumes", "A", "/"}},
        {"/", {"/"}}, {"a//b", {"a", "b"}}, {"//a", {"/", "a"}}, {"", {}}, {"~", {"~"}},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(VKPathString::pathComponents(c.path), c.components) << c.path;
    EXPECT_EQ(VKPathString::pathWithComponents({"/", "Volumes", "A"}), QStringLiteral("/Volumes/A"));
    EXPECT_EQ(VKPathString::pathWithComponents({"a", "b", "/"}), QStringLiteral("a/b"));
}

TEST(VKPathString, LastComponentExtensionAndDeletingThem)
{
    // clang-format off
    expectEach(VKPathString::lastPathComponent, "last", {{"/tmp/scratch.tiff", "scratch.tiff"},
        {"/Volumes/A/", "A"}, {"/", "/"}, {"a//b", "b"}, {"", ""}, {"~", "~"}});
    expectEach(VKPathString::deletingLastPathComponent, "deletingLast", {{"/tmp/scratch.tiff", "/tmp"},
        {"/Volumes/A/", "/Volumes"}, {"/tmp", "/"}, {"/", "/"}, {"a//b", "a"}, {"scratch.tiff", ""},
        {"", ""}});
    expectEach(VKPathString::pathExtension, "extension", {{"clip.0001.dpx", "dpx"},
        {"/tmp/scratch..tiff", "tiff"}, {".profile", ""}, {"/a.b/c", ""}, {"/tmp/x.mov/", "mov"},
        {"", ""}, {"/", ""}});
    expectEach(VKPathString::deletingPathExtension, "deletingExtension", {{"clip.0001.dpx", "clip.0001"},
        {"scratch..tiff", "scratch."}, {".tiff", ".tiff"}, {"/tmp/", "/tmp"}, {"/", "/"}});
    const QString home = VKSearchPaths::homeDirectory();
    expectEach(VKPathString::expandingTildeInPath, "expandingTilde", {{"~", home}, {"~/", home},
        {"~/Movies//a", home + "/Movies/a"}, {"~root/x", "/root/x"},
        {"~no-such-user-here/x", "~no-such-user-here/x"}, {"/a~", "/a~"}, {"", ""}});
    // clang-format on
    EXPECT_EQ(VKPathString::appendingPathExtension("a", "txt"), QStringLiteral("a.txt"));
    const struct { const char *path, *component, *expected; } appended[] = {
        {"/tmp/", "scratch.tiff", "/tmp/scratch.tiff"}, {"/", "a", "/a"}, {"", "a", "a"},
        {"/tmp", "", "/tmp"}, {"a//b", "c/", "a/b/c"}};
    for (const auto &c : appended)
        EXPECT_EQ(VKPathString::appendingPathComponent(c.path, c.component), c.expected) << c.path;
}

TEST(VKSearchPaths, EnvironmentAndTestingRoot)
{
    const QString home = VKSearchPaths::homeDirectory();
    const char *names[] = {"XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME", "TMPDIR"};
    QByteArray saved[4];
    for (int i = 0; i < 4; ++i)
        saved[i] = qgetenv(names[i]);
    qputenv("XDG_DATA_HOME", "/srv/data/");
    qputenv("XDG_CACHE_HOME", "relative/ignored");
    qputenv("XDG_STATE_HOME", "/srv//state");
    qputenv("TMPDIR", "/var/tmp//");
    EXPECT_EQ(VKSearchPaths::applicationSupportDirectory(), "/srv/data");
    EXPECT_EQ(VKSearchPaths::cachesDirectory(), home + "/.cache");
    EXPECT_EQ(VKSearchPaths::temporaryDirectory(), "/var/tmp/");
    EXPECT_EQ(VKSearchPaths::libraryDirectory(VKSearchPathDomain::User), "/srv/state/Vessan");
    EXPECT_EQ(VKSearchPaths::libraryDirectories(7),
              QStringList({"/srv/state/Vessan", "/var/lib/Vessan"}));
    EXPECT_TRUE(VKSearchPaths::libraryDirectory(VKSearchPathDomain::Network).isNull());
    qunsetenv("XDG_DATA_HOME");
    qputenv("XDG_STATE_HOME", "");
    qunsetenv("TMPDIR");
    EXPECT_EQ(VKSearchPaths::applicationSupportDirectory(), home + "/.local/share");
    EXPECT_EQ(VKSearchPaths::libraryDirectory(VKSearchPathDomain::User),
              home + "/.local/state/Vessan");
    EXPECT_EQ(VKSearchPaths::temporaryDirectory(), "/tmp/");
    {
        VKSearchPaths::TestingRoot outer("/t/a/");
        {
            VKSearchPaths::TestingRoot inner("/t/b");
            EXPECT_EQ(VKSearchPaths::cachesDirectory(), "/t/b/home/.cache");
        }
        qputenv("XDG_DATA_HOME", "/srv/data");
        EXPECT_EQ(VKSearchPaths::applicationSupportDirectory(), "/t/a/home/.local/share");
        EXPECT_EQ(VKSearchPaths::temporaryDirectory(), "/t/a/home/tmp/");
        EXPECT_EQ(VKSearchPaths::libraryDirectories(3),
                  QStringList({"/t/a/home/.local/state/Vessan", "/t/a/var/lib/Vessan"}));
        EXPECT_EQ(VKPathString::expandingTildeInPath("~/x"), "/t/a/home/x");
    }
    EXPECT_EQ(VKSearchPaths::homeDirectory(), home);
    for (int i = 0; i < 4; ++i) {
        if (saved[i].isNull())
            qunsetenv(names[i]);
        else
            qputenv(names[i], saved[i]);
    }
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
              "1970-01-01T00:00:00Z");
    EXPECT_FALSE(VKDate::dateWithTimeIntervalSince1970(std::nan("")).isValid());
    EXPECT_EQ(VKDate::dateWithTimeIntervalSince1970(-0.0006).toMSecsSinceEpoch(), -1); // rounded
    EXPECT_DOUBLE_EQ(VKDate::timeIntervalBetween(ref.addSecs(90), ref), 90.0);
}

#include "Diagnostics/VKZipArchive.h"

#include "ReporterTestSupport.h"

#include <QDateTime>

TEST(VKUserCard, NamesFromGecos)
{
    struct Case
    {
        const char *name;
        QString gecos;
        QString login;
        QString first;
        QString last;
    } cases[] = {
        {"first and last", "Ada Lovelace,,,", "ada", "Ada", "Lovelace"},
        {"empty field: no names", "", "x", QString(), QString()},
        {"only commas: no names", ",,,", "x", QString(), QString()},
        {"one word: first name only", "Cher", "cher", "Cher", QString()},
        {"middle names go with the last", "John Ronald Reuel Tolkien", "j", "John",
         "Ronald Reuel Tolkien"},
        {"blanks collapsed", "  Grace   Hopper ,room 1", "g", "Grace", "Hopper"},
        {"ampersand is the login, capitalised", "& Doe", "jane", "Jane", "Doe"},
    };
    for (const Case &c : cases) {
        const VKUserCard card = VKUserCard::cardFromGecos(c.gecos, c.login);
        EXPECT_EQ(card.firstName, c.first) << c.name;
        EXPECT_EQ(card.lastName, c.last) << c.name;
        EXPECT_EQ(card.firstName.isNull(), c.first.isNull()) << c.name;
        EXPECT_EQ(card.lastName.isNull(), c.last.isNull()) << c.name;
    }
}

// What goes into an archive is read back through the reports sent; here, what keeps it out.
TEST(VKZipArchive, AnythingButReadableFilesLeavesNoArchive)
{
    VKTempDir dir;
    const QString a = dir.writeFile("one/a.crash", "alpha\n");
    const QString target = dir.filePath("bad.zip");
    struct Failure
    {
        const char *name;
        QString archive;
        QString path;
    } failures[] = {{"missing file", target, dir.filePath("nothing.log")},
                    {"a folder", target, dir.filePath("one")},
                    {"no folder for the archive", dir.filePath("no/such/x.zip"), a}};
    for (const Failure &f : failures) {
        QString why;
        EXPECT_FALSE(VKZipArchive::createZipFileAtPath(f.archive, {a, f.path}, &why)) << f.name;
        EXPECT_FALSE(why.isEmpty()) << f.name;
        EXPECT_FALSE(QFile::exists(f.archive)) << f.name << ": no half archive left";
    }
}

TEST(VKCrashReporterGathering, HardwareProfileFromTheProfilerProgram)
{
    ReporterEnvironment env;
    auto reporter = VKCrashReporter::crashReporter();
    ASSERT_TRUE(reporter);
    const QString target = VKSearchPaths::temporaryDirectory() + "system_profile.spx";
    struct Case
    {
        const char *name;
        QString program;
        QStringList arguments;
        QByteArray expected; // empty: no profile
    } cases[] = {
        {"output written",
         "/bin/sh",
         {"-c", "printf '<node id=\"x\"/>'; echo noise >&2"},
         "<node id=\"x\"/>"},
        {"non-zero exit", "/bin/sh", {"-c", "printf partial; exit 3"}, {}},
        {"missing program", "/nonexistent/lshw", {"-xml"}, {}},
        {"killed by a signal", "/bin/sh", {"-c", "kill -9 $$"}, {}},
    };
    for (const Case &c : cases) {
        QFile::remove(target);
        VKCrashReporter::setSystemProfilerCommand(c.program, c.arguments);
        const QStringList paths = reporter->systemProfilePaths();
        EXPECT_EQ(paths, c.expected.isEmpty() ? QStringList() : QStringList{target}) << c.name;
        EXPECT_EQ(paths.isEmpty() ? QByteArray() : VKReportServerProcess::read(target), c.expected)
            << c.name;
    }
}

TEST(VKCrashReporterGathering, OldJournalMessagesGoToTheLog)
{
    if (systemdJournalRemote().isEmpty())
        GTEST_SKIP() << "systemd-journal-remote is not installed (package systemd-journal-remote)";
    ReporterEnvironment env;
    auto reporter = VKCrashReporter::crashReporter();
    ASSERT_TRUE(reporter);
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    const QString id = "com.example.ReporterHost";
    ASSERT_TRUE(writeJournal(VKJournalSearch::journalDirectory(),
                             {{now - 3 * 86400, id, "three days old"},
                              {now - 7200, id, "two hours old"},
                              {now - 3600, id, "within the second read last"},
                              {now - 3000, id, "Unable to simultaneously satisfy constraints: x"},
                              {now - 60, id, "a minute old"},
                              {now - 30, "com.example.Other", "not ours"}}));
    const QStringList dayOld = {"OldLog: two hours old", "OldLog: within the second read last",
                                "OldLog: a minute old"};
    struct Case
    {
        const char *name;
        QVariant stored;
        QStringList expected;
    } cases[] = {
        {"nothing stored: one day back", QVariant(), dayOld},
        {"older than a day: one day back", QString("12345"), dayOld},
        {"an hour ago: later seconds only", QString::number(now - 3600), {"OldLog: a minute old"}},
        {"lenient text", QString::number(now - 3600) + "abc", {"OldLog: a minute old"}},
        {"up to date", QString::number(now), {}},
    };
    for (const Case &c : cases) {
        env.defaults()->setObject(c.stored, "lastLogReadingTime");
        VKLogCapture capture;
        reporter->logOldLogStatementsFromConsole();
        EXPECT_EQ(capture.messages(), c.expected) << c.name;
        const qint64 stored = env.defaults()->stringForKey("lastLogReadingTime").toLongLong();
        EXPECT_GE(stored, now) << c.name;
        EXPECT_LE(stored, QDateTime::currentSecsSinceEpoch()) << c.name;
    }
}

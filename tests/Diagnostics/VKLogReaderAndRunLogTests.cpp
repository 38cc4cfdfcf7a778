#include "Diagnostics/VKCrashLogReader.h"
#include "Diagnostics/VKCrashReportReader.h"
#include "Diagnostics/VKFileCreationDate.h"
#include "Diagnostics/VKRunLog.h"
#include "Diagnostics/VKRunLogReader.h"
#include "Diagnostics/VKSystemLogReader.h"
#include "Foundation/VKException.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKUserDefaults.h"

#include "VKTestSupport.h"

#include <QFile>

#include <gtest/gtest.h>

namespace {

// A private "Library" tree and defaults store for each test.
class LogReaderTest : public ::testing::Test
{
protected:
    VKTempDir tree;
    VKTempDir prefs;
    VKSearchPaths::TestingRoot root{tree.path()};

    void SetUp() override { VKUserDefaults::setStandardUserDefaultsFolder(prefs.path()); }
    void TearDown() override
    {
        VKUserDefaults::setStandardUserDefaultsFolder(QString());
        VKSystemLogReader::setLogFolderForTesting(QString());
    }
    QString user(const QString &sub) const
    {
        return VKSearchPaths::libraryDirectory(VKSearchPathDomain::User) + "/" + sub;
    }
    QString local(const QString &sub) const
    {
        return VKSearchPaths::libraryDirectory(VKSearchPathDomain::Local) + "/" + sub;
    }
};

} // namespace

TEST_F(LogReaderTest, MatchingRulesPerReader)
{
    const QString reports = user("Logs/DiagnosticReports");
    const QString runs = local("Logs/Vessan");
    for (const char *name : {"MyApp_2014-01-02-101010_host.crash", "MyApp.hang", "myapp.crash",
                             "MyApp_x.ips", "MyApp_x.spin", "Other.crash"})
        vkWriteFile(reports + "/" + name, "log\n");
    for (const char *name : {"MyApp_1.vqnLog", "MyApp_2.vqnlog", "MyApp_3.vqnLog.gz", "MyApp"})
        vkWriteFile(runs + "/" + name, "log\n");
    const QString var = tree.makeDir("varlog");
    for (const char *name : {"system.log", "system.log.0.gz", "system", "syslog", "System.log"})
        vkWriteFile(var + "/" + name, "log\n");
    VKSystemLogReader::setLogFolderForTesting(var);

    struct Case
    {
        const char *name;
        QStringList got;
        QStringList expected;
    } cases[] = {
        {"crash log reader: prefix is case-sensitive, any extension",
         VKCrashLogReader("MyApp", {}).allLogFilePaths(),
         {reports + "/MyApp_2014-01-02-101010_host.crash", reports + "/MyApp.hang",
          reports + "/MyApp_x.ips", reports + "/MyApp_x.spin"}},
        {"crash report reader: only .crash and .hang",
         VKCrashReportReader("MyApp", {}, false).unsentCrashLogFilePathsInDirectory(reports),
         {reports + "/MyApp_2014-01-02-101010_host.crash", reports + "/MyApp.hang"}},
        {"run log reader: exact extension, local folder",
         VKRunLogReader("MyApp", {}).allLogFilePaths(),
         {runs + "/MyApp_1.vqnLog"}},
        {"system log reader: every system* entry",
         VKSystemLogReader({}).allLogFilePaths(),
         {var + "/system.log", var + "/system.log.0.gz", var + "/system"}},
    };
    for (const Case &c : cases) // in any order
        EXPECT_EQ(QSet<QString>(c.got.cbegin(), c.got.cend()),
                  QSet<QString>(c.expected.cbegin(), c.expected.cend()))
            << c.name;
    EXPECT_EQ(VKSystemLogReader({}).applicationName(), "system");
}

TEST_F(LogReaderTest, CreationDateBoundaryAndSentLists)
{
    const QString reports = user("Logs/DiagnosticReports");
    const QString before = vkWriteFile(reports + "/MyApp_a.crash", "log\n");
    const auto earliest = VKFileCreationDate::creationDate(before);
    if (!earliest)
        GTEST_SKIP() << "this file system keeps no birth times";
    // Wait on the clock, not a sleep, so the next file is born a millisecond later at least.
    ASSERT_TRUE(
        vkWaitUntil([&] { return QDateTime::currentDateTimeUtc() > earliest->addMSecs(2); }));
    const QString after = vkWriteFile(reports + "/MyApp_b.crash", "log\n");
    ASSERT_GT(*VKFileCreationDate::creationDate(after), *earliest);

    VKCrashLogReader first("MyApp", *earliest);
    EXPECT_EQ(first.unsentLogFilePaths(), QStringList{after}) << "born exactly at the date";
    EXPECT_EQ(VKCrashLogReader("MyApp", {}).unsentLogFilePaths().size(), 2) << "no date";
    EXPECT_FALSE(first.sentLogFilePaths());
    EXPECT_EQ(first.recentLogString(), "log\n");
    first.markUnsentLogsAsSent();
    EXPECT_TRUE(first.unsentLogFilePaths().isEmpty());
    EXPECT_TRUE(first.recentLogString().isNull());

    // A second reader, then a restart, see the same list; the crash report reader shares it.
    VKCrashLogReader second("MyApp", {});
    EXPECT_EQ(second.unsentLogFilePaths(), QStringList{before});
    VKUserDefaults::resetStandardUserDefaults();
    EXPECT_EQ(*second.sentLogFilePaths(), QStringList{after});
    VKCrashReportReader reports2("MyApp", {}, false);
    EXPECT_EQ(reports2.unsentCrashLogFilePathsInDirectory(reports), QStringList{before});

    const QString newer = vkWriteFile(reports + "/MyApp_c.crash", "log\n");
    EXPECT_EQ(first.unsentLogFilePaths(), QStringList{newer});
    // Run logs keep their own list.
    EXPECT_FALSE(VKRunLogReader("MyApp", {}).sentLogFilePaths());
}

TEST_F(LogReaderTest, BadSentListsAndFoldersLoseNothing)
{
    const QString reports = user("Logs/DiagnosticReports");
    const QString a = vkWriteFile(reports + "/MyApp_a.crash", "log\n");
    auto defaults = VKUserDefaults::standardUserDefaults();
    defaults->setObject(QVariantList{42, a, QVariantMap{{"k", 1}}}, kVKSentCrashLogFilePaths);
    VKCrashLogReader reader("MyApp", {});
    EXPECT_TRUE(reader.unsentLogFilePaths().isEmpty()) << "the string member still counts";
    const QString b = vkWriteFile(reports + "/MyApp_b.crash", "log\n");
    reader.markUnsentLogsAsSent();
    const QVariantList stored = defaults->arrayForKey(kVKSentCrashLogFilePaths);
    EXPECT_EQ(stored.size(), 4);
    EXPECT_TRUE(stored.contains(42) && stored.contains(b));

    defaults->setObject(QString("not a list"), "SentRunLogFilePaths");
    vkWriteFile(user("Logs/Vessan/MyApp.vqnLog"), "log\n");
    VKRunLogReader runs("MyApp", {});
    EXPECT_EQ(runs.unsentLogFilePaths().size(), 1);

    // A report folder that is a file, and one that does not exist, contribute nothing.
    QDir(user("Logs")).removeRecursively();
    vkWriteFile(user("Logs/DiagnosticReports"), "log\n");
    EXPECT_TRUE(reader.allLogFilePaths().isEmpty());
    EXPECT_TRUE(VKCrashReportReader("MyApp", {}, false).combinedCrashLogString().isNull());
}

TEST_F(LogReaderTest, CombinedTextOrderAndJunk)
{
    const QString u = user("Logs/DiagnosticReports");
    const QString l = local("Logs/DiagnosticReports");
    vkWriteFile(u + "/MyApp_2014-01-01.crash", "January\n");
    vkWriteFile(l + "/MyApp_2014-02-01.crash", "February\n");
    vkWriteFile(u + "/MyApp_junk.hang", QByteArray("\xff\xfe\x00\x80junk", 8));
    VKCrashReportReader reader("MyApp", {}, false);
    EXPECT_TRUE(VKCrashReportReader(QString(), {}, false).combinedCrashLogString().isNull());
    const QString text = reader.combinedCrashLogString();
    // Paths sort by their folders first: the local tree's path is under var/, after home/.
    EXPECT_EQ(text, "<crash_logs app_name:\"MyApp\">\n<crashLog>\nFebruary\n</crashLog>\n"
                    "<crashLog>\nJanuary\n</crashLog>\n</crash_logs>\n\n\n");
    EXPECT_EQ(reader.crashLogFilePaths().size(), 3) << "the unreadable report counts as gathered";
    reader.markCrashLogsAsSent();
    EXPECT_TRUE(reader.combinedCrashLogString().isNull());
    EXPECT_EQ(reader.crashLogFilePaths().size(), 3) << "kept when nothing new";
}

TEST(VKCrashLogReaderStrip, Sections)
{
    struct Case
    {
        const char *name;
        QString in;
        QString out;
    } cases[] = {
        {"null", QString(), QString()},
        {"none", "Thread 0\n", "Thread 0\n"},
        {"description header first", "a\nBinary Images Description:\n0x1 x\n\nb\n", "a\nb\n"},
        {"plain header, lower case", "a\nbinary images:\n0x1\n0x2\n\nb\n", "a\nb\n"},
        {"every section", "BINARY IMAGES:\nx\n\nmid\nBinary Images:\ny\n\nend", "mid\nend"},
    };
    for (const Case &c : cases) {
        const QString got = VKCrashLogReader::stripBinaryImages(c.in);
        EXPECT_EQ(got, c.out) << c.name;
        EXPECT_EQ(got.isNull(), c.out.isNull()) << c.name;
    }
    EXPECT_TRUE(vkRaisedBy([] {
                    (void)VKCrashReportReader::stripBinaryImages("a\nBinary Images:\n0x1 x\n");
                }).startsWith(VKRangeException + '|'))
        << "no blank line after the header";
}

TEST_F(LogReaderTest, HugeLogReadWithinTheLimit)
{
    QFile f(vkWriteFile(user("Logs/Vessan/MyApp_big.vqnLog"), "log\n"));
    ASSERT_TRUE(f.open(QIODevice::ReadWrite));
    ASSERT_TRUE(f.resize(200LL << 20)); // sparse: no 200 MB on disk
    f.seek(f.size() - 11);
    f.write("\nlast line\n");
    f.close();
    VKRunLogReader reader("MyApp", {});
    EXPECT_EQ(reader.allLogFilePaths().size(), 1) << "listing reads nothing";
    reader.setMaximumLogStringSize(1 << 20);
    EXPECT_EQ(reader.recentLogString(), "last line\n");
}

TEST(VKRunLog, RunLogFileNames)
{
    const struct
    {
        const char *name;
        const char *file;
        bool expected;
    } cases[] = {
        {"without process number", "Grade_2014-01-02-101010.vqnLog", true},
        {"with process number", "Grade_2014-01-02-101010_4711.vqnLog", true},
        {"other extension", "Grade_2014-01-02-101010.log", false},
        {"longer application name", "GradeX_2014-01-02-101010.vqnLog", false},
        {"case differs", "grade_2014-01-02-101010.vqnLog", false},
        {"short date", "Grade_2014-01-02-1010.vqnLog", false},
        {"empty process number", "Grade_2014-01-02-101010_.vqnLog", false},
        {"notes", "Grade_notes.vqnLog", false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(VKRunLog::isRunLogFileName(c.file, "Grade"), c.expected) << c.name;
    const QDateTime t0(QDate(2014, 1, 2), QTime(10, 10, 10), Qt::UTC);
    EXPECT_EQ(VKRunLog::runLogFileName("MyApp", t0.toOffsetFromUtc(3600)),
              "MyApp_2014-01-02-101010.vqnLog");
}

// Both ways of starting a run keep the last few runs, oldest out first, and leave other files
// (notes, another application's runs) alone; the reader then finds the newest run.
TEST_F(LogReaderTest, StartingARunKeepsTheLastRunsAndFeedsTheReader)
{
    const QString folder = VKRunLog::runLogDirectory();
    for (const char *other :
         {"Run Tool_2014-01-01-000000_12.vqnLog", "Run Tool_2014-01-02-000000.vqnLog",
          "Run Tool_notes.vqnLog", "Run ToolX_2014-01-01-000000.vqnLog"})
        vkWriteFile(folder + "/" + other);

    const QDateTime t0(QDate(2014, 1, 3), QTime(10, 10, 10), Qt::UTC);
    for (int run = 0; run < 3; ++run)
        vkWriteFile(VKRunLog::prepareRunLogFile("Run Tool", t0.addSecs(run * 3600), 3),
                    "run " + QByteArray::number(run) + "\n");
    EXPECT_EQ(QDir(folder).entryList(QDir::Files, QDir::Name),
              QStringList({"Run ToolX_2014-01-01-000000.vqnLog",
                           "Run Tool_2014-01-03-101010.vqnLog", "Run Tool_2014-01-03-111010.vqnLog",
                           "Run Tool_2014-01-03-121010.vqnLog", "Run Tool_notes.vqnLog"}));
    EXPECT_EQ(VKRunLogReader("Run Tool_2014", {}).recentLogString(), "run 2\n");

    const auto sink = VKRunLog::startRunLog("Run Tool", 3);
    ASSERT_TRUE(sink);
    EXPECT_EQ(VKRunLog::startRunLog("Run Tool", 3), sink) << "one run log per process";
    EXPECT_EQ(QDir(folder).entryList(QDir::Files, QDir::Name).count(), 4) << "two runs stay";
    {
        VKLogCapture capture; // replaces the sinks while alive
        VKLogger::shared().addSink(sink);
        VKLogger::info({"VKRunLogTest", "-[VKRunLogTest run]", nullptr}, "written by run %d", 3);
    }
    VKRunLog::stopRunLog();
    VKLogger::info({"VKRunLogTest", "-[VKRunLogTest run]", nullptr}, "after the stop");

    ASSERT_TRUE(QFile::exists(sink->filePath())) << sink->errorString();
    EXPECT_TRUE(VKRunLog::isRunLogFileName(QFileInfo(sink->filePath()).fileName(), "Run Tool"));
    const QString text = VKRunLogReader("Run Tool_2", {}).recentLogString();
    EXPECT_TRUE(text.contains("-[VKRunLogTest run] VKRunLogTest ") &&
                text.endsWith(": written by run 3\n"))
        << text;
    EXPECT_FALSE(text.contains("after the stop"));
    EXPECT_NE(VKRunLog::startRunLog("Run Tool", 3), sink) << "a new run after the stop";
    VKRunLog::stopRunLog();
}

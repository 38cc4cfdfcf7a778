#include "Diagnostics/VKRunLog.h"
#include "Diagnostics/VKRunLogReader.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKUserDefaults.h"

#include "VKTestSupport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

TEST(VKRunLog, OneFilePerRunLastFewKept)
{
    VKTempDir tree, prefs;
    VKSearchPaths::TestingRoot root(tree.path());
    VKUserDefaults::setStandardUserDefaultsFolder(prefs.path());
    const QDateTime t0(QDate(2014, 1, 2), QTime(10, 10, 10), Qt::UTC);
    EXPECT_EQ(VKRunLog::runLogFileName("MyApp", t0), "MyApp_2014-01-02-101010.vqnLog");

    const QString folder = VKRunLog::runLogDirectory();
    ASSERT_TRUE(QDir().mkpath(folder));
    for (const char *other : {"MyApp_notes.vqnLog", "MyAppX_2014-01-01-000000.vqnLog"})
        QFile(folder + "/" + other).open(QIODevice::WriteOnly);

    QStringList made;
    for (int run = 0; run < 5; ++run) {
        const QString path = VKRunLog::prepareRunLogFile("MyApp", t0.addSecs(run * 3600), 3);
        ASSERT_FALSE(path.isNull());
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(QByteArray("run ") + QByteArray::number(run) + "\n");
        made << path;
    }
    QStringList left = QDir(folder).entryList(QDir::Files, QDir::Name);
    EXPECT_EQ(left, QStringList({"MyAppX_2014-01-01-000000.vqnLog",
                                 "MyApp_2014-01-02-121010.vqnLog", "MyApp_2014-01-02-131010.vqnLog",
                                 "MyApp_2014-01-02-141010.vqnLog", "MyApp_notes.vqnLog"}))
        << "oldest runs go; other files stay";

    VKRunLogReader reader("MyApp_2014", {});
    EXPECT_EQ(reader.recentLogString(), "run 4\n") << "the newest run sorts last";
    VKUserDefaults::setStandardUserDefaultsFolder(QString());
}

TEST(VKRunLog, RunLogFileNames)
{
    struct Case
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
    for (const Case &c : cases)
        EXPECT_EQ(VKRunLog::isRunLogFileName(c.file, "Grade"), c.expected) << c.name;
}

TEST(VKRunLog, StartingTheRunLogKeepsTheLastRunsAndFeedsTheReader)
{
    VKTempDir tree, prefs;
    VKSearchPaths::TestingRoot root(tree.path());
    VKUserDefaults::setStandardUserDefaultsFolder(prefs.path());
    const QString folder = VKRunLog::runLogDirectory();
    ASSERT_TRUE(QDir().mkpath(folder));
    for (const char *old :
         {"Run Tool_2014-01-01-000000_12.vqnLog", "Run Tool_2014-01-02-000000.vqnLog",
          "Run Tool_2014-01-03-000000_7.vqnLog", "Run Tool_notes.vqnLog"})
        QFile(folder + "/" + old).open(QIODevice::WriteOnly);

    const auto sink = VKRunLog::startRunLog("Run Tool", 3);
    ASSERT_TRUE(sink);
    EXPECT_EQ(VKRunLog::startRunLog("Run Tool", 3), sink) << "one run log per process";
    EXPECT_EQ(QDir(folder).entryList(QDir::Files, QDir::Name),
              QStringList({"Run Tool_2014-01-02-000000.vqnLog",
                           "Run Tool_2014-01-03-000000_7.vqnLog", "Run Tool_notes.vqnLog"}))
        << "two old runs stay beside this one";
    {
        VKLogCapture capture; // replaces the sinks while alive
        VKLogger::shared().addSink(sink);
        VKLogger::info({"VKRunLogTest", "-[VKRunLogTest run]", nullptr}, "written by run %d", 3);
    }
    VKRunLog::stopRunLog();
    VKLogger::info({"VKRunLogTest", "-[VKRunLogTest run]", nullptr}, "after the stop");

    ASSERT_TRUE(QFile::exists(sink->filePath())) << sink->errorString();
    EXPECT_TRUE(VKRunLog::isRunLogFileName(QFileInfo(sink->filePath()).fileName(), "Run Tool"));
    VKRunLogReader reader("Run Tool_2", {}); // the notes file would sort last
    const QString text = reader.recentLogString();
    EXPECT_TRUE(text.contains("-[VKRunLogTest run] VKRunLogTest ") &&
                text.endsWith(": written by run 3\n"))
        << text;
    EXPECT_FALSE(text.contains("after the stop"));
    EXPECT_NE(VKRunLog::startRunLog("Run Tool", 3), sink) << "a new run after the stop";
    VKRunLog::stopRunLog();
    VKUserDefaults::setStandardUserDefaultsFolder(QString());
}

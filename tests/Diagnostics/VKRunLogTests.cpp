#include "Diagnostics/VKRunLog.h"
#include "Diagnostics/VKRunLogReader.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKUserDefaults.h"

#include "VKTestSupport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

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
TEST(VKRunLog, StartingARunKeepsTheLastRunsAndFeedsTheReader)
{
    VKTempDir tree, prefs;
    VKSearchPaths::TestingRoot root(tree.path());
    VKUserDefaults::setStandardUserDefaultsFolder(prefs.path());
    const QString folder = VKRunLog::runLogDirectory();
    ASSERT_TRUE(QDir().mkpath(folder));
    for (const char *other :
         {"Run Tool_2014-01-01-000000_12.vqnLog", "Run Tool_2014-01-02-000000.vqnLog",
          "Run Tool_notes.vqnLog", "Run ToolX_2014-01-01-000000.vqnLog"})
        QFile(folder + "/" + other).open(QIODevice::WriteOnly);

    const QDateTime t0(QDate(2014, 1, 3), QTime(10, 10, 10), Qt::UTC);
    for (int run = 0; run < 3; ++run) {
        QFile f(VKRunLog::prepareRunLogFile("Run Tool", t0.addSecs(run * 3600), 3));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(QByteArray("run ") + QByteArray::number(run) + "\n");
    }
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
    VKUserDefaults::setStandardUserDefaultsFolder(QString());
}

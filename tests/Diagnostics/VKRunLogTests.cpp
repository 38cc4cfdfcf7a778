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

#include "Timing/VQTimeEvent.h"
#include "Timing/VQTimeRecorder.h"
#include "Timing/VQTiming.h"

#include "VKTestSupport.h"

#include <QFile>
#include <QVariant>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono;

// 2024-03-05 06:07:08 UTC.
const VQMoment kBase{seconds(1709618828)};

// A clock the test moves by hand, in milliseconds after kBase.
struct ManualClock
{
    std::shared_ptr<std::atomic<qint64>> ms = std::make_shared<std::atomic<qint64>>(0);
    VQClock clock() const
    {
        return [ms = ms] { return kBase + milliseconds(ms->load()); };
    }
    void at(qint64 value) const { ms->store(value); }
};

QString readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("<missing>");
    return QString::fromUtf8(file.readAll());
}

// Index 1, 2 and 3 of "render" started, 1 and 3 stopped; "load" as a sequence with one stop;
// a stop without a start and a start without a stop.
void recordScene(VQTiming &timing, const ManualClock &clock)
{
    clock.at(0);
    timing.startTiming(QStringLiteral("render"), 1);
    clock.at(100);
    timing.startTiming(QStringLiteral("render"), 2);
    clock.at(200);
    timing.startTiming(QStringLiteral("render"), 3);
    clock.at(450);
    timing.stopTiming(QStringLiteral("render"), 3);
    clock.at(500);
    timing.stopTiming(QStringLiteral("render"), 1);
    clock.at(1000);
    timing.startTiming(QStringLiteral("load"));
    clock.at(1500);
    timing.stopTiming(QStringLiteral("load"));
    clock.at(2000);
    timing.startTiming(QStringLiteral("load"));
    timing.stopTiming(QStringLiteral("orphanStop"), 1);
    timing.startTiming(QStringLiteral("orphanStart"), 1);
}

const QString kRule = QString(40, u'=');

QString statisticsText(int loadCalls, int renderCalls)
{
    return QStringLiteral("\n") + kRule + QStringLiteral("\nStatistics:\n") + kRule +
           QStringLiteral("\nload\n# of Calls:\t %1\t\tavgTime:\t 0.500000\t\tmaxTime:\t "
                          "0.500000\t\tminTime:\t 0.500000\n")
               .arg(loadCalls) +
           QString(38, u'-') +
           QStringLiteral("\nrender\n# of Calls:\t %1\t\tavgTime:\t 0.375000\t\tmaxTime:\t "
                          "0.500000\t\tminTime:\t 0.250000\n")
               .arg(renderCalls) +
           QString(38, u'-') + u'\n' + kRule + u'\n';
}

} // namespace

TEST(VQTiming, SharedTimerIsSwitchedOff)
{
    EXPECT_EQ(VQTiming::sharedTimer(), nullptr);
}

TEST(VQTiming, StatisticsTextAndItsAccumulation)
{
    ManualClock clock;
    VQTiming timing(clock.clock());
    recordScene(timing, clock);
    EXPECT_EQ(timing.statistics(), statisticsText(1, 2));
    // Every call folds the pairs again.
    EXPECT_EQ(timing.statistics(), statisticsText(2, 4));

    VQTiming empty;
    EXPECT_EQ(empty.statistics(), QStringLiteral("\n") + kRule + QStringLiteral("\nStatistics:\n") +
                                      kRule + u'\n' + kRule + u'\n');
}

TEST(VQTiming, FoldingAndRestarts)
{
    VQTiming timing;
    timing.addElapsedTime(2.0, QStringLiteral("a"));
    timing.addElapsedTime(-1.0, QStringLiteral("a"));
    timing.addElapsedTime(5.0, QStringLiteral("a"));
    const QString text = timing.statistics();
    EXPECT_TRUE(text.contains(QStringLiteral("a\n# of Calls:\t 3\t\tavgTime:\t 2.000000\t\t"
                                             "maxTime:\t 5.000000\t\tminTime:\t -1.000000\n")))
        << text.toStdString();

    // A second start at the same index replaces the first.
    ManualClock clock;
    VQTiming restarted(clock.clock());
    restarted.startTiming(QStringLiteral("x"), 7);
    clock.at(300);
    restarted.startTiming(QStringLiteral("x"), 7.0); // the same index as a double
    clock.at(400);
    restarted.stopTiming(QStringLiteral("x"), 7);
    EXPECT_TRUE(restarted.statistics().contains(QStringLiteral(
        "# of Calls:\t 1\t\tavgTime:\t 0.100000\t\tmaxTime:\t 0.100000\t\tminTime:\t 0.100000")));
}

TEST(VQTiming, PerEventCSV)
{
    ManualClock clock;
    VQTiming timing(clock.clock());
    recordScene(timing, clock);
    VKTempDir dir;
    const QString path = dir.filePath(QStringLiteral("events.csv"));
    timing.saveCSVToFileAtPath(path);
    EXPECT_EQ(readFile(path), QStringLiteral("identifier,index,duration,startDate\n"
                                             "render,1,0.500000,2024-03-05T06:07:08.000000Z\n"
                                             "render,3,0.250000,2024-03-05T06:07:08.200000Z\n"));

    // Parsed back: durations are the stop minus the start date.
    const QStringList lines = readFile(path).split(u'\n', Qt::SkipEmptyParts);
    for (const QString &line : lines.mid(1)) {
        const QStringList fields = line.split(u',');
        ASSERT_EQ(fields.size(), 4);
        const QDateTime start = QDateTime::fromString(fields[3], Qt::ISODateWithMs);
        ASSERT_TRUE(start.isValid()) << fields[3].toStdString();
        const qint64 stopMs = fields[1] == QStringLiteral("1") ? 500 : 450;
        EXPECT_DOUBLE_EQ(fields[2].toDouble(),
                         (stopMs - (start.toMSecsSinceEpoch() - 1709618828000)) / 1000.0);
    }

    // A folder in the way: nothing written, the failure logged.
    VKLogCapture log;
    timing.saveCSVToFileAtPath(dir.makeDir(QStringLiteral("folder")));
    ASSERT_EQ(log.entries().size(), 1);
    EXPECT_EQ(log.entries().first().prettyFunctionOutput,
              QStringLiteral("-[VQTiming saveCSVToFileAtPath:]"));
}

TEST(VQTiming, FrameIndexCSV)
{
    ManualClock clock;
    VQTiming timing(clock.clock());
    recordScene(timing, clock);
    // "write" has index 2 and 10 but not 3; "render" has 1 and 3. Indexes sort as numbers.
    clock.at(3000);
    timing.startTiming(QStringLiteral("write"), 10);
    timing.startTiming(QStringLiteral("write"), 2);
    clock.at(3125);
    timing.stopTiming(QStringLiteral("write"), 10);
    clock.at(3250);
    timing.stopTiming(QStringLiteral("write"), 2);

    VKTempDir dir;
    const QString path = dir.filePath(QStringLiteral("frames.csv"));
    timing.saveFrameIndexBasedCSVToFileAtPath(path);
    const QString expected =
        QStringLiteral("index,load-duration,orphanStart-duration,render-duration,write-duration\n"
                       "1,0.0,0.0,0.5,0.0\n"
                       "2,0.0,0.0,0.0,0.25\n"
                       "3,0.0,0.0,0.25,0.0\n"
                       "10,0.0,0.0,0.0,0.125\n");
    EXPECT_EQ(readFile(path), expected);

    // Parsed back: one column per identifier, every cell a number.
    const QStringList lines = readFile(path).split(u'\n', Qt::SkipEmptyParts);
    const qsizetype columns = lines.first().split(u',').size();
    for (const QString &line : lines.mid(1)) {
        const QStringList cells = line.split(u',');
        ASSERT_EQ(cells.size(), columns);
        for (const QString &cell : cells) {
            bool ok = false;
            cell.toDouble(&ok);
            EXPECT_TRUE(ok) << cell.toStdString();
        }
    }
}

TEST(VQTiming, ConcurrentStartsAndStops)
{
    VQTiming timing;
    constexpr int kThreads = 8;
    constexpr int kPerThread = 500;
    std::atomic<bool> done{false};
    VKTempDir dir;
    // A reader writing files while the timers run.
    std::thread reader([&] {
        while (!done.load())
            timing.saveFrameIndexBasedCSVToFileAtPath(dir.filePath(QStringLiteral("live.csv")));
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&timing, t] {
            for (int i = 0; i < kPerThread; ++i) {
                const int index = t * kPerThread + i;
                timing.startTiming(QStringLiteral("frame"), index);
                timing.startTiming(QStringLiteral("tick"));
                timing.stopTiming(QStringLiteral("tick"));
                timing.stopTiming(QStringLiteral("frame"), index);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    done.store(true);
    reader.join();

    const QString text = timing.statistics();
    const QString calls = QStringLiteral("\n# of Calls:\t %1\t\t").arg(kThreads * kPerThread);
    EXPECT_TRUE(text.contains(QStringLiteral("frame") + calls)) << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("tick") + calls)) << text.toStdString();

    const QString path = dir.filePath(QStringLiteral("all.csv"));
    timing.saveCSVToFileAtPath(path);
    EXPECT_EQ(readFile(path).count(u'\n'), 1 + kThreads * kPerThread);
}

TEST(VQTimeRecorder, WritesItsFileUnderTmp)
{
    ManualClock clock;
    VQTimeRecorder::removeAllEvents();
    VQTimeRecorder::setClock(clock.clock());
    clock.at(0);
    VQTimeRecorder::addEventWithType(QStringLiteral("launch"));
    clock.at(1250);
    VQTimeRecorder::addEventWithType(QStringLiteral("first frame"));
    clock.at(2000);
    VQTimeRecorder::saveCsv();

    const QString path = QStringLiteral("/tmp/stats-2024-03-05T06:07:10.000000Z.csv");
    const QString text = readFile(path);
    QFile::remove(path);
    EXPECT_EQ(text, QStringLiteral("Timestamp,Event\n"
                                   "731311628.000000,launch\n"
                                   "731311629.250000,first frame\n"));

    // Saving keeps the list; the events' accessors work on shared events.
    const auto events = VQTimeRecorder::events();
    ASSERT_EQ(events.size(), 2);
    EXPECT_EQ(events[1]->type(), QStringLiteral("first frame"));
    EXPECT_EQ(events[1]->date(), kBase + milliseconds(1250));
    events[0]->setType(QStringLiteral("start"));
    EXPECT_EQ(VQTimeRecorder::events()[0]->type(), QStringLiteral("start"));

    VQTimeRecorder::setClock(nullptr);
    VQTimeRecorder::removeAllEvents();
}

TEST(VQTiming, DateText)
{
    struct DateCase
    {
        const char *name;
        VQMoment moment;
        const char *text;
    } cases[] = {
        {"whole", kBase, "2024-03-05T06:07:08.000000Z"},
        {"micro", kBase + microseconds(7), "2024-03-05T06:07:08.000007Z"},
        {"nanoCut", kBase + nanoseconds(999), "2024-03-05T06:07:08.000000Z"},
        {"before1970", VQMoment(microseconds(-1)), "1969-12-31T23:59:59.999999Z"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(VQDateText(c.moment), QLatin1String(c.text));
    }
}

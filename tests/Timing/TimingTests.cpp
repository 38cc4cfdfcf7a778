#include "Timing/VQTimeEvent.h"
#include "Timing/VQTimeRecorder.h"
#include "Timing/VQTiming.h"

#include "VKTestSupport.h"

#include <QFile>

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
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : "<missing>";
}

// Index 1, 2 and 3 of "render" started, 1 and 3 stopped; "load" as a sequence with one stop;
// a stop without a start and a start without a stop.
void recordScene(VQTiming &timing, const ManualClock &clock)
{
    // clang-format off
    const struct { qint64 ms; bool start; const char *name; int index; } steps[] = {
        {0, true, "render", 1}, {100, true, "render", 2}, {200, true, "render", 3},
        {450, false, "render", 3}, {500, false, "render", 1}, {1000, true, "load", 0 /* none */},
        {1500, false, "load", 0}, {2000, true, "load", 0}, {2000, false, "orphanStop", 1},
        {2000, true, "orphanStart", 1}};
    // clang-format on
    for (const auto &step : steps) {
        clock.at(step.ms);
        const QString name = QString::fromLatin1(step.name);
        if (step.index && step.start)
            timing.startTiming(name, step.index);
        else if (step.index)
            timing.stopTiming(name, step.index);
        else if (step.start)
            timing.startTiming(name);
        else
            timing.stopTiming(name);
    }
}

const QString kRule = QString(40, u'=');

QString callsLine(int calls, const char *avg, const char *max, const char *min)
{
    return QStringLiteral("\n# of Calls:\t %1\t\tavgTime:\t %2\t\tmaxTime:\t %3\t\tminTime:\t %4\n")
        .arg(calls)
        .arg(avg, max, min);
}

} // namespace

TEST(VQTiming, StatisticsTextFoldingAndRestarts)
{
    EXPECT_EQ(VQTiming::sharedTimer(), nullptr);
    ManualClock clock;
    VQTiming timing(clock.clock());
    recordScene(timing, clock);
    const QString head = "\n" + kRule + "\nStatistics:\n" + kRule;
    for (int pass = 1; pass <= 2; ++pass) // every call folds the pairs again
        EXPECT_EQ(timing.statistics(),
                  head + "\nload" + callsLine(pass, "0.500000", "0.500000", "0.500000") + QString(38, u'-') +
                      "\nrender" + callsLine(2 * pass, "0.375000", "0.500000", "0.250000") +
                      QString(38, u'-') + "\n" + kRule + "\n");
    EXPECT_EQ(VQTiming().statistics(), head + "\n" + kRule + "\n");

    VQTiming added;
    for (double seconds : {2.0, -1.0, 5.0})
        added.addElapsedTime(seconds, QStringLiteral("a"));
    EXPECT_TRUE(added.statistics().contains("a" + callsLine(3, "2.000000", "5.000000", "-1.000000")));

    // A second start at the same index (here given as a double) replaces the first.
    VQTiming restarted(clock.clock());
    clock.at(0);
    restarted.startTiming(QStringLiteral("x"), 7);
    clock.at(300);
    restarted.startTiming(QStringLiteral("x"), 7.0);
    clock.at(400);
    restarted.stopTiming(QStringLiteral("x"), 7);
    EXPECT_TRUE(restarted.statistics().contains(callsLine(1, "0.100000", "0.100000", "0.100000")));
}

TEST(VQTiming, PerEventAndFrameIndexCSV)
{
    ManualClock clock;
    VQTiming timing(clock.clock());
    recordScene(timing, clock);
    VKTempDir dir;
    const QString events = dir.filePath(QStringLiteral("events.csv"));
    timing.saveCSVToFileAtPath(events);
    EXPECT_EQ(readFile(events), "identifier,index,duration,startDate\n"
                                "render,1,0.500000,2024-03-05T06:07:08.000000Z\n"
                                "render,3,0.250000,2024-03-05T06:07:08.200000Z\n");

    // "write" has index 2 and 10 but not 3; "render" has 1 and 3. Indexes sort as numbers.
    clock.at(3000);
    timing.startTiming(QStringLiteral("write"), 10);
    timing.startTiming(QStringLiteral("write"), 2);
    clock.at(3125);
    timing.stopTiming(QStringLiteral("write"), 10);
    clock.at(3250);
    timing.stopTiming(QStringLiteral("write"), 2);
    const QString frames = dir.filePath(QStringLiteral("frames.csv"));
    timing.saveFrameIndexBasedCSVToFileAtPath(frames);
    EXPECT_EQ(readFile(frames),
              "index,load-duration,orphanStart-duration,render-duration,write-duration\n"
              "1,0.0,0.0,0.5,0.0\n2,0.0,0.0,0.0,0.25\n3,0.0,0.0,0.25,0.0\n10,0.0,0.0,0.0,0.125\n");

    // A folder in the way: nothing written, the failure logged.
    VKLogCapture log;
    timing.saveCSVToFileAtPath(dir.makeDir(QStringLiteral("folder")));
    ASSERT_EQ(log.entries().size(), 1);
    EXPECT_EQ(log.entries().first().prettyFunctionOutput, "-[VQTiming saveCSVToFileAtPath:]");
}

TEST(VQTiming, ConcurrentStartsAndStops)
{
    VQTiming timing;
    constexpr int kThreads = 8, kPerThread = 500;
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
                timing.startTiming(QStringLiteral("frame"), t * kPerThread + i);
                timing.startTiming(QStringLiteral("tick"));
                timing.stopTiming(QStringLiteral("tick"));
                timing.stopTiming(QStringLiteral("frame"), t * kPerThread + i);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    done.store(true);
    reader.join();
    const QString text = timing.statistics();
    const QString calls = QStringLiteral("\n# of Calls:\t %1\t\t").arg(kThreads * kPerThread);
    EXPECT_TRUE(text.contains("frame" + calls) && text.contains("tick" + calls)) << text;
    timing.saveCSVToFileAtPath(dir.filePath(QStringLiteral("all.csv")));
    EXPECT_EQ(readFile(dir.filePath(QStringLiteral("all.csv"))).count(u'\n'), 1 + kThreads * kPerThread);
}

TEST(VQTimeRecorder, WritesItsFileUnderTmp)
{
    ManualClock clock;
    VQTimeRecorder::removeAllEvents();
    VQTimeRecorder::setClock(clock.clock());
    VQTimeRecorder::addEventWithType(QStringLiteral("launch"));
    clock.at(1250);
    VQTimeRecorder::addEventWithType(QStringLiteral("first frame"));
    clock.at(2000);
    VQTimeRecorder::saveCsv();
    const QString path = QStringLiteral("/tmp/stats-2024-03-05T06:07:10.000000Z.csv");
    const QString text = readFile(path);
    QFile::remove(path);
    EXPECT_EQ(text, "Timestamp,Event\n731311628.000000,launch\n731311629.250000,first frame\n");

    // Saving keeps the list; the events' accessors work on shared events.
    const auto events = VQTimeRecorder::events();
    ASSERT_EQ(events.size(), 2);
    EXPECT_EQ(events[1]->date(), kBase + milliseconds(1250));
    events[0]->setType(QStringLiteral("start"));
    EXPECT_EQ(VQTimeRecorder::events()[0]->type(), QStringLiteral("start"));
    VQTimeRecorder::setClock(nullptr);
    VQTimeRecorder::removeAllEvents();

    // Dates: microseconds, nanoseconds cut, before 1970.
    EXPECT_EQ(VQDateText(kBase + microseconds(7)), u"2024-03-05T06:07:08.000007Z");
    EXPECT_EQ(VQDateText(kBase + nanoseconds(999)), u"2024-03-05T06:07:08.000000Z");
    EXPECT_EQ(VQDateText(VQMoment(microseconds(-1))), u"1969-12-31T23:59:59.999999Z");
}

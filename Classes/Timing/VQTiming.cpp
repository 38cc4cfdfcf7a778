// State: three dictionaries keyed by identifier: start records, stop records, statistics. A
// record is indexed (index -> moment) or a sequence (moments in call order), fixed by the first
// call for its identifier.
// Locking: mTimerLock (recursive) guards all three for every public operation, so timers may be
// started and stopped from any thread while another thread asks for statistics or writes a file.
// Invariant: a record's kind never changes once made.
#include "Timing/VQTiming.h"

#include "Foundation/VKFormat.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKNumber.h"

#include <QDateTime>
#include <QFile>
#include <QTimeZone>
#include <QVariant>

#include <map>
#include <mutex>
#include <vector>

namespace {

VKLogContext logContext(const char *operation, const void *object)
{
    return {QStringLiteral("VQTiming"), QString::fromLatin1(operation), object};
}

// Orders indexes for the dictionaries: numbers by value (1 and 1.0 are the same index, NaN
// after every other number), then texts, then other values by type and description.
struct IndexLess
{
    static int rank(const QVariant &v)
    {
        if (VKNumber::isNumber(v))
            return 0;
        return v.metaType().id() == QMetaType::QString ? 1 : 2;
    }
    static bool isNaN(const QVariant &v)
    {
        const int id = v.metaType().id();
        return (id == QMetaType::Double || id == QMetaType::Float) && std::isnan(v.toDouble());
    }

    bool operator()(const QVariant &a, const QVariant &b) const
    {
        const int ra = rank(a), rb = rank(b);
        if (ra != rb)
            return ra < rb;
        if (ra == 0 && (isNaN(a) || isNaN(b)))
            return !isNaN(a) && isNaN(b);
        if (ra == 1)
            return a.toString() < b.toString();
        if (ra == 2 && a.metaType() != b.metaType())
            return a.metaType().id() < b.metaType().id();
        const QPartialOrdering order = QVariant::compare(a, b);
        if (order == QPartialOrdering::Less)
            return true;
        if (order != QPartialOrdering::Unordered)
            return false;
        return VKFormat::describe(a) < VKFormat::describe(b);
    }
};

using IndexedMoments = std::map<QVariant, VQMoment, IndexLess>;

struct Record
{
    bool indexed = false;
    IndexedMoments byIndex;
    std::vector<VQMoment> sequence;
};

struct Statistic
{
    double sumTime = 0.0;
    qint64 timesCalled = 0;
    double maxTime = 0.0;
    double minTime = 0.0;
};

double secondsBetween(VQMoment start, VQMoment stop)
{
    return std::chrono::duration<double>(stop - start).count();
}

void writeUtf8(const QString &path, const QString &text, const char *operation, const void *object)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(text.toUtf8()) < 0) {
        VKLogger::error(logContext(operation, object), "Could not write %@: %@", path,
                        file.errorString());
    }
}

const QString kDoubleLine = QString(40, u'=') + u'\n';
const QString kSingleLine = QString(38, u'-') + u'\n';

} // namespace

QString VQDateText(VQMoment moment)
{
    using namespace std::chrono;
    const qint64 micros = floor<microseconds>(moment.time_since_epoch()).count();
    qint64 seconds = micros / 1000000;
    qint64 fraction = micros % 1000000;
    if (fraction < 0) {
        fraction += 1000000;
        --seconds;
    }
    const QDateTime date = QDateTime::fromSecsSinceEpoch(seconds, QTimeZone::utc());
    return date.toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss")) +
           QStringLiteral(".%1Z").arg(fraction, 6, 10, QLatin1Char('0'));
}

struct VQTiming::Private
{
    VQClock clock;
    mutable std::recursive_mutex mTimerLock;
    std::map<QString, Record> mTimers;
    std::map<QString, Record> mStopTimers;
    std::map<QString, Statistic> mStatistics;

    void record(std::map<QString, Record> &records, const QString &identifier,
                const QVariant &index)
    {
        std::lock_guard lock(mTimerLock);
        const VQMoment now = clock();
        auto found = records.find(identifier);
        if (found == records.end()) {
            found = records.emplace(identifier, Record()).first;
            found->second.indexed = !index.isNull();
        }
        Record &r = found->second;
        if (r.indexed)
            r.byIndex[index] = now;
        else
            r.sequence.push_back(now);
    }

    // Calls `pair` with the start and stop of every indexed pair of `identifier`, by index.
    template <typename Pair>
    void forEachIndexedPair(const QString &identifier, const Record &start, Pair pair) const
    {
        const auto stops = mStopTimers.find(identifier);
        if (!start.indexed || stops == mStopTimers.end() || !stops->second.indexed)
            return;
        for (const auto &[index, moment] : start.byIndex) {
            const auto stop = stops->second.byIndex.find(index);
            if (stop != stops->second.byIndex.end())
                pair(index, moment, stop->second);
        }
    }
};

std::shared_ptr<VQTiming> VQTiming::sharedTimer()
{
    return nullptr;
}

VQTiming::VQTiming() : VQTiming(VQClock()) {}

VQTiming::VQTiming(VQClock clock) : d(std::make_unique<Private>())
{
    d->clock = clock ? std::move(clock) : VQClock([] { return std::chrono::system_clock::now(); });
}

VQTiming::~VQTiming() = default;

void VQTiming::startTiming(const QString &identifier, const QVariant &index)
{
    d->record(d->mTimers, identifier, index);
}

void VQTiming::startTiming(const QString &identifier)
{
    d->record(d->mTimers, identifier, QVariant());
}

void VQTiming::stopTiming(const QString &identifier, const QVariant &index)
{
    d->record(d->mStopTimers, identifier, index);
}

void VQTiming::stopTiming(const QString &identifier)
{
    d->record(d->mStopTimers, identifier, QVariant());
}

void VQTiming::addElapsedTime(double seconds, const QString &identifier)
{
    std::lock_guard lock(d->mTimerLock);
    const auto found = d->mStatistics.find(identifier);
    if (found == d->mStatistics.end()) {
        d->mStatistics.emplace(identifier, Statistic{seconds, 1, seconds, seconds});
        return;
    }
    Statistic &s = found->second;
    s.sumTime += seconds;
    s.maxTime = std::max(s.maxTime, seconds);
    s.minTime = std::min(s.minTime, seconds);
    s.timesCalled += 1;
}

QString VQTiming::statistics()
{
    std::lock_guard lock(d->mTimerLock);
    for (const auto &[identifier, start] : d->mTimers) {
        if (start.indexed) {
            d->forEachIndexedPair(identifier, start,
                                  [&](const QVariant &, VQMoment from, VQMoment to) {
                                      addElapsedTime(secondsBetween(from, to), identifier);
                                  });
            continue;
        }
        const auto stops = d->mStopTimers.find(identifier);
        if (stops == d->mStopTimers.end() || stops->second.indexed)
            continue;
        const std::vector<VQMoment> &stop = stops->second.sequence;
        for (size_t i = 0; i < start.sequence.size() && i < stop.size(); ++i)
            addElapsedTime(secondsBetween(start.sequence[i], stop[i]), identifier);
    }

    QString text =
        QStringLiteral("\n") + kDoubleLine + QStringLiteral("Statistics:\n") + kDoubleLine;
    for (const auto &[identifier, s] : d->mStatistics) {
        text += identifier + u'\n';
        text += vkFormat("# of Calls:\t %d\t\t", s.timesCalled);
        text += vkFormat("avgTime:\t %f\t\t", s.sumTime / double(s.timesCalled));
        text += vkFormat("maxTime:\t %f\t\t", s.maxTime);
        text += vkFormat("minTime:\t %f\n", s.minTime);
        text += kSingleLine;
    }
    text += kDoubleLine;
    return text;
}

void VQTiming::saveCSVToFileAtPath(const QString &path) const
{
    QString text = QStringLiteral("identifier,index,duration,startDate\n");
    {
        std::lock_guard lock(d->mTimerLock);
        for (const auto &[identifier, start] : d->mTimers) {
            d->forEachIndexedPair(identifier, start,
                                  [&](const QVariant &index, VQMoment from, VQMoment to) {
                                      text += vkFormat("%@,%@,%f,%@\n", identifier, index,
                                                       secondsBetween(from, to), VQDateText(from));
                                  });
        }
    }
    writeUtf8(path, text, "-[VQTiming saveCSVToFileAtPath:]", this);
}

void VQTiming::saveFrameIndexBasedCSVToFileAtPath(const QString &path) const
{
    QString text = QStringLiteral("index");
    {
        std::lock_guard lock(d->mTimerLock);
        std::map<QVariant, QList<std::pair<QString, double>>, IndexLess> rows;
        for (const auto &[identifier, start] : d->mTimers) {
            d->forEachIndexedPair(identifier, start,
                                  [&](const QVariant &index, VQMoment from, VQMoment to) {
                                      QList<std::pair<QString, double>> &row = rows[index];
                                      for (const auto &entry : row) {
                                          if (entry.first == identifier)
                                              return;
                                      }
                                      row.append({identifier, secondsBetween(from, to)});
                                  });
        }

        for (const auto &entry : d->mTimers)
            text += vkFormat(",%@-duration", entry.first);
        text += u'\n';
        for (const auto &[index, row] : rows) {
            text += vkFormat("%@", index);
            for (const auto &column : d->mTimers) {
                QString cell = QStringLiteral(",0.0");
                for (const auto &entry : row) {
                    if (entry.first == column.first) {
                        cell = u',' + VKFormat::describe(QVariant(entry.second));
                        break;
                    }
                }
                text += cell;
            }
            text += u'\n';
        }
    }
    writeUtf8(path, text, "-[VQTiming saveFrameIndexBasedCSVToFileAtPath:]", this);
}

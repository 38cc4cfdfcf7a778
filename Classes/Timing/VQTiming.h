// A profiler for developers: named timers started and stopped from any thread, optionally per
// index (typically a frame number), folded into per-name statistics and written as CSV.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>

#include <chrono>
#include <functional>
#include <memory>

class QVariant;

// Moments are wall-clock time points; durations are their differences in seconds (double).
using VQMoment = std::chrono::system_clock::time_point;
using VQClock = std::function<VQMoment()>;

// The date text of the profiler's files: ISO 8601 in UTC with microseconds,
// "2024-03-05T06:07:08.123456Z".
VK_EXPORT QString VQDateText(VQMoment moment);

class VK_EXPORT VQTiming
{
public:
    // Timing is switched off in this library: the shared timer is always null, so hosts that
    // time through it pay nothing. A host that wants timings makes its own instance.
    static std::shared_ptr<VQTiming> sharedTimer();

    VQTiming();
    // With a clock of the host's (tests pass a fixed sequence of moments).
    explicit VQTiming(VQClock clock);
    ~VQTiming();
    VQTiming(const VQTiming &) = delete;
    VQTiming &operator=(const VQTiming &) = delete;

    // Records now as a start (or stop) of `identifier`. With an index (a non-null variant) the
    // moment is kept per index and a second call at the same index replaces the first; without
    // one it is appended to the identifier's sequence. The first call for an identifier decides
    // which of the two it is; use an identifier always with or always without an index.
    void startTiming(const QString &identifier, const QVariant &index);
    void startTiming(const QString &identifier);
    void stopTiming(const QString &identifier, const QVariant &index);
    void stopTiming(const QString &identifier);

    // Folds one duration into the identifier's statistics (sum, count, maximum, minimum).
    void addElapsedTime(double seconds, const QString &identifier);

    // Folds every start/stop pair into the statistics and answers them as text. The statistics
    // are never emptied, so each call folds the pairs again: a second call reports doubled
    // counts and sums, with the same average, maximum and minimum.
    QString statistics();

    // "identifier,index,duration,startDate" with one line per indexed start that has a stop
    // at the same index. Written as UTF-8; a failure is logged and otherwise ignored.
    void saveCSVToFileAtPath(const QString &path) const;
    // One row per index, in ascending order, and one "<identifier>-duration" column per
    // identifier (",0.0" where an identifier has no pair at that index).
    void saveFrameIndexBasedCSVToFileAtPath(const QString &path) const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

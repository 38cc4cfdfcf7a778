// A class-wide, ordered list of typed events with their moments, written to a CSV file under
// "/tmp" for a quick look at what happened when.
#pragma once

#include "Foundation/VKExport.h"
#include "Timing/VQTiming.h"

#include <QList>
#include <QString>

#include <memory>

class VQTimeEvent;

class VK_EXPORT VQTimeRecorder
{
public:
    VQTimeRecorder() = delete;

    // Appends an event of `type` at the current moment.
    static void addEventWithType(const QString &type);
    // Writes "Timestamp,Event" and one "%f,%@" line per event (seconds since 2001-01-01 UTC,
    // type) to "/tmp/stats-<date>.csv", <date> being the current moment as VQDateText writes
    // it. The list is kept. A failure to write is logged and otherwise ignored.
    static void saveCsv();

    // The events so far, oldest first.
    static QList<std::shared_ptr<VQTimeEvent>> events();
    static void removeAllEvents();
    // The clock of the events and of the file name; a null clock restores the system clock.
    static void setClock(VQClock clock);
};

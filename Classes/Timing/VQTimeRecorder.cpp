// Events are meant to be added from one thread; a mutex guards the list anyway, so that a
// stray call from another thread cannot corrupt it.
#include "Timing/VQTimeRecorder.h"

#include "Foundation/VKDate.h"
#include "Foundation/VKFormat.h"
#include "Foundation/VKLogger.h"
#include "Timing/VQTimeEvent.h"

#include <QFile>

#include <mutex>

namespace {

struct Recorder
{
    std::mutex mutex;
    VQClock clock;
    QList<std::shared_ptr<VQTimeEvent>> events;

    VQMoment now() { return clock ? clock() : std::chrono::system_clock::now(); }
};

Recorder &recorder()
{
    static Recorder *shared = new Recorder;
    return *shared;
}

double secondsSinceReferenceDate(VQMoment moment)
{
    const VQMoment referenceDate(
        std::chrono::seconds(static_cast<qint64>(VKDate::referenceDateSince1970)));
    return std::chrono::duration<double>(moment - referenceDate).count();
}

} // namespace

void VQTimeRecorder::addEventWithType(const QString &type)
{
    Recorder &r = recorder();
    std::lock_guard lock(r.mutex);
    r.events.append(std::make_shared<VQTimeEvent>(r.now(), type));
}

void VQTimeRecorder::saveCsv()
{
    Recorder &r = recorder();
    QString text = QStringLiteral("Timestamp,Event\n");
    QString path;
    {
        std::lock_guard lock(r.mutex);
        for (const auto &event : r.events)
            text += vkFormat("%f,%@\n", secondsSinceReferenceDate(event->date()), event->type());
        path = vkFormat("/tmp/stats-%@.csv", VQDateText(r.now()));
    }
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(text.toUtf8()) < 0) {
        VKLogger::error({QStringLiteral("VQTimeRecorder"),
                         QStringLiteral("+[VQTimeRecorder saveCsv]"), nullptr},
                        "Could not write %@: %@", path, file.errorString());
    }
}

QList<std::shared_ptr<VQTimeEvent>> VQTimeRecorder::events()
{
    Recorder &r = recorder();
    std::lock_guard lock(r.mutex);
    return r.events;
}

void VQTimeRecorder::removeAllEvents()
{
    Recorder &r = recorder();
    std::lock_guard lock(r.mutex);
    r.events.clear();
}

void VQTimeRecorder::setClock(VQClock clock)
{
    Recorder &r = recorder();
    std::lock_guard lock(r.mutex);
    r.clock = std::move(clock);
}

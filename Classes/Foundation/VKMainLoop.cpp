#include "Foundation/VKMainLoop.h"

#include "Foundation/VKDate.h"
#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QScopeGuard>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>

namespace {

QCoreApplication *requireApplication(const char *operation)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app)
        VKException::raise(VKInternalInconsistencyException,
                           "%s: there is no application object, so there is no main loop",
                           operation);
    return app;
}

void logException(const char *operation, const QString &reason)
{
    VKLogger::error({QStringLiteral("VKMainLoop"), QString::fromUtf8(operation), nullptr},
                    "Uncaught exception on the main thread: %@", reason);
}

// Runs a function that must not let an exception into the Qt event loop.
void runLogged(const std::function<void()> &function, const char *operation)
{
    try {
        function();
    } catch (const std::exception &exception) {
        logException(operation, QString::fromUtf8(exception.what()));
    } catch (...) {
        logException(operation, QStringLiteral("unknown exception"));
    }
}

double sanitisedInterval(double interval)
{
    return std::isfinite(interval) && interval > 0 ? interval : 0.0;
}

} // namespace

// The timer's states: valid (waiting for its fire), firing (the callback runs on `firingThread`)
// and spent. Private::mutex guards all of them; the callback runs without it, and invalidate()
// on another thread waits on `finished` while the timer is firing.
struct VKMainLoopTimer::Private
{
    double interval = 0;
    QDateTime fireDate;
    QVariant userInfo;
    mutable std::mutex mutex;
    std::condition_variable finished;
    bool valid = true;
    bool firing = false;
    std::thread::id firingThread;
    Callback callback;
};

VKMainLoopTimer::VKMainLoopTimer(double interval, Callback callback, QVariant userInfo)
    : d(std::make_unique<Private>())
{
    d->interval = interval;
    d->fireDate = VKDate::now().addMSecs(static_cast<qint64>(std::llround(interval * 1000.0)));
    d->userInfo = std::move(userInfo);
    d->callback = std::move(callback);
}

VKMainLoopTimer::~VKMainLoopTimer() = default;

std::shared_ptr<VKMainLoopTimer> VKMainLoopTimer::scheduledTimer(double interval, Callback callback,
                                                                 QVariant userInfo)
{
    QCoreApplication *app = requireApplication("+[VKMainLoopTimer scheduledTimer]");
    if (!callback)
        VKException::raise(VKInvalidArgumentException,
                           "+[VKMainLoopTimer scheduledTimer]: callback must not be nil");
    interval = sanitisedInterval(interval);
    std::shared_ptr<VKMainLoopTimer> timer(
        new VKMainLoopTimer(interval, std::move(callback), std::move(userInfo)));
    // The deadline counts from now, also when the request reaches the main thread later.
    const QDeadlineTimer deadline(std::chrono::milliseconds(std::llround(interval * 1000.0)),
                                  Qt::PreciseTimer);
    auto arm = [timer, deadline, app] {
        QTimer::singleShot(std::chrono::milliseconds(deadline.remainingTime()), Qt::PreciseTimer,
                           app, [timer] { timer->fire(); });
    };
    if (QThread::currentThread() == app->thread())
        arm();
    else
        QMetaObject::invokeMethod(app, arm, Qt::QueuedConnection);
    return timer;
}

std::shared_ptr<VKMainLoopTimer>
VKMainLoopTimer::unscheduledTimer(double interval, Callback callback, QVariant userInfo)
{
    if (!callback)
        VKException::raise(VKInvalidArgumentException,
                           "+[VKMainLoopTimer unscheduledTimer]: callback must not be nil");
    return std::shared_ptr<VKMainLoopTimer>(new VKMainLoopTimer(
        sanitisedInterval(interval), std::move(callback), std::move(userInfo)));
}

void VKMainLoopTimer::invalidate()
{
    Callback released;
    {
        std::unique_lock lock(d->mutex);
        d->valid = false;
        released = std::move(d->callback);
        d->callback = nullptr;
        if (d->firing && d->firingThread != std::this_thread::get_id())
            d->finished.wait(lock, [this] { return !d->firing; });
    }
    // `released` goes here, outside the lock: its captures may be anything.
}

bool VKMainLoopTimer::isValid() const
{
    std::lock_guard lock(d->mutex);
    return d->valid;
}

void VKMainLoopTimer::fire()
{
    // Keeps the timer alive if the callback drops the last handle.
    auto self = shared_from_this();
    Callback callback;
    {
        std::lock_guard lock(d->mutex);
        if (!d->valid)
            return;
        d->valid = false;
        d->firing = true;
        d->firingThread = std::this_thread::get_id();
        callback = std::move(d->callback);
        d->callback = nullptr;
    }
    auto done = qScopeGuard([this] {
        std::lock_guard lock(d->mutex);
        d->firing = false;
        d->finished.notify_all();
    });
    if (VKMainLoop::isMainThread())
        runLogged([&] { callback(*this); }, "-[VKMainLoopTimer fire]");
    else
        callback(*this);
}

double VKMainLoopTimer::timeInterval() const
{
    return d->interval;
}

QDateTime VKMainLoopTimer::fireDate() const
{
    return d->fireDate;
}

QVariant VKMainLoopTimer::userInfo() const
{
    return d->userInfo;
}

QThread *VKMainLoop::mainThread()
{
    QCoreApplication *app = QCoreApplication::instance();
    return app ? app->thread() : nullptr;
}

bool VKMainLoop::isMainThread()
{
    QThread *main = mainThread();
    return main && QThread::currentThread() == main;
}

void VKMainLoop::performOnMainThread(std::function<void()> function, bool waitUntilDone)
{
    QCoreApplication *app = requireApplication("+[VKMainLoop performOnMainThread]");
    if (!function)
        VKException::raise(VKInvalidArgumentException,
                           "+[VKMainLoop performOnMainThread]: function must not be nil");
    if (!waitUntilDone) {
        QMetaObject::invokeMethod(
            app, [function = std::move(function)] { runLogged(function, "-[VKMainLoop perform]"); },
            Qt::QueuedConnection);
        return;
    }
    if (QThread::currentThread() == app->thread()) {
        function();
        return;
    }
    // Waits on a standard condition rather than a blocking queued connection, so that thread
    // checkers see the hand-over.
    struct Handshake
    {
        std::mutex mutex;
        std::condition_variable done;
        bool finished = false;
        std::exception_ptr failure;
    };
    auto handshake = std::make_shared<Handshake>();
    // Ends the wait also when the call is dropped unrun: the main loop deletes the queued call,
    // and with it this guard, when the application object goes away.
    struct Completion
    {
        std::shared_ptr<Handshake> handshake;
        std::exception_ptr failure;
        bool ran = false;
        explicit Completion(std::shared_ptr<Handshake> h) : handshake(std::move(h)) {}
        Completion(const Completion &) = delete;
        Completion &operator=(const Completion &) = delete;
        ~Completion()
        {
            if (!ran)
                failure = std::make_exception_ptr(VKException(
                    VKInternalInconsistencyException,
                    QStringLiteral("+[VKMainLoop performOnMainThread]: the main loop went away "
                                   "before the function ran")));
            std::lock_guard lock(handshake->mutex);
            handshake->failure = failure;
            handshake->finished = true;
            handshake->done.notify_all();
        }
    };
    QMetaObject::invokeMethod(
        app,
        [completion = std::make_shared<Completion>(handshake), function = std::move(function)] {
            completion->ran = true;
            try {
                function();
            } catch (...) {
                completion->failure = std::current_exception();
            }
        },
        Qt::QueuedConnection);
    std::unique_lock lock(handshake->mutex);
    handshake->done.wait(lock, [&] { return handshake->finished; });
    if (handshake->failure)
        std::rethrow_exception(handshake->failure);
}

void VKMainLoop::runUntilDate(const QDateTime &date)
{
    runUntil([] { return false; }, date);
}

bool VKMainLoop::runUntil(const std::function<bool()> &condition, const QDateTime &limit)
{
    if (condition())
        return true;
    QEventLoop loop;
    bool held = false;
    QTimer poll;
    poll.setInterval(10);
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (condition()) {
            held = true;
            loop.quit();
        } else if (VKDate::now() >= limit) {
            loop.quit();
        }
    });
    const qint64 remaining = limit.isValid() ? VKDate::now().msecsTo(limit) : 0;
    if (remaining <= 0) {
        // One pass over what is pending, without waiting.
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        QCoreApplication::sendPostedEvents();
        return condition();
    }
    QTimer end;
    end.setSingleShot(true);
    end.setTimerType(Qt::PreciseTimer);
    QObject::connect(&end, &QTimer::timeout, &loop, &QEventLoop::quit);
    poll.start();
    for (qint64 left = remaining; !held && left > 0; left = VKDate::now().msecsTo(limit)) {
        end.start(static_cast<int>(std::min<qint64>(left, std::numeric_limits<int>::max())));
        loop.exec();
    }
    return held || condition();
}

#include "Foundation/VKMainLoop.h"

#include "Foundation/VKDate.h"
#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <limits>

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

VKMainLoopTimer::VKMainLoopTimer(double interval, Callback callback, QVariant userInfo)
    : m_interval(interval),
      m_fireDate(VKDate::now().addMSecs(static_cast<qint64>(std::llround(interval * 1000.0)))),
      m_userInfo(std::move(userInfo)), m_callback(std::move(callback))
{}

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

void VKMainLoopTimer::invalidate()
{
    Callback released;
    {
        std::lock_guard lock(m_mutex);
        m_valid = false;
        released = std::move(m_callback);
        m_callback = nullptr;
    }
    // `released` goes here, outside the lock: its captures may be anything.
}

bool VKMainLoopTimer::isValid() const
{
    std::lock_guard lock(m_mutex);
    return m_valid;
}

void VKMainLoopTimer::fire()
{
    // Keeps the timer alive if the callback drops the last handle.
    auto self = shared_from_this();
    Callback callback;
    {
        std::lock_guard lock(m_mutex);
        if (!m_valid)
            return;
        m_valid = false;
        callback = std::move(m_callback);
        m_callback = nullptr;
    }
    if (VKMainLoop::isMainThread())
        runLogged([&] { callback(*this); }, "-[VKMainLoopTimer fire]");
    else
        callback(*this);
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
    QMetaObject::invokeMethod(
        app,
        [handshake, function = std::move(function)] {
            std::exception_ptr failure;
            try {
                function();
            } catch (...) {
                failure = std::current_exception();
            }
            std::lock_guard lock(handshake->mutex);
            handshake->failure = failure;
            handshake->finished = true;
            handshake->done.notify_all();
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

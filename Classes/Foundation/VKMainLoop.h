// The main loop is the Qt event loop of the thread that owns the application object. These
// helpers schedule one-shot timers on it from any thread, run functions there, and turn the
// current thread's loop until a date.
#pragma once

#include "Foundation/VKExport.h"

#include <QDateTime>
#include <QVariant>

#include <functional>
#include <memory>

class QThread;

// A one-shot timer that fires on the main thread. The main loop keeps it alive until it fires
// or is invalidated; callers keep the handle only to invalidate it.
class VK_EXPORT VKMainLoopTimer : public std::enable_shared_from_this<VKMainLoopTimer>
{
public:
    using Callback = std::function<void(VKMainLoopTimer &timer)>;

    ~VKMainLoopTimer();
    VKMainLoopTimer(const VKMainLoopTimer &) = delete;
    VKMainLoopTimer &operator=(const VKMainLoopTimer &) = delete;

    // Schedules `callback` on the main loop after `interval` seconds; 0 (or less) means the
    // loop's next pass. Callable from any thread. Throws VKInternalInconsistencyException when
    // there is no application object.
    static std::shared_ptr<VKMainLoopTimer> scheduledTimer(double interval, Callback callback,
                                                           QVariant userInfo = {});
    // A timer that no loop fires: whoever drives it calls fire() (a clock stepped by hand).
    static std::shared_ptr<VKMainLoopTimer> unscheduledTimer(double interval, Callback callback,
                                                             QVariant userInfo = {});

    // Safe from any thread: once it returns, the callback has either finished or will never
    // start; a callback running on another thread is waited for (so do not hold a lock the
    // callback needs). Called from inside the callback it returns at once. Releases the
    // callback.
    void invalidate();
    // True until the timer fired or was invalidated.
    bool isValid() const;
    // Fires now on the calling thread if still valid; the timer is then spent.
    void fire();

    double timeInterval() const;
    QDateTime fireDate() const;
    QVariant userInfo() const;

private:
    VKMainLoopTimer(double interval, Callback callback, QVariant userInfo);
    struct Private;
    std::unique_ptr<Private> d;
};

class VK_EXPORT VKMainLoop
{
public:
    // The thread that owns the application object (null when there is none).
    static QThread *mainThread();
    static bool isMainThread();

    // Runs `function` on the main thread. With waitUntilDone it returns after the function has
    // run (at once, on the main thread itself) and rethrows what the function threw; without,
    // the function is queued for a later pass of the main loop even when called there, and an
    // exception it throws is logged. A wait ends with VKInternalInconsistencyException when
    // the main loop drops the call unrun (the application object went away).
    static void performOnMainThread(std::function<void()> function, bool waitUntilDone);

    // Turns the calling thread's event loop until `date` has passed.
    static void runUntilDate(const QDateTime &date);
    // Turns the calling thread's event loop until `condition` holds (checked about every
    // 10 ms) or `limit` has passed; answers whether the condition held.
    static bool runUntil(const std::function<bool()> &condition, const QDateTime &limit);
};

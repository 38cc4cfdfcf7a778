#include "Foundation/VKDate.h"
#include "Foundation/VKException.h"
#include "Foundation/VKMainLoop.h"

#include "../support/VKTestDeadline.h"
#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QThread>

#include <atomic>
#include <thread>
#include <vector>

TEST(MainLoopTimer, FiresOnTheMainThreadWhenScheduledFromAnyThread)
{
    std::atomic<int> fired{0};
    std::atomic<bool> onMain{true};
    std::vector<std::thread> threads;
    std::vector<std::shared_ptr<VKMainLoopTimer>> timers(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            timers[i] = VKMainLoopTimer::scheduledTimer(
                i * 0.01,
                [&](VKMainLoopTimer &timer) {
                    onMain = onMain && VKMainLoop::isMainThread();
                    EXPECT_EQ(timer.userInfo().toString(), "info");
                    ++fired;
                },
                QString("info"));
        });
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(fired.load(), 0); // nothing fires before the loop turns
    ASSERT_TRUE(vkWaitUntil([&] { return fired == 4; }));
    EXPECT_TRUE(onMain);
    for (const auto &timer : timers)
        EXPECT_FALSE(timer->isValid());
}

TEST(MainLoopTimer, IntervalIsRespectedAndZeroMeansNextPass)
{
    const QDateTime start = VKDate::now();
    QDateTime firedAt;
    auto timer =
        VKMainLoopTimer::scheduledTimer(0.05, [&](VKMainLoopTimer &) { firedAt = VKDate::now(); });
    EXPECT_NEAR(VKDate::timeIntervalBetween(timer->fireDate(), start), 0.05, 0.02);
    ASSERT_TRUE(vkWaitUntil([&] { return firedAt.isValid(); }));
    EXPECT_GE(start.msecsTo(firedAt), 49);

    bool zeroFired = false;
    VKMainLoopTimer::scheduledTimer(0, [&](VKMainLoopTimer &) { zeroFired = true; });
    VKMainLoopTimer::scheduledTimer(
        -3, [&](VKMainLoopTimer &timer) { EXPECT_EQ(timer.timeInterval(), 0.0); });
    EXPECT_FALSE(zeroFired);
    QCoreApplication::processEvents();
    EXPECT_TRUE(zeroFired);
}

TEST(MainLoopTimer, InvalidateFromAnotherThreadPreventsTheFire)
{
    std::atomic<int> fired{0};
    std::vector<std::shared_ptr<VKMainLoopTimer>> timers;
    for (int i = 0; i < 50; ++i)
        timers.push_back(VKMainLoopTimer::scheduledTimer(i % 2 ? 0.0 : 0.02,
                                                         [&](VKMainLoopTimer &) { ++fired; }));
    std::thread([&] {
        for (auto &timer : timers)
            timer->invalidate();
    }).join();
    auto witness = VKMainLoopTimer::scheduledTimer(0.05, [&](VKMainLoopTimer &) {});
    ASSERT_TRUE(vkWaitUntil([&] { return !witness->isValid(); }));
    EXPECT_EQ(fired.load(), 0);

    // Racing invalidate against the fire: every timer fires at most once, and none fires
    // after invalidate() returned.
    std::atomic<int> lateFires{0};
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> invalidated{false};
        auto timer = VKMainLoopTimer::scheduledTimer(0, [&](VKMainLoopTimer &) {
            if (invalidated)
                ++lateFires;
        });
        std::thread racer([&] {
            timer->invalidate();
            invalidated = true;
        });
        QCoreApplication::processEvents();
        racer.join();
        QCoreApplication::processEvents();
    }
    EXPECT_EQ(lateFires.load(), 0);
}

TEST(MainLoopTimer, InvalidateReturnsOnlyAfterARunningCallbackFinished)
{
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> started{false}, invalidating{false}, finished{false};
        std::atomic<bool> finishedWhenInvalidateReturned{false};
        auto timer = VKMainLoopTimer::scheduledTimer(0, [&](VKMainLoopTimer &) {
            started = true;
            while (!invalidating)
                std::this_thread::yield();
            // Give invalidate() the chance to return early.
            QThread::msleep(2);
            finished = true;
        });
        std::thread invalidator([&] {
            while (!started)
                std::this_thread::yield();
            invalidating = true;
            timer->invalidate();
            finishedWhenInvalidateReturned = finished.load();
        });
        ASSERT_TRUE(vkWaitUntil([&] { return finished.load(); }));
        invalidator.join();
        ASSERT_TRUE(finishedWhenInvalidateReturned) << "round " << round;
    }
    // Invalidating from inside the callback does not wait for itself.
    bool ran = false;
    auto timer = VKMainLoopTimer::scheduledTimer(0, [&](VKMainLoopTimer &self) {
        self.invalidate();
        ran = true;
    });
    ASSERT_TRUE(vkWaitUntil([&] { return ran; }));
    EXPECT_FALSE(timer->isValid());
}

TEST(MainLoop, WaitingPerformEndsWhenTheMainLoopDropsTheCall)
{
    std::atomic<bool> done{false};
    QString caught;
    std::thread worker([&] {
        try {
            VKMainLoop::performOnMainThread([] {}, true);
        } catch (const VKException &exception) {
            caught = exception.reason();
        }
        done = true;
    });
    vkFinishesWithin(10, "a waiting perform whose call was dropped", [&] {
        // Posted calls are dropped as when the application object goes away.
        while (!done)
            QCoreApplication::removePostedEvents(QCoreApplication::instance(), QEvent::MetaCall);
    });
    worker.join();
    EXPECT_EQ(caught, "+[VKMainLoop performOnMainThread]: the main loop went away before the "
                      "function ran");
}

TEST(MainLoop, PerformOnMainThreadWaitsOrQueues)
{
    bool ranInline = false;
    VKMainLoop::performOnMainThread([&] { ranInline = true; }, true); // on the main thread: at once
    EXPECT_TRUE(ranInline);

    bool queued = false;
    VKMainLoop::performOnMainThread([&] { queued = true; }, false);
    EXPECT_FALSE(queued);

    std::atomic<bool> workerDone{false};
    std::atomic<bool> ranOnMain{false};
    QString caught;
    std::thread worker([&] {
        VKMainLoop::performOnMainThread([&] { ranOnMain = VKMainLoop::isMainThread(); }, true);
        try {
            VKMainLoop::performOnMainThread(
                [] { VKException::raise(VKInvalidArgumentException, "bad %d", 7); }, true);
        } catch (const VKException &exception) {
            caught = exception.reason();
        }
        workerDone = true;
    });
    ASSERT_TRUE(vkWaitUntil([&] { return workerDone.load(); }));
    worker.join();
    EXPECT_TRUE(ranOnMain);
    EXPECT_EQ(caught, "bad 7");
    EXPECT_TRUE(queued);

    VKLogCapture capture;
    VKMainLoop::performOnMainThread([] { throw std::runtime_error("lost"); }, false);
    vkSpinEventLoop(20);
    ASSERT_EQ(capture.messages().size(), 1);
    EXPECT_EQ(capture.messages().first(), "Uncaught exception on the main thread: lost");
}

TEST(MainLoop, RunUntilDateAndCondition)
{
    const QDateTime start = VKDate::now();
    bool fired = false;
    VKMainLoopTimer::scheduledTimer(0.01, [&](VKMainLoopTimer &) { fired = true; });
    VKMainLoop::runUntilDate(start.addMSecs(60));
    EXPECT_TRUE(fired);
    EXPECT_GE(start.msecsTo(VKDate::now()), 60);

    // On a worker thread with its own loop.
    std::atomic<bool> held{false};
    std::thread worker([&] {
        std::atomic<int> ticks{0};
        held = VKMainLoop::runUntil([&] { return ++ticks >= 3; }, VKDate::now().addSecs(5));
    });
    worker.join();
    EXPECT_TRUE(held);
    EXPECT_FALSE(VKMainLoop::runUntil([] { return false; }, VKDate::now().addMSecs(30)));
    EXPECT_FALSE(VKMainLoop::runUntil([] { return false; }, VKDate::now().addSecs(-1)));
}

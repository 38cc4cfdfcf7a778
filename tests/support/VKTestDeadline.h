// Runs a piece of a test that could deadlock on a thread of its own, with a deadline. A
// deadlocked run cannot be recovered (its threads hold the test's locks), so a missed deadline
// ends the whole test program with a message naming the case.
#pragma once

#include <QString>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

inline void vkFinishesWithin(int seconds, const QString &what, std::function<void()> work)
{
    struct State
    {
        std::mutex mutex;
        std::condition_variable done;
        bool finished = false;
    };
    auto state = std::make_shared<State>();
    std::thread runner([state, work = std::move(work)] {
        work();
        std::lock_guard lock(state->mutex);
        state->finished = true;
        state->done.notify_all();
    });
    std::unique_lock lock(state->mutex);
    if (!state->done.wait_for(lock, std::chrono::seconds(seconds),
                              [&] { return state->finished; })) {
        std::fprintf(stderr, "Did not finish within %d s (deadlock or endless loop): %s\n", seconds,
                     qPrintable(what));
        std::fflush(stderr);
        std::_Exit(3);
    }
    lock.unlock();
    runner.join();
}

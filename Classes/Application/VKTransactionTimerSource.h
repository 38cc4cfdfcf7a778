// Where transaction mediators read the time and schedule their one-shot timers: the steady clock
// and the main loop, unless a test steps time by hand through a source of its own.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKMainLoop.h"

#include <chrono>
#include <memory>

class VK_EXPORT VKTransactionTimerSource
{
public:
    using Clock = std::chrono::steady_clock;

    virtual ~VKTransactionTimerSource();

    // Called from any thread.
    virtual Clock::time_point now() = 0;
    // A one-shot timer that runs `callback` on the main thread `interval` seconds from now (0:
    // at the loop's next pass). Called from any thread, possibly with a mediator lock held.
    virtual std::shared_ptr<VKMainLoopTimer> scheduledTimer(double interval,
                                                            VKMainLoopTimer::Callback callback) = 0;

    // The steady clock and VKMainLoopTimer::scheduledTimer; shared and never destroyed.
    static const std::shared_ptr<VKTransactionTimerSource> &mainLoop();
};

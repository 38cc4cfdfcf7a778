#include "Application/VKTransactionTimerSource.h"

namespace {
class VKMainLoopTimerSource final : public VKTransactionTimerSource
{
public:
    Clock::time_point now() override { return Clock::now(); }
    std::shared_ptr<VKMainLoopTimer> scheduledTimer(double interval,
                                                    VKMainLoopTimer::Callback callback) override
    {
        return VKMainLoopTimer::scheduledTimer(interval, std::move(callback));
    }
};
} // namespace

VKTransactionTimerSource::~VKTransactionTimerSource() = default;

const std::shared_ptr<VKTransactionTimerSource> &VKTransactionTimerSource::mainLoop()
{
    // Never destroyed: timers may still read it at exit.
    static const auto *source = new std::shared_ptr<VKTransactionTimerSource>(
        std::make_shared<VKMainLoopTimerSource>());
    return *source;
}

#include "Application/VKConcurrentOperation.h"
#include "Application/VKSingleThreadOperationQueue.h"
#include "Foundation/VKException.h"

#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// The numbers of the operations in the order they ran, their threads, and how often two ran at
// once.
struct Record
{
    std::mutex mutex;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    std::atomic<int> running{0}, overlaps{0};
};

struct RecordedOperation : VKOperationBase
{
    RecordedOperation(int number, Record &record) : number(number), record(record) {}
    void main() override
    {
        record.overlaps += record.running++ != 0;
        {
            std::lock_guard lock(record.mutex);
            record.order.push_back(number);
            record.threads.push_back(std::this_thread::get_id());
        }
        if (then)
            then();
        --record.running;
    }
    int number;
    Record &record;
    std::function<void()> then;
};

std::shared_ptr<RecordedOperation> recorded(int number, Record &record)
{
    return std::make_shared<RecordedOperation>(number, record);
}

} // namespace

TEST(SerialQueue, FixedAnswersUnsupportedRemovalAndWaitingOperationsCancelledAtTheEnd)
{
    auto waiting = std::make_shared<VKOperationBase>();
    {
        VKSingleThreadOperationQueue queue;
        queue.setMaxConcurrentOperationCount(4);
        queue.setName("ingest");
        queue.addOperation(nullptr); // nothing arrives: no thread yet
        EXPECT_EQ(std::tuple(queue.maxConcurrentOperationCount(), queue.name(), queue.thread()),
                  std::tuple(1, QString("ingest"), std::thread::id()));
        EXPECT_EQ(vkRaisedBy([&] { queue.removeOperation(std::make_shared<VKOperationBase>()); }),
                  VKInvalidArgumentException + "|Method not implemented yet");
        queue.setSuspended(true);
        queue.addOperation(waiting);
    }
    EXPECT_EQ(std::pair(waiting->isCancelled(), waiting->isFinished()), std::pair(true, false));
}

// Nothing starts while the queue is suspended or its first operation is not ready (a ready one
// behind it waits too); releasing the hold runs both in order. Repeated adds are ignored.
TEST(SerialQueue, HeldBackOperationsRunInOrderOnceReleasedAndRepeatsAreIgnored)
{
    for (const bool suspend : {true, false}) {
        SCOPED_TRACE(suspend ? "suspended" : "first not ready");
        Record record;
        VKSingleThreadOperationQueue queue;
        auto elsewhere = std::make_shared<VKOperationBase>();
        auto first = recorded(1, record);
        auto second = recorded(2, record);
        if (suspend)
            queue.setSuspended(true);
        else
            first->addDependency(elsewhere);
        queue.addOperations({first, second, first}, false);
        queue.addOperation(second);
        EXPECT_EQ(queue.operations(), (QList<std::shared_ptr<VKOperationBase>>{first, second}));
        vkSpinEventLoop(30);
        EXPECT_TRUE(record.order.empty());
        EXPECT_EQ(queue.isSuspended(), suspend);
        if (suspend)
            queue.setSuspended(false);
        else
            elsewhere->start(); // readiness of the first waiting operation wakes the worker
        second->waitUntilFinished();
        EXPECT_EQ(record.order, (std::vector<int>{1, 2}));
        EXPECT_TRUE(queue.operations().isEmpty());
    }
}

// The worker starts watching a waiting operation only once it finds it not ready; readiness
// arriving from another thread around that moment must still wake it.
TEST(SerialQueue, ReadinessRacingTheWorkersLookIsNeverLost)
{
    VKSingleThreadOperationQueue queue;
    for (int round = 0; round < 300; ++round) {
        auto dependency = std::make_shared<VKOperationBase>();
        auto waiting = std::make_shared<VKOperationBase>();
        waiting->addDependency(dependency);
        std::thread finisher([&] { dependency->start(); });
        queue.addOperation(waiting);
        finisher.join();
        ASSERT_TRUE(vkWaitUntil([&] { return waiting->isFinished(); }, 5000))
            << "wake-up lost in round " << round;
        EXPECT_FALSE(waiting->hasObserversForKey("isReady"));
    }
}

TEST(SerialQueue, OperationsMayAddToTheirOwnQueueAndCancelledOnesStillStart)
{
    Record record;
    VKSingleThreadOperationQueue queue;
    auto added = recorded(3, record);
    auto cancelled = recorded(2, record);
    cancelled->cancel();
    auto adder = recorded(1, record);
    adder->then = [&] { queue.addOperation(added); };
    // Waiting returns only once the cancelled operation was started (it ends without working).
    queue.addOperations({adder, cancelled}, true);
    added->waitUntilFinished();
    EXPECT_EQ(record.order, (std::vector<int>{1, 3}));
}

TEST(SerialQueue, ConcurrentOperationDoesNotHoldBackTheNextOneUnlessItIsADependency)
{
    struct Detached : VKConcurrentOperation
    {
        void start() override { setExecuting(true); }
    };
    Record record;
    VKSingleThreadOperationQueue queue;
    auto detached = std::make_shared<Detached>();
    auto independent = recorded(1, record);
    auto dependant = recorded(2, record);
    dependant->addDependency(detached);
    queue.addOperations({detached, independent, dependant}, false);
    independent->waitUntilFinished();
    vkSpinEventLoop(30);
    EXPECT_TRUE(detached->isExecuting());
    EXPECT_EQ(record.order, (std::vector<int>{1}));
    detached->finish();
    dependant->waitUntilFinished();
    EXPECT_EQ(record.order, (std::vector<int>{1, 2}));
}

TEST(SerialQueue, HundredThousandOperationsFromFourThreadsRunInArrivalOrderOnOneThread)
{
    constexpr int kThreads = 4;
#ifdef __SANITIZE_THREAD__
    constexpr int kPerThread = 5000; // the thread checker is about 30 times slower here
#else
    constexpr int kPerThread = 25000;
#endif
    Record record;
    VKSingleThreadOperationQueue queue;
    // The test's own lock makes the order in which adds reach the queue observable.
    std::mutex arrival;
    std::vector<int> arrived;
    std::vector<std::shared_ptr<RecordedOperation>> last(kThreads);
    std::vector<std::thread> adders;
    for (int t = 0; t < kThreads; ++t)
        adders.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                auto operation = recorded(t * kPerThread + i, record);
                std::lock_guard lock(arrival);
                arrived.push_back(t * kPerThread + i);
                queue.addOperation(operation);
                last[t] = operation;
            }
        });
    for (auto &adder : adders)
        adder.join();
    for (const auto &operation : last)
        operation->waitUntilFinished();
    std::lock_guard lock(record.mutex);
    EXPECT_EQ(record.order, arrived);
    EXPECT_EQ(record.overlaps.load(), 0);
    ASSERT_EQ(record.threads.size(), std::size_t(kThreads * kPerThread));
    EXPECT_NE(queue.thread(), std::thread::id());
    EXPECT_EQ(std::count(record.threads.begin(), record.threads.end(), queue.thread()),
              kThreads * kPerThread);
}

TEST(SerialQueueDeathTest, ExceptionFromStartEndsTheProcessAfterLoggingTheOperation)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    class Throwing : public VKOperationBase
    {
    public:
        void start() override { throw std::runtime_error("tape jammed"); }
    };
    EXPECT_DEATH(
        {
            VKSingleThreadOperationQueue queue;
            auto operation = std::make_shared<Throwing>();
            queue.addOperation(operation);
            operation->waitUntilFinished();
        },
        "Operation .*Throwing.* raised an exception: tape jammed");
}

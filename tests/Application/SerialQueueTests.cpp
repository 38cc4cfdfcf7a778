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

// Appends its number and thread to a shared record when started.
struct Record
{
    std::mutex mutex;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    std::atomic<int> running{0};
    std::atomic<int> overlaps{0};
};

class RecordedOperation : public VKOperationBase
{
public:
    RecordedOperation(int number, Record *record) : m_number(number), m_record(record) {}
    void main() override
    {
        if (m_record->running.fetch_add(1) != 0)
            ++m_record->overlaps;
        {
            std::lock_guard lock(m_record->mutex);
            m_record->order.push_back(m_number);
            m_record->threads.push_back(std::this_thread::get_id());
        }
        if (then)
            then();
        m_record->running.fetch_sub(1);
    }
    std::function<void()> then;

private:
    int m_number;
    Record *m_record;
};

std::shared_ptr<RecordedOperation> recorded(int number, Record &record)
{
    return std::make_shared<RecordedOperation>(number, &record);
}

} // namespace

TEST(SerialQueue, FixedAnswersAndUnsupportedRemoval)
{
    VKSingleThreadOperationQueue queue;
    EXPECT_EQ(queue.thread(), std::thread::id());
    queue.setMaxConcurrentOperationCount(4);
    EXPECT_EQ(queue.maxConcurrentOperationCount(), 1);
    queue.setName("ingest");
    EXPECT_EQ(queue.name(), "ingest");
    try {
        queue.removeOperation(std::make_shared<VKOperationBase>());
        FAIL() << "no exception";
    } catch (const VKException &exception) {
        EXPECT_EQ(exception.name(), VKInvalidArgumentException);
        EXPECT_EQ(exception.reason(), "Method not implemented yet");
        EXPECT_TRUE(exception.userInfo().isEmpty());
    }
    queue.addOperation(nullptr);
    EXPECT_EQ(queue.thread(), std::thread::id()); // nothing arrived yet
}

// Nothing starts while the queue is suspended or its first operation is not ready (a ready one
// behind it waits too); releasing the hold runs both in order. Repeated adds are ignored.
TEST(SerialQueue, HeldBackOperationsRunInOrderOnceReleasedAndRepeatsAreIgnored)
{
    struct Case
    {
        const char *name;
        bool suspend;
    };
    const Case cases[] = {{"suspended", true}, {"first not ready", false}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Record record;
        VKSingleThreadOperationQueue queue;
        auto elsewhere = std::make_shared<VKOperationBase>();
        auto first = recorded(1, record);
        auto second = recorded(2, record);
        if (c.suspend)
            queue.setSuspended(true);
        else
            first->addDependency(elsewhere);
        queue.addOperations({first, second, first}, false);
        queue.addOperation(second);
        EXPECT_EQ(queue.operations(), (QList<std::shared_ptr<VKOperationBase>>{first, second}));
        vkSpinEventLoop(30);
        EXPECT_TRUE(record.order.empty());
        EXPECT_EQ(queue.isSuspended(), c.suspend);
        if (c.suspend)
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
    bool cancelledStarted = false;
    cancelled->observe("isFinished", 0,
                       [&](VKObservable *, const QString &, const VKKeyValueChange &) {
                           cancelledStarted = true;
                       });
    cancelled->cancel();
    auto adder = recorded(1, record);
    adder->then = [&] { queue.addOperation(added); };
    queue.addOperations({adder, cancelled}, true);
    added->waitUntilFinished();
    EXPECT_TRUE(cancelledStarted);
    // The cancelled operation's start() ran in its turn but did no work.
    EXPECT_EQ(record.order, (std::vector<int>{1, 3}));
}

TEST(SerialQueue, ConcurrentOperationDoesNotHoldBackTheNextOneUnlessItIsADependency)
{
    class Detached : public VKConcurrentOperation
    {
    public:
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
    const auto worker = queue.thread();
    EXPECT_NE(worker, std::thread::id());
    EXPECT_EQ(std::count(record.threads.begin(), record.threads.end(), worker),
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

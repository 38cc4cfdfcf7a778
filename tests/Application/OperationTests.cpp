// Operations, operation chains and the serial queue.
#include "Application/VKConcurrentOperation.h"
#include "Application/VKOperationChain.h"
#include "Application/VKSingleThreadOperationQueue.h"
#include "Foundation/VKException.h"
#include "Foundation/VKOperationQueue.h"

#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <numeric>
#include <optional>
#include <random>
#include <thread>
#include <vector>

namespace {

// The numbers of recorded operations in the order they ran, their threads, and how often two
// ran at once.
struct Record
{
    std::mutex mutex;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    std::atomic<int> running{0}, overlaps{0};
};

// Adds its number and thread to the record and does `then`; fails at the end when told to.
struct RecordedOperation : VKOperation
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
        if (failWith)
            fail(*failWith);
    }
    int number;
    Record &record;
    std::function<void()> then;
    std::optional<VKError> failWith;
};

std::shared_ptr<RecordedOperation> recorded(int number, Record &record)
{
    return std::make_shared<RecordedOperation>(number, record);
}

// Records "key=new value" for each announcement of the keys.
void announcements(VKObservable &object, const QStringList &keys, std::vector<QString> &events,
                   std::mutex *mutex = nullptr)
{
    for (const QString &key : keys)
        object.observe(
            key, VKKeyValueObservingOptionNew,
            [&events, mutex](VKObservable *, const QString &k, const VKKeyValueChange &change) {
                std::unique_lock<std::mutex> lock;
                if (mutex)
                    lock = std::unique_lock(*mutex);
                events.push_back(k + "=" + change.newValue.toString());
            });
}

const VKError kDiskFull = VKError::errorWithDescription(VQErrorDomainVessanUtilities, 28, "full");

} // namespace

TEST(Operation, FailureIsInPlaceBeforeItIsAnnouncedAndStopsDependants)
{
    auto failing = std::make_shared<VKOperation>();
    auto plainDependency = std::make_shared<VKOperationBase>();
    auto dependant = std::make_shared<VKOperation>();
    dependant->addDependency(failing);
    dependant->addDependency(plainDependency);
    VKError seenError;
    failing->observe("isFailed", VKKeyValueObservingOptionNew,
                     [&](VKObservable *object, const QString &, const VKKeyValueChange &change) {
                         EXPECT_TRUE(change.newValue.toBool());
                         seenError = static_cast<VKOperation *>(object)->error();
                     });
    EXPECT_TRUE(failing->error().isNull());
    failing->fail(kDiskFull);
    EXPECT_EQ(seenError, kDiskFull);
    EXPECT_EQ(failing->valueForKey("isFailed"), QVariant(true));
    EXPECT_EQ(failing->valueForKey("error").value<VKError>(), kDiskFull);

    // Both dependencies finished: the plain one is judged by the base rule only, the failed
    // VKOperation keeps the dependant waiting.
    plainDependency->start();
    failing->start();
    EXPECT_EQ(dependant->valueForKey("isReady"), QVariant(false));
    dependant->removeDependency(failing);
    EXPECT_TRUE(dependant->isReady());
}

TEST(ConcurrentOperation, AbstractStartRaisesAndEndingAnnouncesStoppedBeforeFinished)
{
    EXPECT_EQ(vkRaisedBy([] { VKConcurrentOperation().start(); }),
              VKInvalidArgumentException + "|Called Abstract Medod");
    // Ends on the calling thread, recording the hook among the announcements.
    class Manual : public VKConcurrentOperation
    {
    public:
        void start() override { setExecuting(true); }
        void willFinish() override { events->push_back("willFinish"); }
        std::vector<QString> *events = nullptr;
    };
    const struct
    {
        bool fails;
        std::vector<QString> expected;
    } cases[] = {
        {false, {"willFinish", "isExecuting=false", "isFinished=true"}},
        {true, {"isFailed=true", "willFinish", "isExecuting=false", "isFinished=true"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.fails ? "fail" : "finish");
        auto operation = std::make_shared<Manual>();
        std::vector<QString> events;
        operation->events = &events;
        operation->start();
        EXPECT_EQ(operation->valueForKey("executing"), QVariant(true));
        announcements(*operation, {"isFailed", "isExecuting", "isFinished"}, events);
        if (c.fails)
            operation->fail(kDiskFull);
        else
            operation->finish();
        EXPECT_EQ(events, c.expected);
        EXPECT_EQ(operation->error(), c.fails ? kDiskFull : VKError());
        operation->waitUntilFinished(); // the end reached the base class
    }
}

TEST(OperationChain, AddingLinksObservesOnlyTheLastForFinishingAndIgnoresRepeats)
{
    auto chain = VKOperationChain::operationChain();
    EXPECT_EQ(chain->firstOperation(), nullptr);
    EXPECT_EQ(chain->lastOperation(), nullptr);
    chain->removeAllOperations(); // empty: nothing happens
    auto a = std::make_shared<VKOperation>();
    auto b = std::make_shared<VKOperation>();
    // Which of the chain's keys each operation is observed for, and its dependency count.
    const auto links = [&] {
        QStringList text;
        for (const auto &operation : {a, b}) {
            text << QString::number(operation->dependencies().size());
            for (const QString key : {"isFinished", "isCancelled", "isFailed"})
                if (operation->hasObserversForKey(key))
                    text << key;
        }
        return text.join(' ');
    };
    chain->addOperationFromArray({a, b, a});
    chain->addOperation(b);
    EXPECT_EQ(chain->allOperations(), (QList<std::shared_ptr<VKOperation>>{a, b}));
    EXPECT_EQ(chain->firstOperation(), a);
    EXPECT_EQ(chain->lastOperation(), b);
    EXPECT_EQ(links(), "0 isCancelled isFailed 1 isFinished isCancelled isFailed");
    chain->removeAllOperations(); // the dependency stays
    EXPECT_TRUE(chain->allOperations().isEmpty());
    EXPECT_EQ(links(), "0 1");
}

// The first cancellation and the first failure are announced once; a cancelled operation is no
// failed one.
TEST(OperationChain, CancelGoesFromLastToFirstAndFirstCancellationAndFailureAreReportedOnce)
{
    auto chain = VKOperationChain::operationChain();
    std::vector<QString> order;
    for (const QString name : {"first", "second", "third"}) {
        auto operation = std::make_shared<VKOperation>();
        operation->setName(name);
        operation->observe(
            "isCancelled", 0,
            [&order](VKObservable *object, const QString &, const VKKeyValueChange &) {
                order.push_back(static_cast<VKOperation *>(object)->name());
            });
        chain->addOperation(operation);
    }
    std::vector<QString> events;
    announcements(*chain, {"isCancelled", "isFailed"}, events);
    chain->cancel();
    const auto operations = chain->allOperations();
    operations[1]->fail(kDiskFull);
    operations[2]->fail(VKError(VQErrorDomainVessanUtilities, 5));
    EXPECT_EQ(order, (std::vector<QString>{"third", "second", "first"}));
    EXPECT_EQ(events, (std::vector<QString>{"isCancelled=true", "isFailed=true"}));
    EXPECT_TRUE(chain->isCancelled());
    EXPECT_EQ(chain->failedOperation(), operations[1]);
    EXPECT_EQ(chain->error(), kDiskFull);
}

TEST(OperationChain, FinishesWithItsLastOperationAndAgainAfterMoreAreAdded)
{
    Record record;
    auto chain = VKOperationChain::operationChain();
    std::vector<QString> events;
    announcements(*chain, {"isFinished"}, events, &record.mutex);
    VKOperationQueue queue;
    for (int i = 0; i < 3; ++i)
        chain->addOperation(recorded(i, record));
    chain->enqueueOperationsToOperationQueue(queue);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(chain->isFinished());
    EXPECT_EQ(record.order, (std::vector<int>{0, 1, 2}));

    // A late addition becomes the followed last operation; the flag stays true meanwhile.
    auto late = recorded(3, record);
    chain->addOperation(late);
    EXPECT_TRUE(late->isReady());
    EXPECT_TRUE(chain->isFinished());
    queue.addOperation(late);
    queue.waitUntilAllOperationsAreFinished();
    std::lock_guard lock(record.mutex);
    EXPECT_EQ(events, (std::vector<QString>{"isFinished=true", "isFinished=true"}));
}

// The failure is announced once, its operation and error first and in place by the time
// isFailed is announced, and nothing after it runs.
TEST(OperationChain, ThousandOperationsOnThePlatformQueueStopAtARandomFailure)
{
    std::mt19937 random(std::random_device{}());
    const int failAt = std::uniform_int_distribution<int>(0, 999)(random);
    SCOPED_TRACE(failAt);
    Record record;
    auto chain = VKOperationChain::operationChain();
    const VKError failure(VQErrorDomainVessanUtilities, failAt);
    QList<std::shared_ptr<VKOperation>> operations;
    for (int i = 0; i < 1000; ++i) {
        auto operation = recorded(i, record);
        if (i == failAt)
            operation->failWith = failure;
        operations.append(operation);
    }
    chain->addOperationFromArray(operations);
    std::vector<QString> events;
    announcements(*chain, {"failedOperation", "error", "isFailed", "isFinished"}, events,
                  &record.mutex);
    chain->observe("isFailed", 0, [&](VKObservable *, const QString &, const VKKeyValueChange &) {
        EXPECT_EQ(chain->failedOperation(), operations[failAt]);
        EXPECT_EQ(chain->error(), failure);
    });
    {
        VKOperationQueue queue;
        queue.setMaxConcurrentOperationCount(4);
        chain->enqueueOperationsToOperationQueue(queue);
        operations[failAt]->waitUntilFinished();
    }
    std::vector<int> expected(failAt + 1);
    std::iota(expected.begin(), expected.end(), 0);
    std::lock_guard lock(record.mutex);
    EXPECT_EQ(record.order, expected);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(QStringList({events[0].left(16), events[1].left(6), events[2]}),
              QStringList({"failedOperation=", "error=", "isFailed=true"}));
    EXPECT_TRUE(chain->isFailed());
    EXPECT_FALSE(chain->isFinished());
    EXPECT_EQ(chain->valueForKey("failedOperation").value<std::shared_ptr<VKOperation>>(),
              operations[failAt]);
    EXPECT_TRUE(failAt == 999 || !operations[failAt + 1]->isReady());
}

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

// An operation may wait in several serial queues at once: a repeated add is ignored only by the
// queue it already waits in, and each queue runs it once in its turn.
TEST(SerialQueue, OperationWaitingInSeveralQueuesRunsOnceInEach)
{
    // Counts its starts per thread and never changes state, so that it can run in both queues.
    class Restartable : public VKOperationBase
    {
    public:
        void start() override
        {
            std::lock_guard lock(m_mutex);
            ++m_starts[std::this_thread::get_id()];
        }
        int startsOn(std::thread::id thread)
        {
            std::lock_guard lock(m_mutex);
            return m_starts[thread];
        }

    private:
        std::mutex m_mutex;
        std::map<std::thread::id, int> m_starts;
    };
    VKSingleThreadOperationQueue first, second;
    first.setSuspended(true);
    second.setSuspended(true);
    auto shared = std::make_shared<Restartable>();
    for (int round = 0; round < 2; ++round) {
        first.addOperation(shared);
        second.addOperation(shared);
    }
    EXPECT_EQ(first.operations().size(), 1);
    EXPECT_EQ(second.operations().size(), 1);
    first.setSuspended(false);
    ASSERT_TRUE(vkWaitUntil([&] { return shared->startsOn(first.thread()) == 1; }, 5000));
    // Gone from the first queue, still waiting in the second.
    first.addOperation(shared);
    second.addOperation(shared);
    ASSERT_TRUE(vkWaitUntil([&] { return shared->startsOn(first.thread()) == 2; }, 5000));
    EXPECT_EQ(second.operations().size(), 1);
    second.setSuspended(false);
    ASSERT_TRUE(vkWaitUntil([&] { return shared->startsOn(second.thread()) == 1; }, 5000));
    second.addOperation(shared);
    ASSERT_TRUE(vkWaitUntil([&] { return shared->startsOn(second.thread()) == 2; }, 5000));
    EXPECT_TRUE(first.operations().isEmpty());
    EXPECT_TRUE(second.operations().isEmpty());
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

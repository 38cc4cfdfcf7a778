// Operations, operation chains and the serial queue.
#include "Application/VKConcurrentOperation.h"
#include "Application/VKOperationChain.h"
#include "Application/VKSingleThreadOperationQueue.h"
#include "Foundation/VKException.h"
#include "Foundation/VKOperationQueue.h"

#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <numeric>
#include <thread>
#include <vector>

namespace {

// The numbers of recorded operations in the order they ran, and their threads.
struct Record
{
    std::mutex mutex;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
};

// Adds its number and thread to the record, then does `then`.
struct RecordedOperation : VKOperation
{
    RecordedOperation(int number, Record &record) : number(number), record(record) {}
    void main() override
    {
        {
            std::lock_guard lock(record.mutex);
            record.order.push_back(number);
            record.threads.push_back(std::this_thread::get_id());
        }
        if (then)
            then();
    }
    int number;
    Record &record;
    std::function<void()> then;
};

std::shared_ptr<RecordedOperation> recorded(int number, Record &record)
{
    return std::make_shared<RecordedOperation>(number, record);
}

// Records "key=new value" for each announcement of the keys.
void announcements(VKObservable &object, const QStringList &keys, std::vector<QString> &events)
{
    for (const QString &key : keys)
        object.observe(key, VKKeyValueObservingOptionNew,
                       [&events](VKObservable *, const QString &k, const VKKeyValueChange &change) {
                           events.push_back(k + "=" + change.newValue.toString());
                       });
}

const VKError kDiskFull = VKError::errorWithDescription(VQErrorDomainVessanUtilities, 28, "full");

} // namespace

// A concurrent operation that fails has the failure in place when it is announced, then ends on
// the calling thread: the hook, executing, finished. Its dependants do not become ready.
TEST(ConcurrentOperation, FailureIsInPlaceBeforeItIsAnnouncedThenEndsInOrderAndStopsDependants)
{
    EXPECT_EQ(vkRaisedBy([] { VKConcurrentOperation().start(); }),
              VKInvalidArgumentException + "|Called Abstract Medod");
    std::vector<QString> events;
    struct Manual : VKConcurrentOperation
    {
        void start() override { setExecuting(true); }
        void willFinish() override { events->push_back("willFinish"); }
        std::vector<QString> *events = nullptr;
    };
    auto failing = std::make_shared<Manual>();
    failing->events = &events;
    auto dependant = std::make_shared<VKOperation>();
    dependant->addDependency(failing);
    failing->start();
    announcements(*failing, {"isFailed", "isExecuting", "isFinished"}, events);
    failing->observe("isFailed", 0, [&](VKObservable *object, const QString &, const auto &) {
        events.push_back(object->valueForKey("error").value<VKError>().localizedDescription());
    });
    failing->fail(kDiskFull);
    EXPECT_EQ(events, (std::vector<QString>{"isFailed=true", "full", "willFinish",
                                            "isExecuting=false", "isFinished=true"}));
    failing->waitUntilFinished(); // the end reached the base class
    EXPECT_EQ(dependant->valueForKey("isReady"), QVariant(false));
}

// Cancelling goes from the last operation to the first. The first cancellation and the first
// failure are announced once; a cancelled operation is no failed one.
TEST(OperationChain, CancelGoesFromLastToFirstAndFirstCancellationAndFailureAreReportedOnce)
{
    auto chain = VKOperationChain::operationChain();
    std::vector<QString> events;
    for (const QString name : {"first", "second", "third"}) {
        auto operation = std::make_shared<VKOperation>();
        operation->observe("isCancelled", 0,
                           [&events, name](VKObservable *, const QString &, const auto &) {
                               events.push_back(name);
                           });
        chain->addOperation(operation);
    }
    announcements(*chain, {"isCancelled", "isFailed"}, events);
    chain->cancel();
    const auto operations = chain->allOperations();
    operations[1]->fail(kDiskFull);
    operations[2]->fail(VKError(VQErrorDomainVessanUtilities, 5));
    EXPECT_EQ(events, (std::vector<QString>{"third", "isCancelled=true", "second", "first",
                                            "isFailed=true"}));
    EXPECT_EQ(std::pair(chain->failedOperation(), chain->error()),
              std::pair(operations[1], kDiskFull));
}

// A thousand chained operations run in order on the platform queue's four threads; only the last
// is followed for finishing. Two late ones take over: the first fails, with its operation and error
// in place when that is announced, and the second never runs. Repeats are ignored; removal leaves
// the dependencies and every observation goes.
TEST(OperationChain, ThousandOperationsOnThePlatformQueueThenALateFailure)
{
    Record record;
    auto chain = VKOperationChain::operationChain();
    chain->removeAllOperations(); // empty: nothing happens
    QList<std::shared_ptr<VKOperation>> operations;
    for (int i = 0; i < 1002; ++i)
        operations.append(recorded(i, record));
    const VKError failure(VQErrorDomainVessanUtilities, 1000);
    auto &failing = static_cast<RecordedOperation &>(*operations[1000]);
    failing.then = [&] { failing.fail(failure); };
    chain->addOperationFromArray(operations.mid(0, 1000) + operations.mid(0, 2));
    EXPECT_EQ(chain->allOperations(), operations.mid(0, 1000));
    std::vector<QString> events;
    announcements(*chain, {"isFailed", "isFinished"}, events);
    chain->observe("isFailed", 0, [&](VKObservable *, const QString &, const auto &) {
        const QVariant failed = chain->valueForKey("failedOperation");
        EXPECT_EQ(failed.value<std::shared_ptr<VKOperation>>(), operations[1000]);
        EXPECT_EQ(chain->valueForKey("error").value<VKError>(), failure);
    });
    {
        VKOperationQueue queue;
        queue.setMaxConcurrentOperationCount(4);
        chain->enqueueOperationsToOperationQueue(queue);
        queue.waitUntilAllOperationsAreFinished();
        chain->addOperationFromArray(operations.mid(1000)); // the flag stays true meanwhile
        EXPECT_TRUE(operations[1000]->isReady() && chain->isFinished());
        queue.addOperation(operations[1000]);
        queue.addOperation(operations[1001]);
        operations[1000]->waitUntilFinished();
    }
    chain->removeAllOperations();
    EXPECT_EQ(operations[1001]->dependencies(),
              QList<std::shared_ptr<VKOperationBase>>{operations[1000]});
    for (const QString key : {"isFinished", "isCancelled", "isFailed"})
        EXPECT_FALSE(std::any_of(operations.begin(), operations.end(), [&](const auto &operation) {
            return operation->hasObserversForKey(key);
        })) << key;
    std::vector<int> expected(1001);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(record.order, expected);
    EXPECT_EQ(events, (std::vector<QString>{"isFinished=true", "isFailed=true"}));
}

// Nothing starts while the queue is suspended. A concurrent operation still executing holds back
// only its dependants, but a dependant first in line holds back all behind it until its readiness
// wakes the worker. A cancelled operation is started in its turn; repeated adds are ignored; what
// still waits when the queue goes is cancelled without being started.
TEST(SerialQueue, HeldBackOperationsRunInOrderOnceReleasedOrAreCancelledWithTheQueue)
{
    struct Detached : VKConcurrentOperation
    {
        void start() override { setExecuting(true); }
    };
    Record record;
    auto detached = std::make_shared<Detached>();
    auto independent = recorded(0, record);
    auto dependant = recorded(1, record);
    dependant->addDependency(detached);
    auto cancelled = recorded(2, record), behind = recorded(3, record), left = recorded(4, record);
    cancelled->cancel();
    {
        VKSingleThreadOperationQueue queue;
        queue.setSuspended(true);
        queue.addOperations({detached, independent, dependant, cancelled, behind, dependant},
                            false);
        queue.addOperation(behind);
        EXPECT_EQ(queue.operations(), (QList<std::shared_ptr<VKOperationBase>>{
                                          detached, independent, dependant, cancelled, behind}));
        vkSpinEventLoop(30);
        EXPECT_FALSE(detached->isExecuting());
        queue.setSuspended(false);
        ASSERT_TRUE(vkWaitUntil([&] { return independent->isFinished(); }));
        vkSpinEventLoop(30);
        EXPECT_EQ(queue.operations(),
                  (QList<std::shared_ptr<VKOperationBase>>{dependant, cancelled, behind}));
        detached->finish();
        ASSERT_TRUE(vkWaitUntil([&] { return behind->isFinished(); }));
        EXPECT_TRUE(queue.operations().isEmpty() && cancelled->isFinished());
        queue.setSuspended(true);
        queue.addOperation(left);
    }
    EXPECT_EQ(record.order, (std::vector<int>{0, 1, 3}));
    EXPECT_EQ(std::pair(left->isCancelled(), left->isFinished()), std::pair(true, false));
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

// An operation may wait in several serial queues at once: a repeated add is ignored only by the
// queue it already waits in, and each queue runs it once in its turn.
TEST(SerialQueue, OperationWaitingInSeveralQueuesRunsOnceInEach)
{
    // Never changes state, so that it can run in both.
    struct Restartable : VKOperationBase
    {
        void start() override { ++starts; }
        std::atomic<int> starts{0};
    };
    auto shared = std::make_shared<Restartable>();
    VKSingleThreadOperationQueue first, second;
    first.setMaxConcurrentOperationCount(4);
    first.addOperation(nullptr); // nothing arrives: no thread yet
    EXPECT_EQ(std::pair(first.maxConcurrentOperationCount(), first.thread()),
              std::pair(1, std::thread::id()));
    EXPECT_EQ(vkRaisedBy([&] { first.removeOperation(shared); }),
              VKInvalidArgumentException + "|Method not implemented yet");
    first.setSuspended(true);
    second.setSuspended(true);
    for (int round = 0; round < 2; ++round) {
        first.addOperation(shared);
        second.addOperation(shared);
    }
    EXPECT_EQ(std::pair(first.operations().size(), second.operations().size()),
              std::pair(qsizetype(1), qsizetype(1)));
    first.setSuspended(false);
    ASSERT_TRUE(vkWaitUntil([&] { return shared->starts == 1; }));
    // Gone from the first queue, still waiting in the suspended second.
    first.addOperation(shared);
    second.addOperation(shared);
    ASSERT_TRUE(vkWaitUntil([&] { return shared->starts == 2; }));
    EXPECT_EQ(second.operations().size(), 1);
    second.setSuspended(false);
    ASSERT_TRUE(vkWaitUntil([&] { return shared->starts == 3; }));
    second.addOperation(shared);
    ASSERT_TRUE(vkWaitUntil([&] { return shared->starts == 4; }));
    EXPECT_TRUE(first.operations().isEmpty() && second.operations().isEmpty());
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
    std::vector<std::thread> adders;
    for (int t = 0; t < kThreads; ++t)
        adders.emplace_back([&, t] {
            for (int i = t * kPerThread; i < (t + 1) * kPerThread; ++i) {
                auto operation = recorded(i, record);
                std::lock_guard lock(arrival);
                arrived.push_back(i);
                queue.addOperation(operation);
            }
        });
    for (auto &adder : adders)
        adder.join();
    // The last one adds one more to its own queue as it runs.
    auto last = recorded(-1, record), added = recorded(-2, record);
    last->then = [&] { queue.addOperation(added); };
    arrived.insert(arrived.end(), {-1, -2});
    queue.addOperation(last);
    ASSERT_TRUE(vkWaitUntil([&] { return added->isFinished(); }, 60000));
    std::lock_guard lock(record.mutex);
    EXPECT_EQ(record.order, arrived);
    EXPECT_EQ(record.threads, std::vector(arrived.size(), queue.thread()));
}

TEST(SerialQueueDeathTest, ExceptionFromStartEndsTheProcessAfterLoggingTheOperation)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Record record;
    auto throwing = recorded(1, record);
    throwing->then = [] { throw std::runtime_error("tape jammed"); };
    VKSingleThreadOperationQueue queue;
    EXPECT_DEATH(queue.addOperations({throwing, recorded(2, record)}, true),
                 "Operation .*RecordedOperation.* raised an exception: tape jammed");
}

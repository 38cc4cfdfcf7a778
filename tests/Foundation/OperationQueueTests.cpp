#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKException.h"
#include "Foundation/VKOperationQueue.h"

#include "../support/VKTestDeadline.h"
#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <QThread>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

namespace {

class RecordingOperation : public VKOperationBase
{
public:
    explicit RecordingOperation(std::atomic<int> *clock = nullptr) : m_clock(clock) {}
    void main() override
    {
        for (const auto &dependency : dependencies())
            if (!dependency->isFinished())
                ++dependencyViolations;
        startedAt = m_clock ? (*m_clock)++ : 0;
        if (release)
            while (!release->load())
                QThread::usleep(100);
        thread = QThread::currentThreadId();
    }
    std::atomic<int> *m_clock;
    std::atomic<bool> *release = nullptr;
    int startedAt = -1;
    std::atomic<int> dependencyViolations{0};
    Qt::HANDLE thread = nullptr;
};

// Work that begins in start() and ends on another thread, after `delayMs` (0: racing the
// worker's return from start()). Counts how many such operations execute at once.
class AsyncOperation : public VKOperationBase
{
public:
    explicit AsyncOperation(int delayMs = 5, std::atomic<int> *inside = nullptr,
                            std::atomic<int> *most = nullptr)
        : m_delayMs(delayMs), m_inside(inside), m_most(most)
    {}
    void start() override
    {
        if (m_inside) {
            const int now = ++*m_inside;
            int seen = m_most->load();
            while (now > seen && !m_most->compare_exchange_weak(seen, now)) {
            }
        }
        changeValueForKey("executing", [&] { m_executing = true; });
        m_thread = std::thread([this] {
            if (m_delayMs > 0)
                QThread::msleep(m_delayMs);
            if (m_inside)
                --*m_inside;
            willChangeValueForKey("finished");
            willChangeValueForKey("executing");
            m_executing = false;
            m_finished = true;
            didChangeValueForKey("executing");
            didChangeValueForKey("finished");
        });
    }
    ~AsyncOperation() override { join(); }
    // The ending thread may hold the last reference to a dependant (and through it to this
    // operation) for a moment after the end: join it before letting go.
    void join()
    {
        if (m_thread.joinable())
            m_thread.join();
    }
    bool isExecuting() const override { return m_executing; }
    bool isFinished() const override { return m_finished; }
    bool isConcurrent() const override { return true; }
    QSet<QString> keyPathsForValuesAffectingValueForKey(const QString &key) const override
    {
        if (key == "isFinished")
            return {"finished"};
        if (key == "isExecuting")
            return {"executing"};
        return {};
    }

private:
    const int m_delayMs;
    std::atomic<int> *m_inside, *m_most;
    std::atomic<bool> m_executing{false};
    std::atomic<bool> m_finished{false};
    std::thread m_thread;
};

} // namespace

TEST(Operation, StatesAreAnnouncedInOrderAndWaitingWorks)
{
    auto operation = std::make_shared<RecordingOperation>();
    std::vector<QString> seen;
    for (const QString key : {"isExecuting", "isFinished", "isCancelled", "isReady"})
        operation->observe(key, VKKeyValueObservingOptionNew,
                           [&](VKObservable *, const QString &k, const VKKeyValueChange &change) {
                               seen.push_back(k + "=" + change.newValue.toString());
                           });
    EXPECT_TRUE(operation->isReady());
    operation->start();
    EXPECT_EQ(seen,
              (std::vector<QString>{"isExecuting=true", "isExecuting=false", "isFinished=true"}));
    operation->waitUntilFinished();
    EXPECT_EQ(operation->valueForKey("isFinished"), QVariant(true));
    EXPECT_EQ(operation->valueForKey("isConcurrent"), QVariant(false));
    EXPECT_THROW(operation->valueForKey("isWhatever"), VKException);
}

TEST(Operation, DependencyThatHasNotFinishedKeepsItWaiting)
{
    auto dependency = std::make_shared<RecordingOperation>();
    auto dependent = std::make_shared<RecordingOperation>();
    std::vector<bool> readiness;
    dependent->observe("isReady", VKKeyValueObservingOptionNew | VKKeyValueObservingOptionOld,
                       [&](VKObservable *, const QString &, const VKKeyValueChange &change) {
                           readiness.push_back(change.oldValue.toBool());
                           readiness.push_back(change.newValue.toBool());
                       });
    dependent->addDependency(dependency);
    dependent->addDependency(dependency); // once only
    dependent->addDependency(dependent);  // itself: ignored
    EXPECT_EQ(dependent->dependencies().size(), 1);
    EXPECT_FALSE(dependent->isReady());

    VKOperationQueue queue;
    queue.addOperation(dependent);
    QThread::msleep(30);
    EXPECT_EQ(dependent->startedAt, -1);
    EXPECT_EQ(queue.operations().size(), 1);
    dependency->start(); // on this thread, outside any queue
    dependent->waitUntilFinished();
    EXPECT_EQ(dependent->dependencyViolations.load(), 0);
    EXPECT_EQ(readiness, (std::vector<bool>{true, false, false, true}));
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(queue.operations().isEmpty());
}

TEST(Operation, CancelledOperationFinishesWithoutRunningAndBecomesReady)
{
    auto blocker = std::make_shared<RecordingOperation>();
    auto operation = std::make_shared<RecordingOperation>();
    operation->addDependency(blocker);
    int cancelAnnouncements = 0;
    operation->observe(
        "isCancelled", 0,
        [&](VKObservable *, const QString &, const VKKeyValueChange &) { ++cancelAnnouncements; });
    VKOperationQueue queue;
    queue.addOperation(operation);
    operation->cancel();
    operation->cancel();
    operation->waitUntilFinished();
    EXPECT_EQ(cancelAnnouncements, 1);
    EXPECT_EQ(operation->startedAt, -1); // main never ran
    EXPECT_TRUE(operation->isCancelled());
    EXPECT_FALSE(blocker->isFinished());
}

TEST(OperationQueue, TenThousandOperationsWithRandomDependencies)
{
    constexpr int count = 10000;
    std::atomic<int> clock{0};
    std::vector<std::shared_ptr<RecordingOperation>> operations;
    std::mt19937 random(42);
    for (int i = 0; i < count; ++i) {
        auto operation = std::make_shared<RecordingOperation>(&clock);
        const int dependencyCount = i == 0 ? 0 : static_cast<int>(random() % 4);
        for (int k = 0; k < dependencyCount; ++k)
            operation->addDependency(operations[random() % i]);
        operations.push_back(operation);
    }
    VKOperationQueue queue;
    queue.setMaxConcurrentOperationCount(4);
    // Added in reverse, so that most operations wait for ones added later.
    for (int i = count - 1; i >= 0; --i)
        queue.addOperation(operations[i]);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(queue.operationCount(), 0);
    for (const auto &operation : operations) {
        ASSERT_TRUE(operation->isFinished());
        ASSERT_EQ(operation->dependencyViolations.load(), 0);
        for (const auto &dependency : operation->dependencies())
            ASSERT_LT(std::static_pointer_cast<RecordingOperation>(dependency)->startedAt,
                      operation->startedAt);
    }
    EXPECT_EQ(clock.load(), count);
}

TEST(OperationQueue, HonoursTheConcurrencyLimitAndSuspension)
{
    VKOperationQueue queue;
    EXPECT_EQ(queue.maxConcurrentOperationCount(),
              VKOperationQueueDefaultMaxConcurrentOperationCount);
    queue.setMaxConcurrentOperationCount(2);
    std::atomic<int> inside{0}, most{0};
    QList<std::shared_ptr<VKOperationBase>> batch;
    for (int i = 0; i < 12; ++i)
        batch.append(std::make_shared<RecordingOperation>());
    std::atomic<int> done{0};
    auto counting = [&] {
        const int now = ++inside;
        int seen = most.load();
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        QThread::msleep(2);
        --inside;
        ++done;
    };
    for (int i = 0; i < 12; ++i)
        queue.addOperationWithBlock(counting);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(done.load(), 12);
    EXPECT_EQ(most.load(), 2);

    queue.setSuspended(true);
    std::vector<int> order;
    std::mutex orderMutex;
    queue.setMaxConcurrentOperationCount(1);
    for (int i = 0; i < 3; ++i)
        queue.addOperationWithBlock([&, i] {
            std::lock_guard lock(orderMutex);
            order.push_back(i);
        });
    QThread::msleep(20);
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(queue.operationCount(), 3);
    queue.setSuspended(false);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));

    queue.addOperations(batch, true);
    for (const auto &operation : batch)
        EXPECT_TRUE(operation->isFinished());
}

// Operations start in the order of addition among the ready ones, whatever the order in which
// they became ready, and one that became not ready again drops out of that order.
TEST(OperationQueue, ReadyOperationsStartInTheOrderOfAddition)
{
    struct Case
    {
        const char *name;
        std::vector<int> becomeReady;
        std::vector<int> blockedAgain;
        std::vector<int> expectedStarts;
    };
    const std::vector<Case> cases = {
        {"in order", {0, 1, 2, 3, 4}, {}, {0, 1, 2, 3, 4}},
        {"reversed", {4, 3, 2, 1, 0}, {}, {0, 1, 2, 3, 4}},
        {"middle first", {2, 0, 4, 1, 3}, {}, {0, 1, 2, 3, 4}},
        {"some stay waiting", {3, 1}, {}, {1, 3}},
        {"first and last only", {4, 0}, {}, {0, 4}},
        {"blocked again in the middle", {0, 1, 2, 3, 4}, {2}, {0, 1, 3, 4}},
        {"blocked again at both ends", {4, 3, 2, 1, 0}, {0, 4}, {1, 2, 3}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        VKOperationQueue queue;
        queue.setMaxConcurrentOperationCount(1);
        queue.setSuspended(true);
        std::atomic<int> clock{0};
        std::vector<std::shared_ptr<VKOperationBase>> gates;
        std::vector<std::shared_ptr<RecordingOperation>> operations;
        for (int i = 0; i < 5; ++i) {
            gates.push_back(std::make_shared<VKOperationBase>());
            operations.push_back(std::make_shared<RecordingOperation>(&clock));
            operations.back()->addDependency(gates.back());
            queue.addOperation(operations.back());
        }
        for (int i : c.becomeReady)
            gates[i]->start();
        auto lastGate = std::make_shared<VKOperationBase>();
        for (int i : c.blockedAgain)
            operations[i]->addDependency(lastGate);
        EXPECT_EQ(queue.operationCount(), 5);
        queue.setSuspended(false);
        for (int i : c.expectedStarts)
            operations[i]->waitUntilFinished();
        std::vector<int> started;
        for (int order = 0; order < int(c.expectedStarts.size()); ++order)
            for (int i = 0; i < 5; ++i)
                if (operations[i]->startedAt == order)
                    started.push_back(i);
        EXPECT_EQ(started, c.expectedStarts);
        const int left = 5 - int(c.expectedStarts.size());
        EXPECT_TRUE(vkWaitUntil([&] { return queue.operationCount() == left; }));
        // The rest still runs once ready.
        for (auto &gate : gates)
            if (!gate->isFinished())
                gate->start();
        lastGate->start();
        queue.waitUntilAllOperationsAreFinished();
        EXPECT_EQ(clock.load(), 5);
    }
}

// Operations and queues refuse what they cannot do, with exact texts.
TEST(OperationQueue, RefusalsHaveExactTexts)
{
    VKOperationQueue first, second;
    first.setSuspended(true);
    auto queued = std::make_shared<RecordingOperation>();
    first.addOperation(queued);
    auto finished = std::make_shared<RecordingOperation>();
    finished->start();
    auto waiting = std::make_shared<RecordingOperation>();
    waiting->addDependency(queued);
    const QString operationClass = "(anonymous namespace)::RecordingOperation";
    struct Case
    {
        const char *name;
        std::function<void()> action;
        QString reason;
    };
    const Case cases[] = {
        {"starting a finished operation", [&] { finished->start(); },
         "*** -[" + operationClass + " start]: receiver is finished and cannot be started"},
        {"starting an operation that is not ready", [&] { waiting->start(); },
         "*** -[" + operationClass + " start]: receiver is not yet ready to execute"},
        {"a null dependency", [&] { waiting->addDependency(nullptr); },
         "*** -[" + operationClass + " addDependency:]: operation must not be nil"},
        {"queuing null", [&] { first.addOperation(nullptr); },
         "*** -[VKOperationQueue addOperation:]: operation must not be nil"},
        {"queuing an operation of another queue", [&] { second.addOperation(queued); },
         "*** -[VKOperationQueue addOperation:]: operation is already enqueued on a queue"},
        {"queuing a finished operation", [&] { second.addOperation(finished); },
         "*** -[VKOperationQueue addOperation:]: operation is finished and cannot be enqueued"},
        {"a negative concurrency limit", [&] { second.setMaxConcurrentOperationCount(-2); },
         "*** -[VKOperationQueue setMaxConcurrentOperationCount:]: count (-2) cannot be "
         "negative"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(vkRaisedBy(c.action), VKInvalidArgumentException + u'|' + c.reason) << c.name;
    EXPECT_FALSE(waiting->isExecuting());
    first.setSuspended(false);
    first.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(queued->isFinished());
}

// The end of a concurrent operation comes from its own thread: after start() returned, or
// racing the worker still inside start(). Either way the slot is freed exactly once.
TEST(OperationQueue, ConcurrentOperationsHoldTheirSlotUntilTheyFinish)
{
    struct Case
    {
        const char *name;
        int delayMs;
        int count;
    };
    const Case cases[] = {{"ends after start returned", 5, 3}, {"ends racing start", 0, 400}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        vkFinishesWithin(20, c.name, [&] {
            VKOperationQueue queue;
            queue.setMaxConcurrentOperationCount(1);
            std::atomic<int> inside{0}, most{0}, blocksSeeingUnfinished{0};
            std::vector<std::shared_ptr<AsyncOperation>> asyncs;
            for (int i = 0; i < c.count; ++i) {
                asyncs.push_back(std::make_shared<AsyncOperation>(c.delayMs, &inside, &most));
                queue.addOperation(asyncs.back());
                queue.addOperationWithBlock([&, async = asyncs.back()] {
                    if (!async->isFinished())
                        ++blocksSeeingUnfinished;
                });
            }
            auto after = std::make_shared<RecordingOperation>();
            after->addDependency(asyncs.back());
            queue.addOperation(after);
            queue.waitUntilAllOperationsAreFinished();
            for (const auto &async : asyncs)
                async->join();
            EXPECT_EQ(blocksSeeingUnfinished.load(), 0);
            EXPECT_EQ(most.load(), 1);
            EXPECT_TRUE(after->isFinished());
            EXPECT_EQ(queue.operationCount(), 0);
        });
    }
}

// Adders take no queue lock while a worker is awake. Adds from several threads racing the
// workers' way to sleep are never left waiting (a lost wake-up misses the deadline), nothing is
// lost or run twice, and with one worker each adder's operations start in its order of adding.
TEST(OperationQueue, AddsRacingWorkersGoingToSleepAreNeverLost)
{
    struct Case
    {
        const char *name;
        int workers;
        int adders;
        // Whether an adder waits for each operation before the next (else for three in four).
        bool waitsForEach;
    };
    const Case cases[] = {
        // Nobody else's add can make up for a wake-up that this one lost.
        {"one adder, one worker, each awaited", 1, 1, true},
        {"three adders, one worker", 1, 3, false},
        {"three adders, four workers", 4, 3, false},
    };
    constexpr int kPerAdder = 1500;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        vkFinishesWithin(30, c.name, [&] {
            VKOperationQueue queue;
            queue.setMaxConcurrentOperationCount(c.workers);
            std::mutex mutex;
            std::vector<std::vector<int>> started(c.adders);
            std::vector<std::thread> adders;
            for (int a = 0; a < c.adders; ++a)
                adders.emplace_back([&, a] {
                    for (int i = 0; i < kPerAdder; ++i) {
                        auto operation = queue.addOperationWithBlock([&, a, i] {
                            std::lock_guard lock(mutex);
                            started[a].push_back(i);
                        });
                        // Mostly one at a time, so that workers keep falling asleep.
                        if (c.waitsForEach || i % 4 != 0)
                            operation->waitUntilFinished();
                    }
                });
            for (auto &adder : adders)
                adder.join();
            queue.waitUntilAllOperationsAreFinished();
            EXPECT_EQ(queue.operationCount(), 0);
            std::vector<int> all(kPerAdder);
            std::iota(all.begin(), all.end(), 0);
            for (auto &ran : started) {
                if (c.workers > 1)
                    std::sort(ran.begin(), ran.end());
                EXPECT_EQ(ran, all);
            }
        });
    }
}

TEST(OperationQueue, AnExceptionInOperationIsLoggedAndTheQueueGoesOn)
{
    VKLogCapture capture;
    VKOperationQueue queue;
    auto failing = queue.addOperationWithBlock([] { throw std::runtime_error("disk gone"); });
    failing->setName("copy");
    std::atomic<bool> ranNext{false};
    queue.addOperationWithBlock([&] { ranNext = true; });
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(ranNext);
    EXPECT_TRUE(failing->isFinished());
    ASSERT_EQ(capture.messages().size(), 1);
    EXPECT_TRUE(capture.messages().first().endsWith("raised an exception: disk gone"));
}

TEST(Operation, DependencyAddedWhileItFinishesIsCounted)
{
    // A prior observer of the dependency's end holds the change open while the dependency is
    // added; the dependant must still become ready.
    for (int round = 0; round < 200; ++round) {
        auto dependency = std::make_shared<RecordingOperation>();
        auto dependant = std::make_shared<RecordingOperation>();
        std::atomic<bool> ending{false}, added{false};
        dependency->observe("isFinished", VKKeyValueObservingOptionPrior,
                            [&](VKObservable *, const QString &, const VKKeyValueChange &change) {
                                if (!change.isPrior)
                                    return;
                                ending = true;
                                while (!added)
                                    std::this_thread::yield();
                            });
        std::thread finisher([&] { dependency->start(); });
        while (!ending)
            std::this_thread::yield();
        dependant->addDependency(dependency);
        added = true;
        finisher.join();
        ASSERT_TRUE(dependant->isReady()) << "round " << round;
        vkFinishesWithin(10, "waiting for an operation finished by another thread", [&] {
            std::thread starter([&] { dependant->start(); });
            dependant->waitUntilFinished();
            starter.join();
        });
    }
}

namespace {
// start() refuses without changing state; `staysReady` says whether it still counts as ready.
class RefusingOperation : public VKOperationBase
{
public:
    explicit RefusingOperation(bool staysReady) : m_staysReady(staysReady) {}
    void start() override
    {
        // Refuses every time while it stays ready, once otherwise.
        if (++starts == 1 || m_staysReady) {
            if (!m_staysReady)
                changeValueForKey("isReady", [&] { m_blocked = true; });
            throw std::runtime_error("refused");
        }
        VKOperationBase::start();
    }
    bool isReady() const override { return !m_blocked && VKOperationBase::isReady(); }
    void unblock()
    {
        changeValueForKey("isReady", [&] { m_blocked = false; });
    }
    std::atomic<int> starts{0};

private:
    const bool m_staysReady;
    std::atomic<bool> m_blocked{false};
};
} // namespace

TEST(OperationQueue, StartThatThrowsWithoutChangingStateRetiresTheOperation)
{
    struct Case
    {
        const char *name;
        bool staysReady;
        int queuedAfterRefusal;
    };
    const Case cases[] = {{"still ready: retired", true, 0},
                          {"no longer ready: waits to be started again", false, 1}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        VKLogCapture capture;
        VKOperationQueue queue;
        auto operation = std::make_shared<RefusingOperation>(c.staysReady);
        queue.addOperation(operation);
        vkFinishesWithin(10, c.name, [&] {
            ASSERT_TRUE(vkWaitUntil([&] {
                return operation->starts.load() >= 1 &&
                       queue.operationCount() == c.queuedAfterRefusal &&
                       capture.messages().size() == 1;
            }));
            if (!c.staysReady) {
                operation->unblock();
                operation->waitUntilFinished();
                queue.waitUntilAllOperationsAreFinished();
            }
        });
        EXPECT_EQ(operation->starts.load(), c.staysReady ? 1 : 2);
        EXPECT_EQ(operation->isFinished(), !c.staysReady);
        EXPECT_EQ(queue.operationCount(), 0);
        ASSERT_EQ(capture.messages().size(), 1);
        EXPECT_TRUE(capture.messages().first().endsWith("raised an exception: refused"));
    }
}

TEST(OperationQueue, StateGettersMayCallBackIntoTheQueue)
{
    // The queue must not hold its lock while it asks an operation for its state.
    class Curious : public RecordingOperation
    {
    public:
        explicit Curious(VKOperationQueue &queue) : m_queue(queue) {}
        bool isReady() const override
        {
            m_queue.operationCount();
            return RecordingOperation::isReady();
        }
        bool isFinished() const override
        {
            m_queue.operationCount();
            return RecordingOperation::isFinished();
        }

    private:
        VKOperationQueue &m_queue;
    };
    vkFinishesWithin(10, "state getters calling into the queue", [] {
        VKOperationQueue queue;
        auto blocker = std::make_shared<RecordingOperation>();
        auto operation = std::make_shared<Curious>(queue);
        operation->addDependency(blocker);
        queue.addOperation(operation);
        queue.addOperation(blocker);
        queue.waitUntilAllOperationsAreFinished();
        EXPECT_TRUE(operation->isFinished());
    });
}

namespace {
struct Exporter
{
    virtual ~Exporter() = default;
    virtual QString kind() const = 0;
};
struct VKTestMovieExporter : Exporter
{
    QString kind() const override { return "movie"; }
};
struct VKTestStillExporter : VKTestMovieExporter
{
    QString kind() const override { return "still"; }
};
struct VKTestAudioPlugin
{
};
} // namespace

VK_REGISTER_ROOT_CLASS(Exporter)
VK_REGISTER_CLASS(VKTestMovieExporter, Exporter)
VK_REGISTER_CLASS(VKTestStillExporter, VKTestMovieExporter)
VK_REGISTER_ROOT_CLASS(VKTestAudioPlugin)

TEST(ClassRegistry, LooksUpCreatesAndDiscoversRegisteredClasses)
{
    const auto info = VKClassRegistry::classNamed("VKTestStillExporter");
    ASSERT_TRUE(info.has_value());
    EXPECT_EQ(info->baseName, "VKTestMovieExporter");
    EXPECT_FALSE(VKClassRegistry::classNamed("Exporter")->canCreate); // abstract
    EXPECT_FALSE(VKClassRegistry::classNamed("VKTestNothing").has_value());

    EXPECT_TRUE(VKClassRegistry::isSubclassOfClass("VKTestStillExporter", "Exporter"));
    EXPECT_TRUE(VKClassRegistry::isSubclassOfClass("Exporter", "Exporter"));
    EXPECT_FALSE(VKClassRegistry::isSubclassOfClass("Exporter", "VKTestMovieExporter"));
    EXPECT_FALSE(VKClassRegistry::isSubclassOfClass("VKTestAudioPlugin", "Exporter"));

    // Created as the class itself or as any registered base.
    auto still = VKClassRegistry::createInstance<Exporter>("VKTestStillExporter");
    ASSERT_TRUE(still);
    EXPECT_EQ(still->kind(), "still");
    EXPECT_EQ(VKClassRegistry::createInstance<VKTestMovieExporter>("VKTestStillExporter")->kind(),
              "still");
    EXPECT_FALSE(VKClassRegistry::createInstance<Exporter>("Exporter"));
    EXPECT_FALSE(VKClassRegistry::createInstance<Exporter>("VKTestAudioPlugin"));
    EXPECT_FALSE(VKClassRegistry::createInstance<VKTestStillExporter>("VKTestMovieExporter"));
    EXPECT_NE(VKClassRegistry::createInstance<Exporter>("VKTestMovieExporter"),
              VKClassRegistry::createInstance<Exporter>("VKTestMovieExporter"));

    EXPECT_EQ(VKClassRegistry::classNamesWithPrefixes({"VKTestS", "VKTestA"}),
              (QStringList{"VKTestAudioPlugin", "VKTestStillExporter"}));
    EXPECT_EQ(VKClassRegistry::classNamesWithPrefixes({"VKTest"}, "Exporter"),
              (QStringList{"VKTestMovieExporter", "VKTestStillExporter"}));
    EXPECT_EQ(VKClassRegistry::classNamesWithSuffix("Exporter", "VKTestMovieExporter"),
              (QStringList{"VKTestMovieExporter", "VKTestStillExporter"}));
    EXPECT_TRUE(VKClassRegistry::classNamesWithSuffix("Plugin", "Exporter").isEmpty());

    VKLogCapture capture;
    EXPECT_FALSE(VKClassRegistry::registerClass<VKTestAudioPlugin>("VKTestMovieExporter"));
    EXPECT_EQ(capture.messages().size(), 1);
    EXPECT_EQ(VKClassRegistry::createInstance<Exporter>("VKTestMovieExporter")->kind(), "movie");
    ASSERT_TRUE(VKClassRegistry::registerClass<VKTestAudioPlugin>(
        "VKTestTemporary", {}, [] { return std::shared_ptr<VKTestAudioPlugin>(); }));
    EXPECT_FALSE(
        VKClassRegistry::createInstance<VKTestAudioPlugin>("VKTestTemporary")); // factory said null
    EXPECT_TRUE(VKClassRegistry::unregisterClass("VKTestTemporary"));
    EXPECT_FALSE(VKClassRegistry::unregisterClass("VKTestTemporary"));
}

TEST(ClassRegistry, LogsWithoutHoldingItsLock)
{
    // A log sink that looks classes up while the registry reports a refused registration.
    class LookingSink : public VKLogSink
    {
    public:
        void write(const VKLogEntry &) override { known = VKClassRegistry::allClassNames().size(); }
        std::atomic<qsizetype> known{0};
    };
    auto sink = std::make_shared<LookingSink>();
    const auto previous = VKLogger::shared().sinks();
    VKLogger::shared().setSinks({sink});
    vkFinishesWithin(10, "class registry logging under its lock", [] {
        EXPECT_FALSE(VKClassRegistry::registerClass<VKTestAudioPlugin>("VKTestMovieExporter"));
    });
    VKLogger::shared().setSinks(previous);
    EXPECT_GE(sink->known.load(), 4);
}

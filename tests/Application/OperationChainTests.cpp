#include "Application/VKConcurrentOperation.h"
#include "Application/VKOperationChain.h"
#include "Foundation/VKException.h"
#include "Foundation/VKOperationQueue.h"

#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <mutex>
#include <numeric>
#include <optional>
#include <random>
#include <vector>

namespace {

// Appends its number to a shared log when it runs; fails instead when told to.
class LoggingOperation : public VKOperation
{
public:
    LoggingOperation(int number, std::vector<int> *log, std::mutex *mutex)
        : m_number(number), m_log(log), m_mutex(mutex)
    {}
    void main() override
    {
        {
            std::lock_guard lock(*m_mutex);
            m_log->push_back(m_number);
        }
        if (failWith)
            fail(*failWith);
    }
    std::optional<VKError> failWith;

private:
    int m_number;
    std::vector<int> *m_log;
    std::mutex *m_mutex;
};

// Records "key=new value" for each announcement of the keys.
void record(VKObservable &object, const QStringList &keys, std::vector<QString> &events,
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
        record(*operation, {"isFailed", "isExecuting", "isFinished"}, events);
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
    record(*chain, {"isCancelled", "isFailed"}, events);
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
    std::vector<int> ran;
    std::mutex mutex;
    auto chain = VKOperationChain::operationChain();
    std::vector<QString> events;
    record(*chain, {"isFinished"}, events, &mutex);
    VKOperationQueue queue;
    for (int i = 0; i < 3; ++i)
        chain->addOperation(std::make_shared<LoggingOperation>(i, &ran, &mutex));
    chain->enqueueOperationsToOperationQueue(queue);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(chain->isFinished());
    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2}));

    // A late addition becomes the followed last operation; the flag stays true meanwhile.
    auto late = std::make_shared<LoggingOperation>(3, &ran, &mutex);
    chain->addOperation(late);
    EXPECT_TRUE(late->isReady());
    EXPECT_TRUE(chain->isFinished());
    queue.addOperation(late);
    queue.waitUntilAllOperationsAreFinished();
    std::lock_guard lock(mutex);
    EXPECT_EQ(events, (std::vector<QString>{"isFinished=true", "isFinished=true"}));
}

// The failure is announced once, its operation and error first and in place by the time
// isFailed is announced, and nothing after it runs.
TEST(OperationChain, ThousandOperationsOnThePlatformQueueStopAtARandomFailure)
{
    std::mt19937 random(std::random_device{}());
    const int failAt = std::uniform_int_distribution<int>(0, 999)(random);
    SCOPED_TRACE(failAt);
    std::vector<int> ran;
    std::mutex mutex;
    auto chain = VKOperationChain::operationChain();
    const VKError failure(VQErrorDomainVessanUtilities, failAt);
    QList<std::shared_ptr<VKOperation>> operations;
    for (int i = 0; i < 1000; ++i) {
        auto operation = std::make_shared<LoggingOperation>(i, &ran, &mutex);
        if (i == failAt)
            operation->failWith = failure;
        operations.append(operation);
    }
    chain->addOperationFromArray(operations);
    std::vector<QString> events;
    record(*chain, {"failedOperation", "error", "isFailed", "isFinished"}, events, &mutex);
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
    std::lock_guard lock(mutex);
    EXPECT_EQ(ran, expected);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(QStringList({events[0].left(16), events[1].left(6), events[2]}),
              QStringList({"failedOperation=", "error=", "isFailed=true"}));
    EXPECT_TRUE(chain->isFailed());
    EXPECT_FALSE(chain->isFinished());
    EXPECT_EQ(chain->valueForKey("failedOperation").value<std::shared_ptr<VKOperation>>(),
              operations[failAt]);
    EXPECT_TRUE(failAt == 999 || !operations[failAt + 1]->isReady());
}

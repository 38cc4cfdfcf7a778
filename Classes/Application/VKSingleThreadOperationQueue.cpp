// Serial operation queue.
//
// States: idle without a thread, running (the worker sleeps on `wake` whenever nothing can
// start), suspended (the worker sleeps after the running operation).
//
// One mutex (`mutex`) guards the waiting list, the current operation, the suspension flag and
// the thread id, and is the lock the worker waits with. The worker tests "first waiting
// operation is ready" under it, takes that operation and releases it before start(), so an
// operation may add to its own queue and adders never wait for a running operation. Adders,
// resuming and the readiness observer change state under the same mutex, so a wake-up cannot
// fall between the worker's test and its wait. The worker sets `sleeping` under the mutex while
// it waits; adders notify only then, after releasing the mutex (a woken worker would otherwise
// block at once on the mutex the adder still holds).
//
// Only the first waiting operation's readiness can wake the worker, so the worker observes
// "isReady" of that one operation, and only when it finds it not ready (registering, then
// testing again, under the mutex): operations that are ready when their turn comes cost no
// observation at all.
//
// The worker keeps the operation it started in `currentOperation` and clears it when it comes
// back for the next one, under the same lock; the reference is dropped after the lock is
// released, since the last one runs the operation's destructor. So one pass of the worker is one
// lock round trip.
//
// The worker thread holds the shared state for the rest of the process; the public object may
// go before it.
#include "Application/VKSingleThreadOperationQueue.h"

#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"

#include <QSet>

#include <condition_variable>
#include <deque>
#include <mutex>

namespace {
const QString kIsReady = QStringLiteral("isReady");

VKLogContext logContext(const char *operation, const void *queue)
{
    return {QStringLiteral("VKSingleThreadOperationQueue"), QString::fromLatin1(operation), queue};
}

// Wakes the worker when the first waiting operation becomes ready.
class ReadinessObserver : public VKKeyValueObserver
{
public:
    std::weak_ptr<VKSingleThreadOperationQueue::Private> queue;
    void observeValueForKeyPath(const QString &keyPath, VKObservable *, const VKKeyValueChange &,
                                void *) override;
};
} // namespace

struct VKSingleThreadOperationQueue::Private
{
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::shared_ptr<VKOperationBase>> operations;
    bool sleeping = false;
    // The waiting operations by identity, for the repeat test.
    QSet<const VKOperationBase *> waiting;
    std::shared_ptr<VKOperationBase> currentOperation;
    bool suspended = false;
    bool threadStarted = false;
    std::thread::id threadId;
    QString name;
    std::shared_ptr<ReadinessObserver> readiness = std::make_shared<ReadinessObserver>();
    // The waiting operation whose "isReady" the worker observes, if any.
    std::shared_ptr<VKOperationBase> observed;

    // Under the mutex. Observes the first waiting operation before judging it, so that a change
    // right after the test still wakes the worker.
    bool canStart()
    {
        if (operations.empty() || suspended)
            return false;
        const auto &first = operations.front();
        if (first->isReady())
            return true;
        if (observed != first) {
            if (observed)
                observed->removeObserver(readiness.get(), kIsReady);
            observed = first;
            first->addObserver(std::shared_ptr<VKKeyValueObserver>(readiness), kIsReady,
                               VKKeyValueObservingOptionNew);
        }
        return first->isReady();
    }

    static void enqueue(const std::shared_ptr<Private> &self);
};

void ReadinessObserver::observeValueForKeyPath(const QString &keyPath, VKObservable *,
                                               const VKKeyValueChange &, void *)
{
    auto state = queue.lock();
    if (!state || keyPath != kIsReady)
        return;
    std::lock_guard lock(state->mutex);
    if (!state->operations.empty() && state->operations.front()->isReady())
        state->wake.notify_all();
}

void VKSingleThreadOperationQueue::Private::enqueue(const std::shared_ptr<Private> &self)
{
    {
        std::lock_guard lock(self->mutex);
        if (std::this_thread::get_id() != self->threadId)
            return;
    }
    for (;;) {
        std::shared_ptr<VKOperationBase> previous;
        VKOperationBase *operation = nullptr;
        {
            std::unique_lock lock(self->mutex);
            previous = std::move(self->currentOperation);
            while (!self->canStart()) {
                self->sleeping = true;
                self->wake.wait(lock);
                self->sleeping = false;
            }
            self->currentOperation = std::move(self->operations.front());
            self->operations.pop_front();
            operation = self->currentOperation.get();
            self->waiting.remove(operation);
            if (self->observed.get() == operation) {
                operation->removeObserver(self->readiness.get(), kIsReady);
                self->observed.reset();
            }
        }
        // Only this thread changes currentOperation: it keeps the operation alive.
        previous.reset();
        try {
            operation->start();
        } catch (const std::exception &exception) {
            VKLogger::error(logContext("-[VKSingleThreadOperationQueue enqueue]", self.get()),
                            "Operation %@ (%p) raised an exception: %@", operation->className(),
                            static_cast<const void *>(operation),
                            QString::fromUtf8(exception.what()));
            throw;
        } catch (...) {
            VKLogger::error(logContext("-[VKSingleThreadOperationQueue enqueue]", self.get()),
                            "Operation %@ (%p) raised an exception", operation->className(),
                            static_cast<const void *>(operation));
            throw;
        }
    }
}

VKSingleThreadOperationQueue::VKSingleThreadOperationQueue() : d(std::make_shared<Private>())
{
    d->readiness->queue = d;
}

VKSingleThreadOperationQueue::~VKSingleThreadOperationQueue()
{
    std::deque<std::shared_ptr<VKOperationBase>> operations;
    std::shared_ptr<VKOperationBase> observed;
    {
        std::lock_guard lock(d->mutex);
        operations.swap(d->operations);
        d->waiting.clear();
        observed = std::move(d->observed);
    }
    if (observed)
        observed->removeObserver(d->readiness.get(), kIsReady);
    for (const auto &operation : operations)
        operation->cancel();
}

void VKSingleThreadOperationQueue::addOperation(const std::shared_ptr<VKOperationBase> &operation)
{
    if (!operation)
        return;
    bool wakeWorker = false;
    {
        std::lock_guard lock(d->mutex);
        if (d->waiting.contains(operation.get()))
            return;
        d->operations.push_back(operation);
        d->waiting.insert(operation.get());
        if (!d->threadStarted) {
            d->threadStarted = true;
            std::thread worker([state = d] { Private::enqueue(state); });
            d->threadId = worker.get_id();
            worker.detach();
        }
        wakeWorker = d->sleeping;
    }
    // The state lives as long as the worker, so it outlives this call.
    if (wakeWorker)
        d->wake.notify_one();
}

void VKSingleThreadOperationQueue::addOperations(
    const QList<std::shared_ptr<VKOperationBase>> &operations, bool waitUntilFinished)
{
    for (const auto &operation : operations)
        addOperation(operation);
    if (waitUntilFinished)
        for (const auto &operation : operations)
            if (operation)
                operation->waitUntilFinished();
}

void VKSingleThreadOperationQueue::removeOperation(const std::shared_ptr<VKOperationBase> &)
{
    throw VKException(VKInvalidArgumentException, QStringLiteral("Method not implemented yet"));
}

bool VKSingleThreadOperationQueue::isSuspended() const
{
    std::lock_guard lock(d->mutex);
    return d->suspended;
}

void VKSingleThreadOperationQueue::setSuspended(bool suspended)
{
    std::lock_guard lock(d->mutex);
    if (d->suspended == suspended)
        return;
    d->suspended = suspended;
    if (!suspended)
        d->wake.notify_all();
}

int VKSingleThreadOperationQueue::maxConcurrentOperationCount() const
{
    return 1;
}

void VKSingleThreadOperationQueue::setMaxConcurrentOperationCount(int) {}

QList<std::shared_ptr<VKOperationBase>> VKSingleThreadOperationQueue::operations() const
{
    std::lock_guard lock(d->mutex);
    return QList<std::shared_ptr<VKOperationBase>>(d->operations.begin(), d->operations.end());
}

std::shared_ptr<VKOperationBase> VKSingleThreadOperationQueue::currentOperation() const
{
    std::lock_guard lock(d->mutex);
    return d->currentOperation;
}

std::thread::id VKSingleThreadOperationQueue::thread() const
{
    std::lock_guard lock(d->mutex);
    return d->threadId;
}

QString VKSingleThreadOperationQueue::name() const
{
    std::lock_guard lock(d->mutex);
    return d->name;
}

void VKSingleThreadOperationQueue::setName(const QString &name)
{
    std::lock_guard lock(d->mutex);
    d->name = name;
}

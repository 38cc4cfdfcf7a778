// Serial operation queue.
//
// States: idle without a thread, running (the worker sleeps on `wake` whenever nothing can
// start), suspended (the worker sleeps after the running operation).
//
// Arrivals. An operation waits in a queue either by mark or through the queue's `overflow` set.
// The mark is the operation's serial entry: an adder claims it with a compare-and-swap from null
// to this queue, stores the queue's reference in the entry and pushes the operation on
// `arrivals`, a stack linked through the entries (newest first). The claim is the repeat test
// and the push is the whole add: no lock. An operation already waiting in another serial queue
// (its mark names that one) is added under the mutex instead: appended to `operations` and
// recorded in `overflow`. Arrivals move to `operations`, oldest first, under the mutex, by the
// worker and by every other reader of the list before it looks, so the list keeps the order in
// which the adds took effect.
//
// An operation never waits in one queue by mark and through the set at once: the set's adder
// counts itself in `overflowCount` and then reads the mark; a claimer claims and then reads the
// count (all sequentially consistent), so at least one sees the other. The set's adder backs off
// when the mark is now this queue and retries when it is free; a claimer that sees a count looks
// in the set under the mutex and gives the claim back when the operation is there. The entry's
// reference moves to the list when the arrivals are taken; the worker clears the mark, under the
// mutex, when the operation leaves the list; from then on the entry belongs to the next claimer.
//
// One mutex (`mutex`) guards `operations`, `overflow`, the current operation, the suspension
// flag and the thread id, and is the lock the worker waits with. The worker tests "first waiting
// operation is ready" under it, takes that operation and releases it before start(), so an
// operation may add to its own queue and adders never wait for a running operation.
//
// Waking. A worker that finds nothing to start sets `sleeping` under the mutex, moves the
// arrivals once more and only then waits. An adder pushes, then reads `sleeping`; when it is set,
// the adder takes and releases the mutex (the worker is then inside its wait) and notifies. Both
// sides are sequentially consistent, so either the worker's last look finds the arrival or the
// adder sees the flag: no wake-up is lost. Resuming, the set's adders and the readiness observer
// change state under the mutex and notify the same way.
//
// Only the first waiting operation's readiness can wake the worker, so the worker observes
// "isReady" of that one operation, and only when it finds it not ready (registering, then
// testing again, under the mutex): operations that are ready when their turn comes cost no
// observation at all.
//
// The worker keeps the operation it started in `currentOperation` and clears it when it comes
// back for the next one, under the same lock; the reference is dropped after the lock is
// released, since the last one runs the operation's destructor. So one pass of the worker is one
// lock round trip, and nobody else takes that lock in the usual course.
//
// The worker thread holds the shared state for the rest of the process; the public object may
// go before it.
#include "Application/VKSingleThreadOperationQueue.h"

#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKOperationBase_p.h"

#include <QSet>

#include <algorithm>
#include <atomic>
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
    using Entry = VKOperationBase::Private::SerialEntry;
    static Entry &entryOf(VKOperationBase *operation) { return operation->d->serialEntry; }

    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::shared_ptr<VKOperationBase>> operations;
    // The waiting operations that are marked for another queue.
    QSet<const VKOperationBase *> overflow;
    std::shared_ptr<VKOperationBase> currentOperation;
    bool suspended = false;
    std::thread::id threadId;
    QString name;
    std::shared_ptr<ReadinessObserver> readiness = std::make_shared<ReadinessObserver>();
    // The waiting operation whose "isReady" the worker observes, if any.
    std::shared_ptr<VKOperationBase> observed;

    // Operations added by mark and not yet in `operations`, newest first. What adders touch
    // has cache lines of its own, away from what the worker changes at every operation.
    alignas(64) std::atomic<VKOperationBase *> arrivals{nullptr};
    alignas(64) std::atomic<bool> sleeping{false};
    std::atomic<int> overflowCount{0};
    std::atomic<bool> threadStarted{false};

    // Under the mutex: appends the arrivals to `operations`, oldest first.
    void takeArrivalsLocked()
    {
        VKOperationBase *operation = arrivals.exchange(nullptr);
        if (!operation)
            return;
        const auto end = operations.size();
        // The entry's reference moves to the list (the list keeps the operation alive while
        // the walk goes on through its entry).
        for (; operation; operation = entryOf(operation).next)
            operations.push_back(std::move(entryOf(operation).operation));
        std::reverse(operations.begin() + static_cast<std::ptrdiff_t>(end), operations.end());
    }

    // Under the mutex: the operation leaves the waiting list; its entry is free again.
    void releaseLocked(VKOperationBase *operation)
    {
        if (overflowCount.load(std::memory_order_relaxed) > 0 && overflow.remove(operation)) {
            overflowCount.fetch_sub(1);
            return;
        }
        Entry &entry = entryOf(operation);
        entry.operation.reset();
        entry.next = nullptr;
        entry.queue.store(nullptr);
    }

    void wakeIfSleeping()
    {
        if (!sleeping.load())
            return;
        {
            std::lock_guard lock(mutex);
        }
        wake.notify_one();
    }

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

    void add(const std::shared_ptr<Private> &self,
             const std::shared_ptr<VKOperationBase> &operation);
    void startThread(const std::shared_ptr<Private> &self);
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

void VKSingleThreadOperationQueue::Private::startThread(const std::shared_ptr<Private> &self)
{
    std::lock_guard lock(mutex);
    if (threadStarted.load(std::memory_order_relaxed))
        return;
    std::thread worker([self] { Private::enqueue(self); });
    threadId = worker.get_id();
    worker.detach();
    threadStarted.store(true, std::memory_order_release);
}

void VKSingleThreadOperationQueue::Private::add(const std::shared_ptr<Private> &self,
                                                const std::shared_ptr<VKOperationBase> &operation)
{
    if (!threadStarted.load(std::memory_order_acquire))
        startThread(self);
    Entry &entry = entryOf(operation.get());
    for (;;) {
        const void *mark = nullptr;
        if (entry.queue.compare_exchange_strong(mark, this)) {
            if (overflowCount.load() > 0) {
                std::lock_guard lock(mutex);
                if (overflow.contains(operation.get())) {
                    entry.queue.store(nullptr);
                    return;
                }
            }
            entry.operation = operation;
            vkPushArrival(arrivals, operation.get(), entry.next);
            wakeIfSleeping();
            return;
        }
        if (mark == this)
            return; // already waiting here
        // Waiting in another serial queue.
        {
            std::lock_guard lock(mutex);
            if (overflow.contains(operation.get()))
                return;
            overflowCount.fetch_add(1);
            mark = entry.queue.load();
            if (mark && mark != this) {
                takeArrivalsLocked();
                operations.push_back(operation);
                overflow.insert(operation.get());
                if (!sleeping.load())
                    return;
            } else {
                overflowCount.fetch_sub(1);
                if (mark == this)
                    return; // added by mark meanwhile
                continue;   // the mark is free now
            }
        }
        wake.notify_one();
        return;
    }
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
            // Arrivals come after every listed operation: taken in batches, once the list is
            // empty, so that the adders' list is touched once per batch.
            if (self->operations.empty())
                self->takeArrivalsLocked();
            while (!self->canStart()) {
                self->sleeping.store(true);
                self->takeArrivalsLocked();
                if (!self->canStart())
                    self->wake.wait(lock);
                self->sleeping.store(false);
                self->takeArrivalsLocked();
            }
            self->currentOperation = std::move(self->operations.front());
            self->operations.pop_front();
            operation = self->currentOperation.get();
            self->releaseLocked(operation);
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
        d->takeArrivalsLocked();
        operations.swap(d->operations);
        for (const auto &operation : operations)
            d->releaseLocked(operation.get());
        observed = std::move(d->observed);
    }
    if (observed)
        observed->removeObserver(d->readiness.get(), kIsReady);
    for (const auto &operation : operations)
        operation->cancel();
}

void VKSingleThreadOperationQueue::addOperation(const std::shared_ptr<VKOperationBase> &operation)
{
    // The state lives as long as the worker, so it outlives this call.
    if (operation)
        d->add(d, operation);
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
    d->takeArrivalsLocked();
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

// Operation queue.
//
// Each operation it holds has an entry: Arrived (added, not yet in the lists), Waiting (not
// ready), Ready (in the start order) or Running (a worker took it). A Running entry's phase is
// Starting while the worker is inside start(), then Started, or FinishedWhileStarting when the
// end came first. Operations tell
// the queue directly, through VKOperationQueueLink, when their readiness changes and when they
// have finished; the queue never observes them and never calls their getters or start() under
// its own lock. The entries live in the operations (an operation is in one queue at most) and
// are chained into two intrusive lists, every entry and the ready ones, both in the order of
// addition: queuing, starting and retiring an operation allocate nothing.
//
// Adding takes the operation's mutex but not the queue's: the adder sets the link and the entry
// and pushes the operation on `arrivals`, a stack linked through the entries (newest first).
// Every step under the queue's mutex first moves the arrivals into the lists, oldest first, so
// that the lists keep the order of addition and every step sees every arrival; only a worker
// looking for work waits until no listed operation is ready (arrivals come after all of them),
// so that the adders' stack is touched once per batch rather than per operation. The adder
// takes the queue's mutex only when a worker may be needed: when one is asleep (`idle`) or
// fewer have been started than may run (`staffed` is false). A worker about to sleep counts
// itself in `idle` and then moves the arrivals once more; the adder pushes and then reads `idle`
// (both sequentially consistent), so either the worker finds the arrival or the adder sees the
// sleeper and wakes it under the mutex: no wake-up is lost.
//
// Locks: Private::mutex guards the entries of operations in the lists (all but the phase), both
// lists, the counters and the worker list; an Arrived entry belongs to its adder until the push
// and then to whoever takes the arrivals under the mutex. The link calls arrive holding the
// operation's mutex and take only this one (operation before queue, never the other way round).
// Workers run start() without any lock. The phase is atomic: the worker sets Starting under the
// lock, and leaving Starting is claimed by a compare-and-swap, by the worker (to Started, under the
// lock, after start() returned) or by the end (to FinishedWhileStarting, without the lock). So the
// usual end, reported from inside start(), costs no queue lock: the worker retires the operation
// under the lock it takes anyway to fetch the next one.
//
// Invariants:
// - An operation's entry holds it exactly while its link points at this queue; both are set
//   under the operation's mutex (with the push), and cleared together under the operation's
//   mutex and the queue's, except that an end reported while the worker is still inside
//   start() clears the link first and the entry when start() returns (so that what start()
//   logs comes first).
// - The phase is Idle unless the entry is Running; exactly one of the worker and the end
//   leaves Starting, and whoever sees FinishedWhileStarting after that retires under the lock.
// - `running` counts Running entries; at most effectiveMax() start while not suspended.
// - References to finished operations are dropped by a worker outside every lock (the last one
//   may destroy the operation); `retired` holds them until then.
#include "Foundation/VKOperationQueue.h"

#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKOperationBase_p.h"

#include <QThread>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace {

class VKOperationQueueBlockOperation : public VKOperationBase
{
public:
    explicit VKOperationQueueBlockOperation(std::function<void()> block) : m_block(std::move(block))
    {}
    void main() override { m_block(); }
    QString className() const override { return QStringLiteral("VKBlockOperation"); }

private:
    std::function<void()> m_block;
};

} // namespace

struct VKOperationQueue::Private final : VKOperationQueueLink
{
    enum Where { Waiting, Ready, Running };
    using Entry = VKOperationBase::Private::QueueEntry;

    static Entry &entryOf(VKOperationBase *operation) { return operation->d->queueEntry; }

    VKOperationQueue *queue = nullptr;
    mutable std::mutex mutex;
    std::condition_variable workAvailable;
    std::condition_variable emptied;
    // Every queued operation, in the order of addition (links in their entries).
    VKOperationBase *first = nullptr;
    VKOperationBase *last = nullptr;
    int count = 0;
    // In the order of addition, the operations ready to start.
    VKOperationBase *firstReady = nullptr;
    VKOperationBase *lastReady = nullptr;
    size_t readyCount = 0;
    std::vector<std::shared_ptr<VKOperationBase>> retired;
    std::vector<std::thread> workers;
    int running = 0;
    int maxCount = VKOperationQueueDefaultMaxConcurrentOperationCount;
    bool suspended = false;
    bool stopping = false;
    quint64 nextSequence = 0;
    QString name;

    // What adders touch, each on a cache line of its own, away from what the workers change
    // at every operation.
    // Added operations not yet in the lists, newest first (linked through nextArrival).
    alignas(64) std::atomic<VKOperationBase *> arrivals{nullptr};
    // Changed under the mutex; read by adders without it.
    alignas(64) std::atomic<int> idle{0};
    // Every worker that may run has been started.
    std::atomic<bool> staffed{false};

    int effectiveMax() const
    {
        // Asking the system each time would cost a system call per operation.
        static const int cores = std::max(1, QThread::idealThreadCount());
        return maxCount < 0 ? cores : maxCount;
    }

    void appendLocked(VKOperationBase *operation, Entry &entry)
    {
        entry.previous = last;
        entry.next = nullptr;
        (last ? entryOf(last).next : first) = operation;
        last = operation;
        ++count;
    }

    void unlinkLocked(Entry &entry)
    {
        (entry.previous ? entryOf(entry.previous).next : first) = entry.next;
        (entry.next ? entryOf(entry.next).previous : last) = entry.previous;
        entry.previous = entry.next = nullptr;
        --count;
    }

    // Keeps the ready list in the order of addition; usually the operation goes at the end.
    void makeReadyLocked(VKOperationBase *operation, Entry &entry)
    {
        VKOperationBase *after = lastReady;
        while (after && entryOf(after).sequence > entry.sequence)
            after = entryOf(after).previousReady;
        VKOperationBase *before = after ? entryOf(after).nextReady : firstReady;
        entry.previousReady = after;
        entry.nextReady = before;
        (after ? entryOf(after).nextReady : firstReady) = operation;
        (before ? entryOf(before).previousReady : lastReady) = operation;
        entry.where = Ready;
        ++readyCount;
    }

    void unreadyLocked(Entry &entry)
    {
        (entry.previousReady ? entryOf(entry.previousReady).nextReady : firstReady) =
            entry.nextReady;
        (entry.nextReady ? entryOf(entry.nextReady).previousReady : lastReady) =
            entry.previousReady;
        entry.previousReady = entry.nextReady = nullptr;
        --readyCount;
    }

    // Whether the operation is queued here (its link points at this queue).
    bool holdsLocked(VKOperationBase *operation) const
    {
        return operation->d->queue == this && entryOf(operation).operation;
    }

    // Moves the arrivals into the lists, oldest first.
    void takeArrivalsLocked()
    {
        VKOperationBase *operation = arrivals.exchange(nullptr);
        if (!operation)
            return;
        // Reverse the stack into the order of addition.
        VKOperationBase *oldest = nullptr;
        while (operation) {
            Entry &entry = entryOf(operation);
            VKOperationBase *newer = entry.nextArrival;
            entry.nextArrival = oldest;
            oldest = operation;
            operation = newer;
        }
        for (operation = oldest; operation;) {
            Entry &entry = entryOf(operation);
            VKOperationBase *next = entry.nextArrival;
            entry.nextArrival = nullptr;
            entry.sequence = nextSequence++;
            entry.where = Waiting;
            appendLocked(operation, entry);
            if (entry.readyOnArrival)
                makeReadyLocked(operation, entry);
            operation = next;
        }
    }

    // Wakes or starts a worker when there is something to do.
    void spawnWorkersLocked()
    {
        if (stopping)
            return;
        const int max = effectiveMax();
        const auto limit = static_cast<size_t>(std::max(1, max));
        updateStaffedLocked(limit);
        size_t wanted = suspended || running >= max
                            ? 0
                            : std::min(readyCount, static_cast<size_t>(max - running));
        if (!retired.empty())
            wanted = std::max<size_t>(wanted, 1);
        if (wanted == 0)
            return;
        if (idle > 0)
            workAvailable.notify_one();
        for (auto available = static_cast<size_t>(idle);
             available < wanted && workers.size() < limit; ++available)
            workers.emplace_back([this] { work(); });
        updateStaffedLocked(limit);
    }

    // Written only on a change: adders read the flag at every add.
    void updateStaffedLocked(size_t limit)
    {
        const bool now = workers.size() >= limit;
        if (staffed.load(std::memory_order_relaxed) != now)
            staffed.store(now);
    }

    void retireLocked(Entry &entry)
    {
        if (entry.where == Running)
            --running;
        if (entry.where == Ready)
            unreadyLocked(entry);
        entry.where = Waiting;
        entry.phase.store(Entry::Idle, std::memory_order_relaxed);
        unlinkLocked(entry);
        retired.push_back(std::move(entry.operation));
        spawnWorkersLocked();
        if (count == 0)
            emptied.notify_all();
    }

    void operationReadinessChanged(VKOperationBase *operation, bool isReady) override
    {
        std::lock_guard lock(mutex);
        takeArrivalsLocked();
        Entry &entry = entryOf(operation);
        if (!entry.operation || entry.where == Running)
            return;
        if (isReady && entry.where == Waiting) {
            makeReadyLocked(operation, entry);
            spawnWorkersLocked();
        } else if (!isReady && entry.where == Ready) {
            unreadyLocked(entry);
            entry.where = Waiting;
        }
    }

    // Claims the end of a start() still running; answers whether it did.
    static bool finishInsideStart(Entry &entry)
    {
        int expected = Entry::Starting;
        return entry.phase.compare_exchange_strong(expected, Entry::FinishedWhileStarting);
    }

    void operationFinished(VKOperationBase *operation) override
    {
        Entry &entry = entryOf(operation);
        // Usually called from inside start(): the worker retires the operation afterwards.
        if (finishInsideStart(entry))
            return;
        std::lock_guard lock(mutex);
        takeArrivalsLocked();
        if (!entry.operation)
            return;
        // A worker may have taken it since the first look.
        if (entry.where == Running && finishInsideStart(entry))
            return;
        retireLocked(entry);
    }

    // Ends the operation's link to the queue and its entry in one step, so that no other queue
    // can take the operation while its entry is still here.
    void detach(const std::shared_ptr<VKOperationBase> &operation)
    {
        std::lock_guard link(operation->d->mutex);
        std::lock_guard lock(mutex);
        takeArrivalsLocked();
        if (!holdsLocked(operation.get()))
            return;
        operation->d->queue = nullptr;
        retireLocked(entryOf(operation.get()));
    }

    void logFailure(const std::shared_ptr<VKOperationBase> &operation, const QString &what)
    {
        VKLogger::error({QStringLiteral("VKOperationQueue"),
                         QStringLiteral("-[VKOperationQueue startOperation:]"), queue},
                        "Operation %@ (%@) raised an exception%@", operation->className(),
                        operation->name(), what);
    }

    // Runs start() without the lock; answers whether it threw.
    bool start(const std::shared_ptr<VKOperationBase> &operation)
    {
        try {
            operation->start();
            return false;
        } catch (const std::exception &exception) {
            logFailure(operation, QStringLiteral(": ") + QString::fromUtf8(exception.what()));
        } catch (...) {
            logFailure(operation, QString());
        }
        return true;
    }

    // After start() returned, with the lock held (it may be released and taken again).
    void started(std::unique_lock<std::mutex> &lock,
                 const std::shared_ptr<VKOperationBase> &operation, bool failed)
    {
        Entry &entry = entryOf(operation.get());
        if (entry.operation != operation || entry.where != Running)
            return;
        int phase = Entry::Starting;
        if (!entry.phase.compare_exchange_strong(phase, Entry::Started)) {
            if (phase == Entry::FinishedWhileStarting)
                retireLocked(entry);
            return;
        }
        if (!failed)
            return; // a concurrent operation: it keeps its slot until it finishes
        // The getters are the operation's code: asked without the lock.
        lock.unlock();
        const bool untouched = !operation->isExecuting() && !operation->isFinished();
        const bool stillReady = untouched && operation->isReady();
        if (untouched && stillReady) {
            // Starting it again would fail again: give it up.
            detach(operation);
        } else if (untouched) {
            // It became not ready: it waits for its readiness to come back.
            {
                std::lock_guard relock(mutex);
                Entry &again = entryOf(operation.get());
                if (again.operation == operation && again.where == Running) {
                    --running;
                    again.where = Waiting;
                    again.phase.store(Entry::Idle, std::memory_order_relaxed);
                }
            }
            operation->tellQueueOfReadiness();
        }
        lock.lock();
    }

    void work()
    {
        std::unique_lock lock(mutex);
        // Reused from pass to pass, so that dropping references allocates nothing.
        std::vector<std::shared_ptr<VKOperationBase>> dropped;
        for (;;) {
            if (stopping)
                return;
            // Arrivals come after every operation in the lists, so they are taken only when
            // nothing listed is ready: the adders' list is then touched once per batch.
            if (!firstReady)
                takeArrivalsLocked();
            // Takes the next operation and the references to drop in one pass under the lock.
            std::shared_ptr<VKOperationBase> next;
            if (!suspended && running < effectiveMax() && firstReady) {
                Entry &entry = entryOf(firstReady);
                unreadyLocked(entry);
                entry.where = Running;
                entry.phase.store(Entry::Starting);
                ++running;
                next = entry.operation;
                if (idle > 0 && firstReady && running < effectiveMax())
                    workAvailable.notify_one();
            }
            dropped.swap(retired);
            if (!next && dropped.empty()) {
                idle.fetch_add(1);
                // A push before the count is found here; one after it sees the count.
                takeArrivalsLocked();
                if (!firstReady || suspended || running >= effectiveMax())
                    workAvailable.wait(lock);
                idle.fetch_sub(1);
                continue;
            }
            lock.unlock();
            // The last reference may go here, outside the lock.
            dropped.clear();
            if (!next) {
                lock.lock();
                continue;
            }
            const bool failed = start(next);
            lock.lock();
            started(lock, next, failed);
            if (!retired.empty() && retired.back() == next) {
                // Dropped with the next pass's references.
                next.reset();
            } else {
                lock.unlock();
                next.reset();
                lock.lock();
            }
        }
    }
};

VKOperationQueue::VKOperationQueue() : d(std::make_unique<Private>())
{
    d->queue = this;
}

VKOperationQueue::~VKOperationQueue()
{
    std::vector<std::thread> workers;
    {
        std::lock_guard lock(d->mutex);
        d->stopping = true;
        workers.swap(d->workers);
        d->workAvailable.notify_all();
    }
    for (std::thread &worker : workers)
        worker.join();
    QList<std::shared_ptr<VKOperationBase>> remaining = operations();
    // Once its link is cleared no operation can reach the queue.
    for (const auto &operation : remaining)
        d->detach(operation);
    std::vector<std::shared_ptr<VKOperationBase>> dropped;
    {
        std::lock_guard lock(d->mutex);
        dropped.swap(d->retired);
    }
}

void VKOperationQueue::addOperation(const std::shared_ptr<VKOperationBase> &operation)
{
    if (!operation)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[VKOperationQueue addOperation:]: operation must not be nil");
    const bool executing = operation->isExecuting();
    if (executing || operation->isFinished())
        VKException::raise(VKInvalidArgumentException,
                           "*** -[VKOperationQueue addOperation:]: operation is %@ and cannot be "
                           "enqueued",
                           executing ? QStringLiteral("executing") : QStringLiteral("finished"));
    // Asked before the locks: the getter is the operation's code.
    const bool isReady = operation->isReady();
    {
        std::lock_guard lock(operation->d->mutex);
        if (operation->d->queue)
            VKException::raise(
                VKInvalidArgumentException,
                "*** -[VKOperationQueue addOperation:]: operation is already enqueued on a queue");
        if (operation->d->ending)
            VKException::raise(VKInvalidArgumentException,
                               "*** -[VKOperationQueue addOperation:]: operation is finished and "
                               "cannot be enqueued");
        operation->d->queue = d.get();
        Private::Entry &entry = operation->d->queueEntry;
        entry.operation = operation;
        entry.readyOnArrival = isReady;
        entry.phase.store(Private::Entry::Idle, std::memory_order_relaxed);
        vkPushArrival(d->arrivals, operation.get(), entry.nextArrival);
    }
    // A worker that is awake takes the arrival on its next pass.
    if (d->idle.load() > 0 || !d->staffed.load()) {
        std::lock_guard lock(d->mutex);
        d->takeArrivalsLocked();
        d->spawnWorkersLocked();
    }
    // A change since the first look was announced without reaching the queue.
    if (operation->isReady() != isReady)
        operation->tellQueueOfReadiness();
}

std::shared_ptr<VKOperationBase>
VKOperationQueue::addOperationWithBlock(std::function<void()> block)
{
    if (!block)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[VKOperationQueue addOperationWithBlock:]: block must not be nil");
    auto operation = std::allocate_shared<VKOperationQueueBlockOperation>(
        VKRecyclingAllocator<VKOperationQueueBlockOperation>(), std::move(block));
    addOperation(operation);
    return operation;
}

void VKOperationQueue::addOperations(const QList<std::shared_ptr<VKOperationBase>> &operations,
                                     bool wait)
{
    for (const auto &operation : operations)
        addOperation(operation);
    if (wait)
        for (const auto &operation : operations)
            operation->waitUntilFinished();
}

QList<std::shared_ptr<VKOperationBase>> VKOperationQueue::operations() const
{
    std::lock_guard lock(d->mutex);
    d->takeArrivalsLocked();
    QList<std::shared_ptr<VKOperationBase>> result;
    result.reserve(d->count);
    for (VKOperationBase *operation = d->first; operation;
         operation = Private::entryOf(operation).next)
        result.append(Private::entryOf(operation).operation);
    return result;
}

int VKOperationQueue::operationCount() const
{
    std::lock_guard lock(d->mutex);
    d->takeArrivalsLocked();
    return d->count;
}

void VKOperationQueue::cancelAllOperations()
{
    for (const auto &operation : operations())
        operation->cancel();
}

void VKOperationQueue::waitUntilAllOperationsAreFinished()
{
    std::unique_lock lock(d->mutex);
    d->emptied.wait(lock, [this] {
        d->takeArrivalsLocked();
        return d->count == 0;
    });
}

int VKOperationQueue::maxConcurrentOperationCount() const
{
    std::lock_guard lock(d->mutex);
    return d->maxCount;
}

void VKOperationQueue::setMaxConcurrentOperationCount(int count)
{
    if (count < VKOperationQueueDefaultMaxConcurrentOperationCount)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[VKOperationQueue setMaxConcurrentOperationCount:]: count (%d) "
                           "cannot be negative",
                           count);
    std::lock_guard lock(d->mutex);
    d->takeArrivalsLocked();
    d->maxCount = count;
    d->workAvailable.notify_all();
    d->spawnWorkersLocked();
}

bool VKOperationQueue::isSuspended() const
{
    std::lock_guard lock(d->mutex);
    return d->suspended;
}

void VKOperationQueue::setSuspended(bool suspended)
{
    std::lock_guard lock(d->mutex);
    d->takeArrivalsLocked();
    d->suspended = suspended;
    if (!suspended) {
        d->workAvailable.notify_all();
        d->spawnWorkersLocked();
    }
}

QString VKOperationQueue::name() const
{
    std::lock_guard lock(d->mutex);
    return d->name;
}

void VKOperationQueue::setName(const QString &name)
{
    std::lock_guard lock(d->mutex);
    d->name = name;
}

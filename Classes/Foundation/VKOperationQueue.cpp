// Operation queue.
//
// Each operation it holds has an entry: Waiting (not ready), Ready (in the start order) or
// Running (a worker took it; `starting` while the worker is inside start()). Operations tell
// the queue directly, through VKOperationQueueLink, when their readiness changes and when they
// have finished; the queue never observes them and never calls their getters or start() under
// its own lock.
//
// Locks: Private::mutex guards entries, the start order, the counters and the worker list. The
// link calls arrive holding the operation's mutex and take only this one (operation before
// queue, never the other way round). Workers run start() without any lock.
//
// Invariants:
// - An operation is in `entries` exactly while its link points at this queue, except between
//   the link's clearing and the entry's removal on one thread.
// - `running` counts Running entries; at most effectiveMax() start while not suspended.
// - References to finished operations are dropped by a worker outside every lock (the last one
//   may destroy the operation); `retired` holds them until then.
// - An end reported while the worker is still inside start() is applied when start() returns,
//   so that what start() logs comes first.
#include "Foundation/VKOperationQueue.h"

#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKOperationBase_p.h"

#include <QHash>
#include <QThread>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <map>
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
    struct Entry
    {
        std::shared_ptr<VKOperationBase> operation;
        quint64 sequence = 0;
        Where where = Waiting;
        bool starting = false;
        bool finishedWhileStarting = false;
    };

    VKOperationQueue *queue = nullptr;
    mutable std::mutex mutex;
    std::condition_variable workAvailable;
    std::condition_variable emptied;
    QHash<VKOperationBase *, Entry> entries;
    // In the order of addition, the operations ready to start.
    std::map<quint64, VKOperationBase *> ready;
    std::vector<std::shared_ptr<VKOperationBase>> retired;
    std::vector<std::thread> workers;
    int idle = 0;
    int running = 0;
    int maxCount = VKOperationQueueDefaultMaxConcurrentOperationCount;
    bool suspended = false;
    bool stopping = false;
    quint64 nextSequence = 0;
    QString name;

    int effectiveMax() const
    {
        return maxCount < 0 ? std::max(1, QThread::idealThreadCount()) : maxCount;
    }

    // Wakes or starts a worker when there is something to do.
    void spawnWorkersLocked()
    {
        if (stopping)
            return;
        const int max = effectiveMax();
        size_t wanted = suspended || running >= max
                            ? 0
                            : std::min(ready.size(), static_cast<size_t>(max - running));
        if (!retired.empty())
            wanted = std::max<size_t>(wanted, 1);
        if (wanted == 0)
            return;
        if (idle > 0)
            workAvailable.notify_one();
        const auto limit = static_cast<size_t>(std::max(1, max));
        for (auto available = static_cast<size_t>(idle);
             available < wanted && workers.size() < limit; ++available)
            workers.emplace_back([this] { work(); });
    }

    void retireLocked(QHash<VKOperationBase *, Entry>::iterator it)
    {
        if (it->where == Running)
            --running;
        if (it->where == Ready)
            ready.erase(it->sequence);
        retired.push_back(std::move(it->operation));
        entries.erase(it);
        spawnWorkersLocked();
        if (entries.isEmpty())
            emptied.notify_all();
    }

    void operationReadinessChanged(VKOperationBase *operation, bool isReady) override
    {
        std::lock_guard lock(mutex);
        auto it = entries.find(operation);
        if (it == entries.end() || it->where == Running)
            return;
        if (isReady && it->where == Waiting) {
            ready.emplace(it->sequence, operation);
            it->where = Ready;
            spawnWorkersLocked();
        } else if (!isReady && it->where == Ready) {
            ready.erase(it->sequence);
            it->where = Waiting;
        }
    }

    void operationFinished(VKOperationBase *operation) override
    {
        std::lock_guard lock(mutex);
        auto it = entries.find(operation);
        if (it == entries.end())
            return;
        if (it->where == Running && it->starting) {
            it->finishedWhileStarting = true;
            return;
        }
        retireLocked(it);
    }

    // Ends the operation's link to the queue, then its entry. Outside the queue's lock.
    void detach(const std::shared_ptr<VKOperationBase> &operation)
    {
        {
            std::lock_guard lock(operation->d->mutex);
            if (operation->d->queue == this)
                operation->d->queue = nullptr;
        }
        std::lock_guard lock(mutex);
        auto it = entries.find(operation.get());
        if (it != entries.end())
            retireLocked(it);
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
        auto it = entries.find(operation.get());
        if (it == entries.end() || it->operation != operation)
            return;
        it->starting = false;
        if (it->finishedWhileStarting) {
            retireLocked(it);
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
                it = entries.find(operation.get());
                if (it != entries.end() && it->where == Running) {
                    --running;
                    it->where = Waiting;
                }
            }
            operation->tellQueueOfReadiness();
        }
        lock.lock();
    }

    void work()
    {
        std::unique_lock lock(mutex);
        for (;;) {
            if (stopping)
                return;
            // Takes the next operation and the references to drop in one pass under the lock.
            std::shared_ptr<VKOperationBase> next;
            if (!suspended && running < effectiveMax() && !ready.empty()) {
                auto first = ready.begin();
                Entry &entry = entries[first->second];
                ready.erase(first);
                entry.where = Running;
                entry.starting = true;
                entry.finishedWhileStarting = false;
                ++running;
                next = entry.operation;
                if (idle > 0 && !ready.empty() && running < effectiveMax())
                    workAvailable.notify_one();
            }
            std::vector<std::shared_ptr<VKOperationBase>> dropped;
            dropped.swap(retired);
            if (!next && dropped.empty()) {
                ++idle;
                workAvailable.wait(lock);
                --idle;
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
    QList<std::shared_ptr<VKOperationBase>> remaining;
    {
        std::lock_guard lock(d->mutex);
        for (const Private::Entry &entry : std::as_const(d->entries))
            remaining.append(entry.operation);
    }
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
        std::lock_guard queueLock(d->mutex);
        Private::Entry entry;
        entry.operation = operation;
        entry.sequence = d->nextSequence++;
        entry.where = isReady ? Private::Ready : Private::Waiting;
        d->entries.insert(operation.get(), std::move(entry));
        if (isReady) {
            d->ready.emplace(d->nextSequence - 1, operation.get());
            d->spawnWorkersLocked();
        }
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
    auto operation = std::make_shared<VKOperationQueueBlockOperation>(std::move(block));
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
    std::vector<const Private::Entry *> sorted;
    for (const Private::Entry &entry : d->entries)
        sorted.push_back(&entry);
    std::sort(sorted.begin(), sorted.end(),
              [](const auto *a, const auto *b) { return a->sequence < b->sequence; });
    QList<std::shared_ptr<VKOperationBase>> result;
    for (const Private::Entry *entry : sorted)
        result.append(entry->operation);
    return result;
}

int VKOperationQueue::operationCount() const
{
    std::lock_guard lock(d->mutex);
    return static_cast<int>(d->entries.size());
}

void VKOperationQueue::cancelAllOperations()
{
    for (const auto &operation : operations())
        operation->cancel();
}

void VKOperationQueue::waitUntilAllOperationsAreFinished()
{
    std::unique_lock lock(d->mutex);
    d->emptied.wait(lock, [this] { return d->entries.isEmpty(); });
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

#include "Foundation/VKOperationQueue.h"

#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"

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

const QString kIsReady = QStringLiteral("isReady");
const QString kIsFinished = QStringLiteral("isFinished");

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

struct VKOperationQueue::Private
{
    enum Where { Waiting, Ready, Running };
    struct Entry
    {
        std::shared_ptr<VKOperationBase> operation;
        quint64 sequence = 0;
        Where where = Waiting;
        // A worker is inside start(); an end announced meanwhile is handled when it returns,
        // so that whatever start() leaves behind (a logged exception) precedes the retirement.
        bool starting = false;
        bool finishedWhileStarting = false;
        VKObservationToken readyToken = 0;
        VKObservationToken finishedToken = 0;
    };

    VKOperationQueue *queue = nullptr;
    mutable std::mutex mutex;
    std::condition_variable workAvailable;
    std::condition_variable emptied;
    QHash<VKOperationBase *, Entry> entries;
    // In the order of addition: not ready yet, and ready to start.
    std::map<quint64, VKOperationBase *> waiting;
    std::map<quint64, VKOperationBase *> ready;
    // Finished operations whose observations are ended and references dropped by a worker,
    // outside the lock and outside the announcement that reported the end.
    std::vector<Entry> retired;
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

    void spawnWorkersLocked()
    {
        if (stopping)
            return;
        const auto limit = static_cast<size_t>(effectiveMax());
        size_t available = static_cast<size_t>(idle);
        size_t needed = suspended ? 0 : ready.size();
        if (!retired.empty())
            needed = std::max<size_t>(needed, 1);
        while (available < needed && workers.size() < std::max<size_t>(limit, 1)) {
            workers.emplace_back([this] { work(); });
            ++available;
        }
    }

    void retireLocked(VKOperationBase *operation)
    {
        auto it = entries.find(operation);
        if (it == entries.end())
            return;
        if (it->where == Running && it->starting) {
            it->finishedWhileStarting = true;
            return;
        }
        if (it->where == Running)
            --running;
        waiting.erase(it->sequence);
        ready.erase(it->sequence);
        operation->m_queue.store(nullptr);
        retired.push_back(std::move(*it));
        entries.erase(it);
        workAvailable.notify_one();
        spawnWorkersLocked();
        if (entries.isEmpty())
            emptied.notify_all();
    }

    // Moves a waiting operation to the ready ones or back, after its readiness changed.
    void reevaluateLocked(VKOperationBase *operation)
    {
        auto it = entries.find(operation);
        if (it == entries.end() || it->where == Running)
            return;
        if (operation->isFinished()) {
            retireLocked(operation);
            return;
        }
        const bool isReady = operation->isReady();
        if (isReady && it->where == Waiting) {
            waiting.erase(it->sequence);
            ready.emplace(it->sequence, operation);
            it->where = Ready;
            workAvailable.notify_one();
            spawnWorkersLocked();
        } else if (!isReady && it->where == Ready) {
            ready.erase(it->sequence);
            waiting.emplace(it->sequence, operation);
            it->where = Waiting;
        }
    }

    void readinessChanged(VKOperationBase *operation)
    {
        std::lock_guard lock(mutex);
        reevaluateLocked(operation);
    }

    void finishedChanged(VKOperationBase *operation)
    {
        if (!operation->isFinished())
            return;
        std::lock_guard lock(mutex);
        retireLocked(operation);
    }

    static void endObservations(std::vector<Entry> &ended)
    {
        for (Entry &entry : ended) {
            entry.operation->removeObservation(entry.readyToken);
            entry.operation->removeObservation(entry.finishedToken);
        }
        ended.clear();
    }

    void run(const std::shared_ptr<VKOperationBase> &operation)
    {
        try {
            operation->start();
            return;
        } catch (const std::exception &exception) {
            VKLogger::error({QStringLiteral("VKOperationQueue"),
                             QStringLiteral("-[VKOperationQueue startOperation:]"), queue},
                            "Operation %@ (%@) raised an exception: %@", operation->className(),
                            operation->name(), QString::fromUtf8(exception.what()));
        } catch (...) {
            VKLogger::error({QStringLiteral("VKOperationQueue"),
                             QStringLiteral("-[VKOperationQueue startOperation:]"), queue},
                            "Operation %@ (%@) raised an exception", operation->className(),
                            operation->name());
        }
        // A start that failed before the operation began (it was not ready after all) puts
        // the operation back among the waiting ones.
        std::lock_guard lock(mutex);
        auto it = entries.find(operation.get());
        if (it != entries.end() && it->where == Running && !operation->isExecuting() &&
            !operation->isFinished()) {
            --running;
            it->where = Waiting;
            it->starting = false;
            waiting.emplace(it->sequence, operation.get());
            reevaluateLocked(operation.get());
        }
    }

    void work()
    {
        std::unique_lock lock(mutex);
        for (;;) {
            if (!retired.empty()) {
                std::vector<Entry> ended;
                ended.swap(retired);
                lock.unlock();
                endObservations(ended);
                lock.lock();
                continue;
            }
            if (stopping)
                return;
            if (!suspended && running < effectiveMax() && !ready.empty()) {
                auto first = ready.begin();
                Entry &entry = entries[first->second];
                ready.erase(first);
                entry.where = Running;
                entry.starting = true;
                entry.finishedWhileStarting = false;
                ++running;
                std::shared_ptr<VKOperationBase> operation = entry.operation;
                lock.unlock();
                run(operation);
                lock.lock();
                auto it = entries.find(operation.get());
                if (it != entries.end() && it->operation == operation) {
                    const bool ended = it->finishedWhileStarting;
                    it->starting = false;
                    if (ended)
                        retireLocked(operation.get());
                }
                // The last reference may go here: drop it outside the lock.
                lock.unlock();
                operation.reset();
                lock.lock();
                continue;
            }
            ++idle;
            workAvailable.wait(lock);
            --idle;
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
    std::vector<Private::Entry> remaining;
    {
        std::lock_guard lock(d->mutex);
        remaining.swap(d->retired);
        for (Private::Entry &entry : d->entries)
            remaining.push_back(std::move(entry));
        d->entries.clear();
        d->waiting.clear();
        d->ready.clear();
    }
    // No callback can reach the queue once its observations are ended.
    Private::endObservations(remaining);
    for (const Private::Entry &entry : remaining)
        entry.operation->m_queue.store(nullptr);
}

void VKOperationQueue::addOperation(const std::shared_ptr<VKOperationBase> &operation)
{
    if (!operation)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[VKOperationQueue addOperation:]: operation must not be nil");
    VKOperationQueue *expected = nullptr;
    if (!operation->m_queue.compare_exchange_strong(expected, this))
        VKException::raise(
            VKInvalidArgumentException,
            "*** -[VKOperationQueue addOperation:]: operation is already enqueued on "
            "a queue");
    if (operation->isExecuting() || operation->isFinished()) {
        const bool executing = operation->isExecuting();
        operation->m_queue.store(nullptr);
        VKException::raise(VKInvalidArgumentException,
                           "*** -[VKOperationQueue addOperation:]: operation is %@ and cannot be "
                           "enqueued",
                           executing ? QStringLiteral("executing") : QStringLiteral("finished"));
    }
    Private *p = d.get();
    VKOperationBase *raw = operation.get();
    Private::Entry entry;
    entry.operation = operation;
    entry.readyToken = operation->observe(
        kIsReady, 0, [p, raw](VKObservable *, const QString &, const VKKeyValueChange &) {
            p->readinessChanged(raw);
        });
    entry.finishedToken = operation->observe(
        kIsFinished, 0, [p, raw](VKObservable *, const QString &, const VKKeyValueChange &) {
            p->finishedChanged(raw);
        });
    std::lock_guard lock(d->mutex);
    entry.sequence = d->nextSequence++;
    d->waiting.emplace(entry.sequence, raw);
    d->entries.insert(raw, std::move(entry));
    d->reevaluateLocked(raw);
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

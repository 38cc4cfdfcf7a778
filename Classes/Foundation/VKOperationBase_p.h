// Internal: the private part of VKOperationBase, for the queue and for subclasses inside the
// library that extend it through the protected constructor.
#pragma once

#include "Foundation/VKOperationBase.h"

#include <QList>
#include <QSet>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

// Spins for a short while (a few microseconds) until `ready` answers true; answers the last
// answer. The queues' workers look for new work this way before they go to sleep: work that
// arrives within the spin then costs no wake-up, which is a system call for the adder and a
// context switch for the worker.
template <typename Ready>
bool vkSpinBriefly(Ready &&ready)
{
    constexpr int kRounds = 200;
    for (int round = 0; round < kRounds; ++round) {
        if (ready())
            return true;
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#elif defined(__aarch64__)
        asm volatile("yield");
#endif
    }
    return ready();
}

// What an operation tells the queue that holds it. Called under the operation's mutex, so an
// implementation takes only its own lock and never calls out.
class VKOperationQueueLink
{
public:
    virtual void operationReadinessChanged(VKOperationBase *operation, bool ready) = 0;
    virtual void operationFinished(VKOperationBase *operation) = 0;

protected:
    ~VKOperationQueueLink() = default;
};

// The keys whose announcements change "isReady" and "isFinished" for one class.
struct VKOperationAffectingKeys
{
    QSet<QString> ready;
    QSet<QString> finished;
};

struct VKOperationBase::Private
{
    virtual ~Private() = default;

    enum State { Pending, Executing, Finished };
    std::atomic<int> state{Pending};
    std::atomic<bool> cancelled{false};
    // Dependencies whose end has not been delivered to this operation yet.
    std::atomic<int> unfinishedDependencies{0};

    // 1 once the end was delivered; waiters sleep on this word. They count themselves first,
    // so that an end nobody waits for makes no system call (the standard library's own test
    // is shared with unrelated addresses).
    std::atomic<int> endDelivered{0};
    std::atomic<int> endWaiters{0};

    // Guards the members up to the next comment.
    mutable std::mutex mutex;
    // The end was announced and is being (or was) delivered.
    bool ending = false;
    // Not owned: a dependant takes itself out before it goes.
    std::vector<VKOperationBase *> dependants;
    // The queue holding the operation; it clears the link (under this mutex) before it goes.
    VKOperationQueueLink *queue = nullptr;
    QString name;
    std::function<void()> completionBlock;

    // Serialises changes of this operation's own dependency list (taken before a dependency's
    // mutex, never while calling out) and guards the list.
    mutable std::mutex dependencyMutex;
    QList<std::shared_ptr<VKOperationBase>> dependencies;

    void markEndDelivered()
    {
        // Both sequentially consistent: a waiter that counted itself after this load finds the
        // flag set before it sleeps.
        endDelivered.store(1);
        if (endWaiters.load() > 0)
            endDelivered.notify_all();
    }

    // Shared by every operation of the class; looked up on first use.
    std::atomic<const VKOperationAffectingKeys *> affectingKeys{nullptr};

    // The holding queue's bookkeeping, guarded by that queue's mutex. An operation is in one
    // queue at most, so the queue keeps its lists in the operations and allocates nothing
    // per operation.
    struct QueueEntry
    {
        // Held while queued; null otherwise.
        std::shared_ptr<VKOperationBase> operation;
        quint64 sequence = 0;
        int where = 0;
        // While Running: whether the worker is still inside start() and whether the end came
        // before it returned. Claimed with a compare-and-swap by the worker and by the end, so
        // that an end reported from inside start() needs no queue lock.
        enum Phase { Idle, Starting, Started, FinishedWhileStarting };
        std::atomic<int> phase{Idle};
        // Every queued operation in the order of addition.
        VKOperationBase *previous = nullptr;
        VKOperationBase *next = nullptr;
        // The ready ones, in the order of addition.
        VKOperationBase *previousReady = nullptr;
        VKOperationBase *nextReady = nullptr;
    } queueEntry;

    // The serial queues' bookkeeping (VKSingleThreadOperationQueue.cpp): the queue the
    // operation waits in by mark, and while it does, the reference that queue holds and the
    // link of its list of arrivals.
    struct SerialEntry
    {
        std::atomic<const void *> queue{nullptr};
        std::shared_ptr<VKOperationBase> operation;
        VKOperationBase *next = nullptr;
    } serialEntry;
};

// Internal: the private part of VKOperationBase, for the queue and for subclasses inside the
// library that extend it through the protected constructor.
#pragma once

#include "Foundation/VKOperationBase.h"

#include <QList>
#include <QSet>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

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

    // Guards the members up to the next comment.
    mutable std::mutex mutex;
    std::condition_variable ended;
    // The end was announced and is being (or was) delivered; delivered once done.
    bool ending = false;
    bool endDelivered = false;
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
        bool starting = false;
        bool finishedWhileStarting = false;
        // Every queued operation in the order of addition.
        VKOperationBase *previous = nullptr;
        VKOperationBase *next = nullptr;
        // The ready ones, in the order of addition.
        VKOperationBase *previousReady = nullptr;
        VKOperationBase *nextReady = nullptr;
    } queueEntry;
};

// Runs operations on its own worker threads: an operation starts once it is ready, in the order
// of addition among the ready ones, with at most maxConcurrentOperationCount running at a time.
// Readiness is re-checked whenever an operation announces a change of "isReady". An exception
// out of start() is logged; an operation it left neither executing nor finished is given up
// while still ready (starting it again would fail again) and waits otherwise.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKOperationBase.h"

#include <QList>
#include <QString>

#include <functional>
#include <memory>

// As many operations at a time as the machine has cores.
inline constexpr int VKOperationQueueDefaultMaxConcurrentOperationCount = -1;

class VK_EXPORT VKOperationQueue
{
public:
    VKOperationQueue();
    // Operations already running finish; the others are dropped without starting. Worker
    // threads are joined.
    ~VKOperationQueue();
    VKOperationQueue(const VKOperationQueue &) = delete;
    VKOperationQueue &operator=(const VKOperationQueue &) = delete;

    // Throws VKInvalidArgumentException for a null operation, one that is already in a queue,
    // executing or finished.
    void addOperation(const std::shared_ptr<VKOperationBase> &operation);
    // Wraps the function in an operation; answers it.
    std::shared_ptr<VKOperationBase> addOperationWithBlock(std::function<void()> block);
    // Adds all, then with `wait` blocks until every one of them has finished.
    void addOperations(const QList<std::shared_ptr<VKOperationBase>> &operations, bool wait);

    // The operations not yet finished, in the order of addition.
    QList<std::shared_ptr<VKOperationBase>> operations() const;
    int operationCount() const;
    void cancelAllOperations();
    // Blocks until the queue is empty (a suspended queue with waiting operations never is).
    void waitUntilAllOperationsAreFinished();

    int maxConcurrentOperationCount() const;
    // -1 (the default) means one per core; other negative counts throw
    // VKInvalidArgumentException. 0 stops new operations from starting.
    void setMaxConcurrentOperationCount(int count);

    // A suspended queue starts no new operations; running ones go on.
    bool isSuspended() const;
    void setSuspended(bool suspended);

    QString name() const;
    void setName(const QString &name);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

// Runs operations strictly one after another, in the order they were added, all on one worker
// thread that the queue creates on first use and that lives for the rest of the process. An
// operation that is not ready holds back every operation behind it.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKOperationBase.h"

#include <QList>
#include <QString>

#include <memory>
#include <thread>

class VK_EXPORT VKSingleThreadOperationQueue
{
public:
    VKSingleThreadOperationQueue();
    // Cancels and drops the waiting operations; the worker thread stays (it never stops).
    ~VKSingleThreadOperationQueue();
    VKSingleThreadOperationQueue(const VKSingleThreadOperationQueue &) = delete;
    VKSingleThreadOperationQueue &operator=(const VKSingleThreadOperationQueue &) = delete;

    // Appends the operation unless it is already waiting (null is ignored) and starts the
    // worker thread on first use. Any thread may add, also an operation of this queue.
    void addOperation(const std::shared_ptr<VKOperationBase> &operation);
    // Adds each in order; with `waitUntilFinished` then waits for each in order.
    void addOperations(const QList<std::shared_ptr<VKOperationBase>> &operations,
                       bool waitUntilFinished);
    // Not supported: throws VKInvalidArgumentException "Method not implemented yet".
    [[noreturn]] void removeOperation(const std::shared_ptr<VKOperationBase> &operation);

    // Suspending keeps the next operation from starting; it never interrupts the running one.
    bool isSuspended() const;
    void setSuspended(bool suspended);

    // Always 1; setting is ignored.
    int maxConcurrentOperationCount() const;
    void setMaxConcurrentOperationCount(int count);

    // The waiting operations in arrival order (the running one is no longer among them).
    QList<std::shared_ptr<VKOperationBase>> operations() const;
    // The operation being started at the moment, or null.
    std::shared_ptr<VKOperationBase> currentOperation() const;
    // The worker thread's id; a default id before the first operation arrived.
    std::thread::id thread() const;

    // Kept for the caller; the thread is not named after it.
    QString name() const;
    void setName(const QString &name);

    struct Private;

private:
    std::shared_ptr<Private> d;
};

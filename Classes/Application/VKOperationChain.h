// Strings operations into a strict sequence (each depends on the one before it) and reports,
// as one observable object, whether the sequence finished, was cancelled or failed, and which
// operation failed with what error.
#pragma once

#include "Application/VKOperation.h"
#include "Foundation/VKExport.h"
#include "Foundation/VKObservable.h"

#include <QList>

#include <memory>

class VK_EXPORT VKOperationChain : public VKObservable,
                                   public std::enable_shared_from_this<VKOperationChain>
{
    struct Passkey
    {
    };

public:
    // Chains are held by std::shared_ptr: the observation of their operations reaches the chain
    // through a weak reference, so a call on another thread keeps the chain alive while it runs.
    static std::shared_ptr<VKOperationChain> operationChain();
    explicit VKOperationChain(Passkey);
    ~VKOperationChain() override;

    // Appends the operation, making it depend on the current last one; an operation already in
    // the chain is ignored. Only the last operation is followed for "isFinished".
    void addOperation(const std::shared_ptr<VKOperation> &operation);
    void addOperationFromArray(const QList<std::shared_ptr<VKOperation>> &operations);
    // Stops following the operations and forgets them; dependencies between them stay.
    void removeAllOperations();

    // Adds every operation to the queue in chain order; the dependencies make it run them one
    // after another. Works with any queue that has addOperation().
    template <typename Queue>
    void enqueueOperationsToOperationQueue(Queue &queue) const
    {
        for (const auto &operation : allOperations())
            queue.addOperation(operation);
    }

    // Cancels every operation, from the last to the first.
    void cancel();

    std::shared_ptr<VKOperation> firstOperation() const;
    std::shared_ptr<VKOperation> lastOperation() const;
    QList<std::shared_ptr<VKOperation>> allOperations() const;

    // Once true, stays true.
    bool isFinished() const;
    bool isCancelled() const;
    bool isFailed() const;
    // The first failed operation in chain order and its error; set before "isFailed" is
    // announced.
    std::shared_ptr<VKOperation> failedOperation() const;
    VKError error() const;

    // "isFinished", "isCancelled", "isFailed", "error" (a VKError) and "failedOperation" (a
    // std::shared_ptr<VKOperation>).
    QVariant valueForKey(const QString &key) const override;

private:
    struct Private;
    void operationChanged(const QString &keyPath, VKObservable *object);
    void setFlag(const QString &key, std::atomic<bool> &flag, bool value);
    std::unique_ptr<Private> d;
};

// A unit of work with observable states ("isReady", "isExecuting", "isFinished",
// "isCancelled") and dependencies: an operation is ready once every dependency has finished.
// Ordinary operations override main(); concurrent ones override start() and the state getters
// and announce their own changes. Operations are held by std::shared_ptr.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKObservable.h"

#include <QList>
#include <QString>

#include <functional>
#include <memory>

class VKOperationQueue;
class VKSingleThreadOperationQueue;

class VK_EXPORT VKOperationBase : public VKObservable,
                                  public std::enable_shared_from_this<VKOperationBase>
{
public:
    VKOperationBase();
    ~VKOperationBase() override;

    // Runs the operation on the calling thread: a cancelled operation just finishes; otherwise
    // "isExecuting" becomes true, main() runs, and the operation finishes (also when main()
    // throws; the exception continues to the caller). Throws VKInvalidArgumentException when
    // the operation is not ready, already executing or finished.
    virtual void start();
    // The work; the default does nothing.
    virtual void main();
    // Marks the operation cancelled (once); a cancelled operation counts as ready.
    virtual void cancel();

    virtual bool isReady() const;
    virtual bool isExecuting() const;
    virtual bool isFinished() const;
    bool isCancelled() const;
    // True for operations that start their work and finish it later by themselves.
    virtual bool isConcurrent() const;

    // Blocks until the end of the operation was announced and handled: its completion block
    // ran and its dependants and queue were told. Answers at once when isFinished() is already
    // true. Must not be called from the operation's own work or completion block.
    void waitUntilFinished();

    // The operation holds its dependencies. Adding one twice or adding itself is ignored.
    // Throws VKInvalidArgumentException for a null dependency.
    void addDependency(const std::shared_ptr<VKOperationBase> &operation);
    void removeDependency(const std::shared_ptr<VKOperationBase> &operation);
    QList<std::shared_ptr<VKOperationBase>> dependencies() const;

    // Runs once, on the thread that finished the operation, after "isFinished" became true and
    // before dependants and the queue are told.
    void setCompletionBlock(std::function<void()> block);

    QString name() const;
    void setName(const QString &name);

    // "isReady", "isExecuting", "isFinished", "isCancelled", "isConcurrent",
    // "isAsynchronous" and "name".
    QVariant valueForKey(const QString &key) const override;

protected:
    struct Private;
    // For subclasses that extend the private part (VKOperationBase_p.h).
    explicit VKOperationBase(std::unique_ptr<Private> d);

private:
    friend class VKOperationQueue;
    friend class VKSingleThreadOperationQueue;
    // Tells the queue and the dependants when "isReady" or "isFinished" was announced, by the
    // class itself or by a subclass (also through keys those depend on).
    void didAnnounceChangeForKey(const QString &key) final;
    void deliverEnd();
    void tellQueueOfReadiness();

    std::unique_ptr<Private> d;
};

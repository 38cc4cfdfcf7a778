// A unit of work with observable states ("isReady", "isExecuting", "isFinished",
// "isCancelled") and dependencies: an operation is ready once every dependency has finished.
// Ordinary operations override main(); concurrent ones override start() and the state getters
// and announce their own changes.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKObservable.h"

#include <QList>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

class VKOperationQueue;

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

    // Blocks until isFinished() is true. Must not be called from the operation's own work.
    void waitUntilFinished();

    // The operation holds its dependencies. Adding one twice or adding itself is ignored.
    // Throws VKInvalidArgumentException for a null dependency.
    void addDependency(const std::shared_ptr<VKOperationBase> &operation);
    void removeDependency(const std::shared_ptr<VKOperationBase> &operation);
    QList<std::shared_ptr<VKOperationBase>> dependencies() const;

    // Runs once, on the thread that finished the operation, after "isFinished" became true.
    void setCompletionBlock(std::function<void()> block);

    QString name() const;
    void setName(const QString &name);

    // "isReady", "isExecuting", "isFinished", "isCancelled", "isConcurrent",
    // "isAsynchronous" and "name".
    QVariant valueForKey(const QString &key) const override;

private:
    friend class VKOperationQueue;
    void dependencyStateChanged();
    void recountUnfinishedDependencies();

    enum State { Pending, Executing, Finished };
    std::atomic<int> m_state{Pending};
    std::atomic<bool> m_cancelled{false};
    std::atomic<int> m_unfinishedDependencies{0};
    // Set while a queue holds the operation.
    std::atomic<VKOperationQueue *> m_queue{nullptr};

    mutable std::mutex m_mutex;
    struct Dependency
    {
        std::shared_ptr<VKOperationBase> operation;
        VKObservationToken token;
    };
    QList<Dependency> m_dependencies;
    QString m_name;
    std::function<void()> m_completionBlock;
    VKObservationToken m_completionToken = 0;
};

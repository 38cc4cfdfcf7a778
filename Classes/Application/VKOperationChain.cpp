// Operation chains.
//
// States: collecting, then any of finished, cancelled, failed (each flag is set once and only
// cleared when a walk finds no cancelled or failed operation).
//
// The flags change on whichever thread changed an operation. `mutex` guards the operation list
// and the failure record and is never held while calling out (observers, operations), so the
// walks look at a copy of the list. The first cancellation and the first failure are claimed
// (an atomic exchange, a flag under the mutex) before they are announced, so that two threads
// reporting at once announce them once.
#include "Application/VKOperationChain.h"

#include <QVariant>

#include <algorithm>
#include <atomic>
#include <mutex>

namespace {
const QString kIsFinished = QStringLiteral("isFinished");
const QString kIsCancelled = QStringLiteral("isCancelled");
const QString kIsFailed = QStringLiteral("isFailed");

// Forwards the operations' announcements to the chain while the chain lives.
class ChainLink : public VKKeyValueObserver
{
public:
    std::weak_ptr<VKOperationChain> chain;
    std::function<void(VKOperationChain &, const QString &, VKObservable *)> forward;

    void observeValueForKeyPath(const QString &keyPath, VKObservable *object,
                                const VKKeyValueChange &, void *) override
    {
        if (auto strong = chain.lock())
            forward(*strong, keyPath, object);
    }
};
} // namespace

struct VKOperationChain::Private
{
    std::shared_ptr<ChainLink> link = std::make_shared<ChainLink>();
    std::atomic<bool> finished{false};
    std::atomic<bool> cancelled{false};
    std::atomic<bool> failed{false};
    std::atomic<bool> cancelClaimed{false};

    mutable std::mutex mutex;
    QList<std::shared_ptr<VKOperation>> operations;
    std::shared_ptr<VKOperation> failedOperation;
    VKError error;
    bool failureClaimed = false;
};

std::shared_ptr<VKOperationChain> VKOperationChain::operationChain()
{
    auto chain = std::make_shared<VKOperationChain>(Passkey{});
    chain->d->link->chain = chain;
    return chain;
}

VKOperationChain::VKOperationChain(Passkey) : d(std::make_unique<Private>())
{
    d->link->forward = [](VKOperationChain &chain, const QString &keyPath, VKObservable *object) {
        chain.operationChanged(keyPath, object);
    };
}

VKOperationChain::~VKOperationChain()
{
    removeAllOperations();
}

void VKOperationChain::addOperation(const std::shared_ptr<VKOperation> &operation)
{
    if (!operation)
        return;
    std::shared_ptr<VKOperation> last;
    {
        std::lock_guard lock(d->mutex);
        if (d->operations.contains(operation))
            return;
        if (!d->operations.isEmpty())
            last = d->operations.last();
    }
    if (last) {
        operation->addDependency(last);
        last->removeObserver(d->link.get(), kIsFinished);
    }
    const std::shared_ptr<VKKeyValueObserver> link = d->link;
    for (const QString &key : {kIsFinished, kIsCancelled, kIsFailed})
        operation->addObserver(link, key, VKKeyValueObservingOptionNew);
    std::lock_guard lock(d->mutex);
    d->operations.append(operation);
}

void VKOperationChain::addOperationFromArray(const QList<std::shared_ptr<VKOperation>> &operations)
{
    for (const auto &operation : operations)
        addOperation(operation);
}

void VKOperationChain::removeAllOperations()
{
    QList<std::shared_ptr<VKOperation>> operations;
    {
        std::lock_guard lock(d->mutex);
        operations.swap(d->operations);
    }
    if (operations.isEmpty())
        return;
    operations.last()->removeObserver(d->link.get(), kIsFinished);
    for (const auto &operation : operations) {
        operation->removeObserver(d->link.get(), kIsCancelled);
        operation->removeObserver(d->link.get(), kIsFailed);
    }
}

void VKOperationChain::cancel()
{
    const auto operations = allOperations();
    for (auto it = operations.rbegin(); it != operations.rend(); ++it)
        (*it)->cancel();
}

std::shared_ptr<VKOperation> VKOperationChain::firstOperation() const
{
    std::lock_guard lock(d->mutex);
    return d->operations.isEmpty() ? nullptr : d->operations.first();
}

std::shared_ptr<VKOperation> VKOperationChain::lastOperation() const
{
    std::lock_guard lock(d->mutex);
    return d->operations.isEmpty() ? nullptr : d->operations.last();
}

QList<std::shared_ptr<VKOperation>> VKOperationChain::allOperations() const
{
    std::lock_guard lock(d->mutex);
    return d->operations;
}

bool VKOperationChain::isFinished() const
{
    return d->finished.load();
}

bool VKOperationChain::isCancelled() const
{
    return d->cancelled.load();
}

bool VKOperationChain::isFailed() const
{
    return d->failed.load();
}

std::shared_ptr<VKOperation> VKOperationChain::failedOperation() const
{
    std::lock_guard lock(d->mutex);
    return d->failedOperation;
}

VKError VKOperationChain::error() const
{
    std::lock_guard lock(d->mutex);
    return d->error;
}

QVariant VKOperationChain::valueForKey(const QString &key) const
{
    if (key == kIsFinished)
        return isFinished();
    if (key == kIsCancelled)
        return isCancelled();
    if (key == kIsFailed)
        return isFailed();
    if (key == QLatin1String("error"))
        return QVariant::fromValue(error());
    if (key == QLatin1String("failedOperation"))
        return QVariant::fromValue(failedOperation());
    return VKObservable::valueForKey(key);
}

void VKOperationChain::setFlag(const QString &key, std::atomic<bool> &flag, bool value)
{
    changeValueForKey(key, [&] { flag.store(value); });
}

void VKOperationChain::operationChanged(const QString &keyPath, VKObservable *object)
{
    if (keyPath == kIsFinished) {
        const auto *operation = dynamic_cast<const VKOperationBase *>(object);
        if (operation && operation->isFinished())
            setFlag(kIsFinished, d->finished, true);
        return;
    }
    if (keyPath == kIsCancelled) {
        const auto operations = allOperations();
        const bool any =
            std::any_of(operations.begin(), operations.end(),
                        [](const auto &operation) { return operation->isCancelled(); });
        if (!any) {
            d->cancelClaimed.store(false);
            setFlag(kIsCancelled, d->cancelled, false);
        } else if (!d->cancelClaimed.exchange(true)) {
            // The claim keeps two threads from both announcing the first cancellation.
            setFlag(kIsCancelled, d->cancelled, true);
        }
        return;
    }
    if (keyPath == kIsFailed) {
        const auto operations = allOperations();
        auto first = std::find_if(operations.begin(), operations.end(),
                                  [](const auto &operation) { return operation->isFailed(); });
        if (first == operations.end()) {
            setFlag(kIsFailed, d->failed, false);
            return;
        }
        {
            std::lock_guard lock(d->mutex);
            if (d->failureClaimed)
                return;
            d->failureClaimed = true;
        }
        const VKError error = (*first)->error();
        changeValueForKey(QStringLiteral("failedOperation"), [&] {
            std::lock_guard lock(d->mutex);
            d->failedOperation = *first;
        });
        changeValueForKey(QStringLiteral("error"), [&] {
            std::lock_guard lock(d->mutex);
            d->error = error;
        });
        setFlag(kIsFailed, d->failed, true);
    }
}

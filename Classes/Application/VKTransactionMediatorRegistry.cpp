#include "Application/VKTransactionMediatorRegistry.h"

#include "Application/VKTransactionMediator.h"

#include <QHash>

#include <mutex>

struct VKTransactionMediatorRegistry::Private
{
    struct Entry
    {
        VKObservableLifetime facade;
        std::shared_ptr<VKTransactionMediator> mediator;
    };
    std::mutex mutex;
    QHash<const VKObservable *, Entry> mediators;
    std::shared_ptr<VKTransactionTimerSource> timerSource;

    // Entries whose facade is gone; dropped outside the lock, since dropping a mediator may
    // invalidate its timers.
    QList<std::shared_ptr<VKTransactionMediator>> takeLapsed()
    {
        QList<std::shared_ptr<VKTransactionMediator>> lapsed;
        for (auto it = mediators.begin(); it != mediators.end();) {
            if (!it->facade.isAlive()) {
                lapsed.append(std::move(it->mediator));
                it = mediators.erase(it);
            } else {
                ++it;
            }
        }
        return lapsed;
    }
};

VKTransactionMediatorRegistry::VKTransactionMediatorRegistry() : d(std::make_unique<Private>()) {}
VKTransactionMediatorRegistry::~VKTransactionMediatorRegistry() = default;

VKTransactionMediatorRegistry &VKTransactionMediatorRegistry::sharedRegistry()
{
    // Never destroyed: mediators may still be reached from timers at exit.
    static auto *registry = new VKTransactionMediatorRegistry;
    return *registry;
}

std::shared_ptr<VKTransactionMediator>
VKTransactionMediatorRegistry::transactionMediatorForFacadeObject(VKObservable *facade)
{
    if (!facade)
        return nullptr;
    QList<std::shared_ptr<VKTransactionMediator>> lapsed;
    std::shared_ptr<VKTransactionTimerSource> timerSource;
    {
        std::lock_guard lock(d->mutex);
        lapsed = d->takeLapsed();
        auto it = d->mediators.find(facade);
        if (it != d->mediators.end())
            return it->mediator;
        timerSource = d->timerSource;
    }
    // Made outside the lock: the mediator starts observing the facade at once.
    auto mediator = VKTransactionMediator::mediatorWithFacadeObject(facade, timerSource);
    std::shared_ptr<VKTransactionMediator> loser;
    std::lock_guard lock(d->mutex);
    auto it = d->mediators.find(facade);
    if (it != d->mediators.end()) {
        // Another thread registered one meanwhile; it wins.
        loser = std::move(mediator);
        loser->stopObservingFacade();
        return it->mediator;
    }
    d->mediators.insert(facade, {facade->lifetime(), mediator});
    return mediator;
}

std::shared_ptr<VKTransactionMediator>
VKTransactionMediatorRegistry::existingMediatorForFacadeObject(VKObservable *facade)
{
    std::lock_guard lock(d->mutex);
    auto it = d->mediators.find(facade);
    return it == d->mediators.end() || !it->facade.isAlive() ? nullptr : it->mediator;
}

void VKTransactionMediatorRegistry::setTimerSource(std::shared_ptr<VKTransactionTimerSource> source)
{
    std::lock_guard lock(d->mutex);
    d->timerSource = std::move(source);
}

void VKTransactionMediatorRegistry::deregisterMediatorForFacadeObject(VKObservable *facade)
{
    std::shared_ptr<VKTransactionMediator> dropped;
    std::lock_guard lock(d->mutex);
    auto it = d->mediators.find(facade);
    if (it == d->mediators.end())
        return;
    dropped = std::move(it->mediator);
    d->mediators.erase(it);
}

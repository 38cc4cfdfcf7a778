// Transaction mediation.
//
// States: no transaction, or one open transaction (from the first observed change until
// endTransaction()); a subscription is idle or deferred (its check timer pending).
//
// Locks, taken in this order: `transactionLock` (recursive; the open transaction, its start
// date and end timer), then `observersLock` (recursive; the subscription set), then a
// subscription's own `mutex` (its timer and last call date; never held while calling out).
// Listeners are called while the first two are held, so that a listener may change the facade
// or add and remove subscriptions on the same thread. Timers are invalidated only with no lock
// held where that can be helped, since invalidating waits for a callback running on another
// thread; the deferred callback reads whether a transaction is open from `transactionOpen`
// (written under the transaction lock) instead of taking the lock, so it never waits on a
// thread that holds it and is invalidating, nor loses its call to one that merely holds it.
//
// Timers hold the mediator strongly until they fire or are invalidated; the registry holds it
// until its last subscription is removed. Once the facade is gone nobody is called: its
// listeners would be handed a dead object.
//
// Time is read and timers are made through the mediator's timer source (the steady clock and
// the main loop), in whole clock ticks, so that the burst's boundary is exact.
#include "Application/VKTransactionMediator.h"

#include "Application/VKTransactionMediatorRegistry.h"
#include "Application/VKTransactionTimerSource.h"

#include <atomic>
#include <chrono>
#include <mutex>

namespace {
using Clock = VKTransactionTimerSource::Clock;

constexpr std::chrono::milliseconds kBurst{10};
constexpr double kBurstSeconds = std::chrono::duration<double>(kBurst).count();

bool lessThan(Clock::duration elapsed, double seconds)
{
    return std::chrono::duration<double>(elapsed).count() < seconds;
}

// Gives a timer's callback the mediator once: the callback may never run (invalidated), and a
// spent timer should not keep the mediator.
template <typename F>
VKMainLoopTimer::Callback once(std::shared_ptr<VKTransactionMediator> mediator, F &&function)
{
    auto held = std::make_shared<std::shared_ptr<VKTransactionMediator>>(std::move(mediator));
    return [held, function = std::forward<F>(function)](VKMainLoopTimer &) {
        auto mediator = std::move(*held);
        if (mediator)
            function(*mediator);
    };
}
} // namespace

VKTransactionObservable::~VKTransactionObservable() = default;
VKTransactionListener::~VKTransactionListener() = default;
VKTransactionObserving::~VKTransactionObserving() = default;

struct VKTransactionMediator::Subscription
{
    VKTransactionListener *observer = nullptr;
    QString name;
    QSet<QString> observingKeyPaths;
    double notificationInterval = 0;

    std::mutex mutex;
    std::optional<Clock::time_point> lastTimeNotified;
    std::shared_ptr<VKMainLoopTimer> checkForLastChangeTimer;

    bool sameAs(const Subscription &other) const
    {
        return observer == other.observer && observingKeyPaths == other.observingKeyPaths &&
               notificationInterval == other.notificationInterval;
    }
};

struct VKTransactionMediator::Transaction
{
    QSet<QString> pendingKeyPathChanges;
};

struct VKTransactionMediator::Private
{
    VKObservable *facade = nullptr;
    VKObservableLifetime facadeLifetime;
    std::shared_ptr<VKTransactionTimerSource> timers;
    QSet<QString> observedKeyPaths;
    bool observing = false;

    std::recursive_mutex observersLock;
    QList<std::shared_ptr<Subscription>> observers;

    std::recursive_mutex transactionLock;
    std::unique_ptr<Transaction> currentTransaction;
    std::atomic<bool> transactionOpen{false};
    std::optional<Clock::time_point> transactionStartDate;
    std::shared_ptr<VKMainLoopTimer> transactionEndTimer;
};

std::shared_ptr<VKTransactionMediator>
VKTransactionMediator::mediatorWithFacadeObject(VKObservable *facade,
                                                std::shared_ptr<VKTransactionTimerSource> timers)
{
    auto mediator = std::make_shared<VKTransactionMediator>(Passkey{}, facade, std::move(timers));
    mediator->startObservingFacade();
    return mediator;
}

VKTransactionMediator::VKTransactionMediator(Passkey, VKObservable *facade,
                                             std::shared_ptr<VKTransactionTimerSource> timers)
    : d(std::make_unique<Private>())
{
    d->facade = facade;
    d->facadeLifetime = facade->lifetime();
    d->timers = timers ? std::move(timers) : VKTransactionTimerSource::mainLoop();
    if (const auto *observable = dynamic_cast<const VKTransactionObservable *>(facade))
        d->observedKeyPaths = observable->transactionObservableKeyPaths();
}

VKTransactionMediator::~VKTransactionMediator()
{
    stopObservingFacade();
}

VKObservable *VKTransactionMediator::facadeObject() const
{
    return d->facade;
}

void VKTransactionMediator::startObservingFacade()
{
    std::lock_guard lock(d->observersLock);
    if (d->observing || d->observedKeyPaths.isEmpty() || !d->facadeLifetime.isAlive())
        return;
    d->observing = true;
    const std::shared_ptr<VKKeyValueObserver> self = shared_from_this();
    for (const QString &keyPath : d->observedKeyPaths)
        d->facade->addObserver(self, keyPath);
}

void VKTransactionMediator::stopObservingFacade()
{
    std::lock_guard lock(d->observersLock);
    if (!d->observing)
        return;
    d->observing = false;
    // A facade that is gone took its observations with it.
    if (d->facadeLifetime.isAlive())
        for (const QString &keyPath : d->observedKeyPaths)
            d->facade->removeObserver(this, keyPath);
}

void VKTransactionMediator::addTransactionObserver(VKTransactionListener *listener,
                                                   const QString &name,
                                                   const QSet<QString> &keyPaths,
                                                   double notificationInterval)
{
    auto subscription = std::make_shared<Subscription>();
    subscription->observer = listener;
    subscription->name = name;
    subscription->observingKeyPaths = keyPaths;
    subscription->notificationInterval = notificationInterval;
    std::lock_guard lock(d->observersLock);
    for (const auto &existing : d->observers)
        if (existing->sameAs(*subscription))
            return;
    d->observers.append(subscription);
}

void VKTransactionMediator::removeTransactionObserver(VKTransactionListener *listener,
                                                      const QString &name)
{
    // Keeps this mediator alive to the end even when the registry drops it below.
    const auto self = shared_from_this();
    QList<std::shared_ptr<VKMainLoopTimer>> timers;
    bool empty = false;
    {
        std::lock_guard lock(d->observersLock);
        for (auto it = d->observers.begin(); it != d->observers.end();) {
            Subscription &subscription = **it;
            if (subscription.observer != listener || subscription.name != name) {
                ++it;
                continue;
            }
            {
                std::lock_guard fields(subscription.mutex);
                if (subscription.checkForLastChangeTimer)
                    timers.append(std::move(subscription.checkForLastChangeTimer));
            }
            it = d->observers.erase(it);
        }
        empty = d->observers.isEmpty();
    }
    for (const auto &timer : timers)
        timer->invalidate();
    if (!empty)
        return;
    stopObservingFacade();
    VKTransactionMediatorRegistry::sharedRegistry().deregisterMediatorForFacadeObject(d->facade);
}

void VKTransactionMediator::observeValueForKeyPath(const QString &keyPath, VKObservable *object,
                                                   const VKKeyValueChange &, void *)
{
    if (object != d->facade)
        return;
    std::lock_guard lock(d->transactionLock);
    const Clock::time_point time = d->timers->now();
    if (!d->currentTransaction) {
        d->currentTransaction = std::make_unique<Transaction>();
        d->transactionOpen.store(true);
        d->transactionStartDate = time;
    }
    d->currentTransaction->pendingKeyPathChanges.insert(keyPath);
    if (d->transactionEndTimer)
        return;
    // Within the burst window the transaction gets the rest of it; later changes end it at
    // the main loop's next pass.
    const double interval =
        d->transactionStartDate && time - *d->transactionStartDate < kBurst ? kBurstSeconds : 0;
    d->transactionEndTimer = d->timers->scheduledTimer(
        interval, once(shared_from_this(), [](VKTransactionMediator &m) { m.endTransaction(); }));
}

void VKTransactionMediator::mayEndTransaction()
{
    {
        std::lock_guard lock(d->transactionLock);
        if (d->transactionStartDate && d->timers->now() - *d->transactionStartDate <= kBurst)
            return;
    }
    endTransaction();
}

void VKTransactionMediator::endTransaction()
{
    std::lock_guard lock(d->transactionLock);
    if (!d->currentTransaction)
        return;
    d->transactionEndTimer.reset();
    const std::unique_ptr<Transaction> transaction = std::move(d->currentTransaction);
    d->transactionOpen.store(false);
    notifyObserversWithTransaction(*transaction);
}

namespace {
void callListener(VKTransactionListener *listener, const QString &name, VKObservable *facade,
                  const QSet<QString> &keyPaths)
{
    if (auto *observing = dynamic_cast<VKTransactionObserving *>(listener))
        observing->observeTransactionWithName(name, facade, keyPaths);
}
} // namespace

void VKTransactionMediator::notifyObserversWithTransaction(const Transaction &transaction)
{
    if (!d->facadeLifetime.isAlive())
        return;
    std::lock_guard lock(d->observersLock);
    const auto observers = d->observers;
    for (const auto &subscription : observers) {
        if (!subscription->observingKeyPaths.intersects(transaction.pendingKeyPathChanges))
            continue;
        // A subscription removed by an earlier listener of this pass is not called.
        if (!d->observers.contains(subscription))
            continue;
        std::shared_ptr<VKMainLoopTimer> previous;
        bool deferred = false;
        {
            std::lock_guard fields(subscription->mutex);
            if (subscription->notificationInterval > 0 && subscription->lastTimeNotified) {
                previous = std::move(subscription->checkForLastChangeTimer);
                if (lessThan(d->timers->now() - *subscription->lastTimeNotified,
                             subscription->notificationInterval)) {
                    deferred = true;
                    std::weak_ptr<Subscription> weak = subscription;
                    subscription->checkForLastChangeTimer = d->timers->scheduledTimer(
                        subscription->notificationInterval,
                        once(shared_from_this(), [weak](VKTransactionMediator &m) {
                            if (auto s = weak.lock())
                                m.lastChangeDetectionTimerFired(s);
                        }));
                }
            }
        }
        // Invalidating a timer that is not running (this is the main thread, or the timer
        // has not fired) returns at once.
        if (previous)
            previous->invalidate();
        if (deferred)
            continue;
        if (dynamic_cast<VKTransactionObserving *>(subscription->observer)) {
            callListener(subscription->observer, subscription->name, d->facade,
                         subscription->observingKeyPaths);
            std::lock_guard fields(subscription->mutex);
            subscription->lastTimeNotified = d->timers->now();
        }
    }
}

void VKTransactionMediator::lastChangeDetectionTimerFired(
    const std::shared_ptr<Subscription> &subscription)
{
    // An open transaction's end decides about the subscription.
    if (d->transactionOpen.load() || !d->facadeLifetime.isAlive())
        return;
    {
        std::lock_guard fields(subscription->mutex);
        if (!subscription->checkForLastChangeTimer)
            return;
    }
    callListener(subscription->observer, subscription->name, d->facade,
                 subscription->observingKeyPaths);
    std::lock_guard fields(subscription->mutex);
    subscription->lastTimeNotified = d->timers->now();
}

// Sits between a facade (an observable model object) and its listeners: gathers the facade's
// changes of its declared key paths into transactions and, when one ends, calls each listener
// whose key paths were touched once, at most once per notification interval.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKObservable.h"

#include <QSet>
#include <QString>

#include <memory>

// The facade's class declares the key paths the mediator observes. A facade that does not
// implement it is never observed.
class VK_EXPORT VKTransactionObservable
{
public:
    virtual ~VKTransactionObservable();
    virtual QSet<QString> transactionObservableKeyPaths() const = 0;
};

// Anything that subscribes; compared by identity.
class VK_EXPORT VKTransactionListener
{
public:
    virtual ~VKTransactionListener();
};

// What a listener implements to be called; listeners without it are skipped.
class VK_EXPORT VKTransactionObserving
{
public:
    virtual ~VKTransactionObserving();
    // The subscription's name, the facade and the subscription's whole key-path set.
    virtual void observeTransactionWithName(const QString &name, VKObservable *object,
                                            const QSet<QString> &keyPaths) = 0;
};

class VKTransactionTimerSource;

class VK_EXPORT VKTransactionMediator : public VKKeyValueObserver,
                                        public std::enable_shared_from_this<VKTransactionMediator>
{
    struct Passkey
    {
    };

public:
    // Makes a mediator that observes the facade at once. The facade is not owned. Without a
    // timer source the mediator uses the steady clock and the main loop.
    static std::shared_ptr<VKTransactionMediator>
    mediatorWithFacadeObject(VKObservable *facade,
                             std::shared_ptr<VKTransactionTimerSource> timers = {});
    VKTransactionMediator(Passkey, VKObservable *facade,
                          std::shared_ptr<VKTransactionTimerSource> timers);
    ~VKTransactionMediator() override;

    VKObservable *facadeObject() const;

    // Subscriptions equal to one already present (same listener, key paths and interval, any
    // name) are not added again. The listener is not owned: it removes its subscriptions
    // before it goes.
    void addTransactionObserver(VKTransactionListener *listener, const QString &name,
                                const QSet<QString> &keyPaths, double notificationInterval);
    // Removes the listener's subscriptions of that name; once none is left the facade is no
    // longer observed and the mediator leaves the shared registry. Once this returns, no call
    // of a removed subscription starts or is still running.
    void removeTransactionObserver(VKTransactionListener *listener, const QString &name);

    // Ends the open transaction now unless it opened no more than 0.01 seconds ago.
    void mayEndTransaction();
    // Ends the open transaction and calls the interested listeners.
    void endTransaction();

    void startObservingFacade();
    void stopObservingFacade();

    // Internal: the facade's changes.
    void observeValueForKeyPath(const QString &keyPath, VKObservable *object,
                                const VKKeyValueChange &change, void *context) override;

    struct Subscription;
    struct Transaction;

private:
    struct Private;
    void notifyObserversWithTransaction(const Transaction &transaction);
    void lastChangeDetectionTimerFired(const std::shared_ptr<Subscription> &subscription);
    std::unique_ptr<Private> d;
};

#include "Application/VKTransactionObservableMediation.h"

#include "Application/VKTransactionMediatorRegistry.h"

namespace VKTransactionObservableMediation {

std::shared_ptr<VKTransactionMediator> transactionMediator(VKObservable *facade)
{
    return VKTransactionMediatorRegistry::sharedRegistry().transactionMediatorForFacadeObject(
        facade);
}

void addTransactionObserver(VKObservable *facade, VKTransactionListener *listener,
                            const QString &name, const QSet<QString> &keyPaths,
                            double notificationInterval)
{
    transactionMediator(facade)->addTransactionObserver(listener, name, keyPaths,
                                                        notificationInterval);
}

void addTransactionObserver(VKObservable *facade, VKTransactionListener *listener,
                            const QString &name)
{
    QSet<QString> keyPaths;
    if (const auto *observable = dynamic_cast<const VKTransactionObservable *>(facade))
        keyPaths = observable->transactionObservableKeyPaths();
    addTransactionObserver(facade, listener, name, keyPaths, 0);
}

void removeTransactionObserver(VKObservable *facade, VKTransactionListener *listener,
                               const QString &name)
{
    transactionMediator(facade)->removeTransactionObserver(listener, name);
}

void mayEndTransaction(VKObservable *facade)
{
    transactionMediator(facade)->mayEndTransaction();
}

} // namespace VKTransactionObservableMediation

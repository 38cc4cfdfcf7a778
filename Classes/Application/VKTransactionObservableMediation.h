// How facades and listeners reach a facade's transaction mediator: each call finds or makes the
// facade's mediator in the shared registry and forwards to it.
#pragma once

#include "Application/VKTransactionMediator.h"

#include <memory>

namespace VKTransactionObservableMediation {

VK_EXPORT std::shared_ptr<VKTransactionMediator> transactionMediator(VKObservable *facade);
VK_EXPORT void addTransactionObserver(VKObservable *facade, VKTransactionListener *listener,
                                      const QString &name, const QSet<QString> &keyPaths,
                                      double notificationInterval = 0);
// With the key paths the facade's class declares (none when it declares nothing).
VK_EXPORT void addTransactionObserver(VKObservable *facade, VKTransactionListener *listener,
                                      const QString &name);
VK_EXPORT void removeTransactionObserver(VKObservable *facade, VKTransactionListener *listener,
                                         const QString &name);
// The facade calls it when it has finished a burst of changes.
VK_EXPORT void mayEndTransaction(VKObservable *facade);

} // namespace VKTransactionObservableMediation

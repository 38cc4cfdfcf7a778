// The process-wide table of transaction mediators, one per facade: facades are held weakly (an
// entry lapses with its facade), mediators strongly.
#pragma once

#include "Foundation/VKExport.h"

#include <memory>

class VKObservable;
class VKTransactionMediator;
class VKTransactionTimerSource;

class VK_EXPORT VKTransactionMediatorRegistry
{
public:
    // Made on first use; lives for the process.
    static VKTransactionMediatorRegistry &sharedRegistry();

    // The facade's mediator, made (and observing the facade) on first use.
    std::shared_ptr<VKTransactionMediator> transactionMediatorForFacadeObject(VKObservable *facade);
    // Drops the facade's mediator, if any.
    void deregisterMediatorForFacadeObject(VKObservable *facade);
    // The facade's mediator without making one.
    std::shared_ptr<VKTransactionMediator> existingMediatorForFacadeObject(VKObservable *facade);

    // Mediators made from now on read the time and schedule their timers through `source`
    // (null: the steady clock and the main loop); each keeps the source it was made with.
    void setTimerSource(std::shared_ptr<VKTransactionTimerSource> source);

private:
    VKTransactionMediatorRegistry();
    ~VKTransactionMediatorRegistry();
    struct Private;
    std::unique_ptr<Private> d;
};

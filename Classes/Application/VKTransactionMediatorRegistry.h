// The process-wide table of transaction mediators, one per facade: facades are held weakly (an
// entry lapses with its facade), mediators strongly.
#pragma once

#include "Foundation/VKExport.h"

#include <memory>

class VKObservable;
class VKTransactionMediator;

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

private:
    VKTransactionMediatorRegistry();
    ~VKTransactionMediatorRegistry();
    struct Private;
    std::unique_ptr<Private> d;
};

// Internal: the private parts of VKOperation and VKConcurrentOperation.
#pragma once

#include "Application/VKOperation.h"
#include "Foundation/VKOperationBase_p.h"

#include <atomic>
#include <mutex>

struct VKOperation::Private : VKOperationBase::Private
{
    std::atomic<bool> failed{false};
    mutable std::mutex errorMutex;
    VKError error;
};

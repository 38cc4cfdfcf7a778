#include "Application/VKOperation.h"

#include "Application/VKOperation_p.h"

namespace {
const QString kIsFailed = QStringLiteral("isFailed");
}

VKOperation::VKOperation() : VKOperation(std::make_unique<Private>()) {}

VKOperation::VKOperation(std::unique_ptr<Private> dd)
    : VKOperationBase(std::unique_ptr<VKOperationBase::Private>(dd.get())), d(dd.release())
{}

VKOperation::~VKOperation() = default;

void VKOperation::fail(const VKError &error)
{
    {
        std::lock_guard lock(d->errorMutex);
        d->error = error;
    }
    changeValueForKey(kIsFailed, [&] { d->failed.store(true); });
}

VKError VKOperation::error() const
{
    std::lock_guard lock(d->errorMutex);
    return d->error;
}

bool VKOperation::isFailed() const
{
    return d->failed.load();
}

bool VKOperation::isReady() const
{
    if (!VKOperationBase::isReady())
        return false;
    const auto all = dependencies();
    for (const auto &dependency : all)
        if (const auto *operation = dynamic_cast<const VKOperation *>(dependency.get()))
            if (operation->isFailed())
                return false;
    return true;
}

QVariant VKOperation::valueForKey(const QString &key) const
{
    if (key == kIsFailed)
        return isFailed();
    if (key == QLatin1String("error"))
        return QVariant::fromValue(error());
    return VKOperationBase::valueForKey(key);
}

#include "Application/VKConcurrentOperation.h"

#include "Application/VKOperation_p.h"
#include "Foundation/VKException.h"

namespace {
const QString kFinished = QStringLiteral("finished");
const QString kExecuting = QStringLiteral("executing");
} // namespace

struct VKConcurrentOperation::Private : VKOperation::Private
{
    std::atomic<bool> finished{false};
    std::atomic<bool> executing{false};
};

VKConcurrentOperation::VKConcurrentOperation() : VKConcurrentOperation(std::make_unique<Private>())
{}

VKConcurrentOperation::VKConcurrentOperation(std::unique_ptr<Private> dd)
    : VKOperation(std::unique_ptr<VKOperation::Private>(dd.get())), d(dd.release())
{}

VKConcurrentOperation::~VKConcurrentOperation() = default;

void VKConcurrentOperation::start()
{
    throw VKException(VKInvalidArgumentException, QStringLiteral("Called Abstract Medod"));
}

void VKConcurrentOperation::willFinish() {}

void VKConcurrentOperation::finish()
{
    willFinish();
    setExecuting(false);
    setFinished(true);
}

void VKConcurrentOperation::fail(const VKError &error)
{
    VKOperation::fail(error);
    finish();
}

bool VKConcurrentOperation::isFinished() const
{
    return d->finished.load();
}

bool VKConcurrentOperation::isExecuting() const
{
    return d->executing.load();
}

bool VKConcurrentOperation::isConcurrent() const
{
    return true;
}

void VKConcurrentOperation::setFinished(bool finished)
{
    changeValueForKey(kFinished, [&] { d->finished.store(finished); });
}

void VKConcurrentOperation::setExecuting(bool executing)
{
    changeValueForKey(kExecuting, [&] { d->executing.store(executing); });
}

QSet<QString> VKConcurrentOperation::keyPathsForValuesAffectingValueForKey(const QString &key) const
{
    if (key == QLatin1String("isFinished"))
        return {kFinished};
    if (key == QLatin1String("isExecuting"))
        return {kExecuting};
    return {};
}

QVariant VKConcurrentOperation::valueForKey(const QString &key) const
{
    if (key == kFinished)
        return isFinished();
    if (key == kExecuting)
        return isExecuting();
    return VKOperation::valueForKey(key);
}

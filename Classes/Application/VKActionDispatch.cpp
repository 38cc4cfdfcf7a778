#include "Application/VKActionDispatch.h"

#include "Foundation/VKApplicationLifecycle.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKNotificationCenter.h"

VK_REGISTER_CLASS(VKActionDispatch, VKResponder)

namespace {

const QStringList targetPrefixes = {QStringLiteral("VDActionTarget"),
                                    QStringLiteral("VHActionTarget")};

VKLogContext logContext(const VKActionDispatch *dispatch, const char *operation)
{
    return {QStringLiteral("VKActionDispatch"), QString::fromLatin1(operation), dispatch};
}

} // namespace

struct VKActionDispatch::Private
{
    QList<std::shared_ptr<VKActionTarget>> responders;
};

VKActionDispatch::VKActionDispatch() : d(std::make_unique<Private>())
{
    VKNotificationCenter::defaultCenter().addObserver(
        this, VKApplicationDidFinishLaunchingNotification, nullptr,
        [this](const VKNotification &notification) {
            applicationDidFinishLaunching(notification);
        });
}

VKActionDispatch::~VKActionDispatch()
{
    VKNotificationCenter::defaultCenter().removeObserver(this);
    d->responders.clear();
}

QList<std::shared_ptr<VKActionTarget>> VKActionDispatch::allResponders() const
{
    return d->responders;
}

void VKActionDispatch::setAllResponders(const QList<std::shared_ptr<VKActionTarget>> &responders)
{
    d->responders = responders;
}

bool VKActionDispatch::acceptsFirstResponder() const
{
    return true;
}

bool VKActionDispatch::becomeFirstResponder()
{
    return true;
}

void VKActionDispatch::applicationDidFinishLaunching(const VKNotification &)
{
    QList<std::shared_ptr<VKActionTarget>> responders;
    const QStringList names =
        VKClassRegistry::classNamesWithPrefixes(targetPrefixes, QStringLiteral("VKActionTarget"));
    for (const QString &name : names) {
        auto target = VKClassRegistry::createInstance<VKActionTarget>(name);
        if (!target) {
            VKLogger::error(logContext(this, "-[VKActionDispatch applicationDidFinishLaunching:]"),
                            QStringLiteral("could not make the action target %@"), name);
            continue;
        }
        responders.append(std::move(target));
    }
    d->responders = responders;
    updateResponders();
    if (VKResponder *application = VKResponder::applicationResponder())
        application->setNextResponder(this);
}

void VKActionDispatch::updateResponders()
{
    if (d->responders.isEmpty()) {
        setNextResponder(nullptr);
        return;
    }
    setNextResponder(d->responders.first().get());
    for (qsizetype i = 0; i + 1 < d->responders.size(); ++i)
        d->responders[i]->setNextResponder(d->responders[i + 1].get());
}

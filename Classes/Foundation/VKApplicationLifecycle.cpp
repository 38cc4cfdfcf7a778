// States per application object: attached -> will finish posted -> did finish posted (first
// event-loop turn) -> will terminate posted (aboutToQuit or applicationWillTerminate()). The
// state lives in a small object parented to the application, so a new application object (as
// in tests) starts afresh and a destroyed one takes its state with it. Main thread only.
#include "Foundation/VKApplicationLifecycle.h"

#include "Foundation/VKNotificationCenter.h"

#include <QCoreApplication>
#include <QObject>

const QString VKApplicationWillFinishLaunchingNotification =
    QStringLiteral("VKApplicationWillFinishLaunchingNotification");
const QString VKApplicationDidFinishLaunchingNotification =
    QStringLiteral("VKApplicationDidFinishLaunchingNotification");
const QString VKApplicationWillTerminateNotification =
    QStringLiteral("VKApplicationWillTerminateNotification");

namespace {

class LifecycleState : public QObject
{
public:
    using QObject::QObject;
    bool didFinishLaunching = false;
    bool willTerminate = false;
};

constexpr char stateName[] = "VKApplicationLifecycleState";

LifecycleState *currentState()
{
    QCoreApplication *application = QCoreApplication::instance();
    if (!application)
        return nullptr;
    return application->findChild<LifecycleState *>(QLatin1String(stateName),
                                                    Qt::FindDirectChildrenOnly);
}

void post(const QString &name)
{
    VKNotificationCenter::defaultCenter().postNotificationName(name);
}

} // namespace

bool VKApplicationLifecycle::attachToApplication()
{
    QCoreApplication *application = QCoreApplication::instance();
    if (!application)
        return false;
    if (currentState())
        return true;
    auto *state = new LifecycleState(application);
    state->setObjectName(QLatin1String(stateName));
    post(VKApplicationWillFinishLaunchingNotification);
    QMetaObject::invokeMethod(
        state,
        [state] {
            state->didFinishLaunching = true;
            post(VKApplicationDidFinishLaunchingNotification);
        },
        Qt::QueuedConnection);
    QObject::connect(application, &QCoreApplication::aboutToQuit, state,
                     [] { applicationWillTerminate(); });
    return true;
}

bool VKApplicationLifecycle::hasFinishedLaunching()
{
    LifecycleState *state = currentState();
    return state && state->didFinishLaunching;
}

void VKApplicationLifecycle::applicationWillTerminate()
{
    LifecycleState *state = currentState();
    if (!state || state->willTerminate)
        return;
    state->willTerminate = true;
    post(VKApplicationWillTerminateNotification);
}

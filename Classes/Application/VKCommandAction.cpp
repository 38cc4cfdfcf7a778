#include "Application/VKCommandAction.h"

#include "Application/VKActionTarget.h"
#include "Application/VKResponder.h"
#include "Foundation/VKApplicationLifecycle.h"
#include "Foundation/VKNotificationCenter.h"

#include <QApplication>
#include <QWidget>

VKCommandAction::VKCommandAction(const QString &text, const QString &command, QObject *parent)
    : QAction(text, parent), m_command(command)
{
    connect(this, &QAction::triggered, this, [this] { perform(); });
    VKNotificationCenter &center = VKNotificationCenter::defaultCenter();
    m_stateObservation = center.addObserver(
        this, VKActionTargetStateCouldHaveBeenChangedNotification, nullptr,
        [this](const VKNotification &notification) {
            const VKNotificationObject &object = notification.object();
            if (!object.hasCommandNames() || object.commandNames().contains(m_command))
                validate();
        });
    // The dispatcher links its targets in its own handler of the same notification; validating
    // on the next turn sees the finished chain whichever handler ran first.
    m_launchObservation = center.addObserver(
        this, VKApplicationDidFinishLaunchingNotification, nullptr, [this](const VKNotification &) {
            QMetaObject::invokeMethod(
                this, [this] { validate(); }, Qt::QueuedConnection);
        });
    if (auto *application = qobject_cast<QApplication *>(QCoreApplication::instance()))
        connect(application, &QApplication::focusChanged, this, [this] { validate(); });
    validate();
}

VKCommandAction::~VKCommandAction()
{
    VKNotificationCenter &center = VKNotificationCenter::defaultCenter();
    center.removeObservation(m_stateObservation);
    center.removeObservation(m_launchObservation);
}

QString VKCommandAction::command() const
{
    return m_command;
}

bool VKCommandAction::validate()
{
    QObject *target = VKResponder::targetForCommand(m_command);
    bool enabled = target != nullptr;
    if (auto *responder = qobject_cast<VKResponder *>(target))
        enabled = responder->validateMenuItem(this);
    setEnabled(enabled);
    return enabled;
}

bool VKCommandAction::perform()
{
    return VKResponder::sendCommand(m_command, this);
}

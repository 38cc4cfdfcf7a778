#include "Application/VKResponder.h"

#include "Foundation/VKClassRegistry.h"

#include <QApplication>
#include <QMetaMethod>
#include <QWidget>

VK_REGISTER_ROOT_CLASS(VKResponder)

namespace {

constexpr char applicationResponderName[] = "VKApplicationResponder";

enum class CommandForm { None, NoArguments, Sender };

// The best method of `object` for the command: one taking the sender wins over one taking
// nothing. Signals, protected and private methods never count.
QMetaMethod commandMethod(const QObject *object, const QString &command, CommandForm *form)
{
    *form = CommandForm::None;
    if (!object || command.isEmpty())
        return {};
    const QByteArray name = command.toUtf8();
    const QMetaObject *meta = object->metaObject();
    QMetaMethod found;
    for (int i = 0; i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (method.access() != QMetaMethod::Public || method.name() != name)
            continue;
        if (method.methodType() != QMetaMethod::Slot && method.methodType() != QMetaMethod::Method)
            continue;
        if (method.parameterCount() == 1 && method.parameterType(0) == QMetaType::QObjectStar) {
            *form = CommandForm::Sender;
            return method;
        }
        if (method.parameterCount() == 0 && *form == CommandForm::None) {
            *form = CommandForm::NoArguments;
            found = method;
        }
    }
    return found;
}

bool respondsHere(const QObject *object, const QString &command)
{
    if (const auto *responder = qobject_cast<const VKResponder *>(object))
        return responder->respondsToSelector(command);
    return VKResponder::objectRespondsToCommand(object, command);
}

} // namespace

VKResponder::VKResponder(QObject *parent) : QObject(parent) {}

VKResponder::~VKResponder() = default;

VKResponder *VKResponder::nextResponder() const
{
    return m_nextResponder.data();
}

void VKResponder::setNextResponder(VKResponder *responder)
{
    m_nextResponder = responder;
}

bool VKResponder::respondsToSelector(const QString &command) const
{
    CommandForm form;
    commandMethod(this, command, &form);
    return form != CommandForm::None;
}

bool VKResponder::tryToPerform(const QString &command, QObject *sender)
{
    // Iterative, so that a long or accidentally circular chain cannot overflow the stack.
    QList<const VKResponder *> visited;
    for (VKResponder *responder = this; responder && !visited.contains(responder);
         responder = responder->nextResponder()) {
        visited.append(responder);
        if (responder->respondsToSelector(command))
            return invokeCommand(responder, command, sender);
    }
    return false;
}

bool VKResponder::validateMenuItem(QAction *) const
{
    return true;
}

bool VKResponder::acceptsFirstResponder() const
{
    return false;
}

bool VKResponder::becomeFirstResponder()
{
    return true;
}

VKResponder *VKResponder::applicationResponder()
{
    QCoreApplication *application = QCoreApplication::instance();
    if (!application)
        return nullptr;
    auto *responder = application->findChild<VKResponder *>(QLatin1String(applicationResponderName),
                                                            Qt::FindDirectChildrenOnly);
    if (!responder) {
        responder = new VKResponder(application);
        responder->setObjectName(QLatin1String(applicationResponderName));
    }
    return responder;
}

QObject *VKResponder::targetForCommand(const QString &command)
{
    if (command.isEmpty())
        return nullptr;
    for (QWidget *widget = QApplication::focusWidget(); widget; widget = widget->parentWidget()) {
        if (respondsHere(widget, command))
            return widget;
        if (widget->isWindow())
            break;
    }
    QList<const VKResponder *> visited;
    for (VKResponder *responder = applicationResponder(); responder && !visited.contains(responder);
         responder = responder->nextResponder()) {
        visited.append(responder);
        if (responder->respondsToSelector(command))
            return responder;
    }
    return nullptr;
}

bool VKResponder::sendCommand(const QString &command, QObject *sender)
{
    QObject *target = targetForCommand(command);
    return target && invokeCommand(target, command, sender);
}

bool VKResponder::objectRespondsToCommand(const QObject *object, const QString &command)
{
    CommandForm form;
    commandMethod(object, command, &form);
    return form != CommandForm::None;
}

bool VKResponder::invokeCommand(QObject *object, const QString &command, QObject *sender)
{
    CommandForm form;
    const QMetaMethod method = commandMethod(object, command, &form);
    switch (form) {
    case CommandForm::Sender:
        return method.invoke(object, Qt::DirectConnection, Q_ARG(QObject *, sender));
    case CommandForm::NoArguments:
        return method.invoke(object, Qt::DirectConnection);
    case CommandForm::None:
        break;
    }
    return false;
}

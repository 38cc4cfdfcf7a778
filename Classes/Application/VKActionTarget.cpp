#include "Application/VKActionTarget.h"

#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKNotificationCenter.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QLineEdit>

#include <utility>

const QString VKActionTargetStateCouldHaveBeenChangedNotification =
    QStringLiteral("VKActionTargetStateCouldHaveBeenChangedNotification");
const QString kValid = QStringLiteral("valid");

VK_REGISTER_CLASS(VKActionTarget, VKResponder)

namespace {

const QString observersKey = QStringLiteral("invokeControlValidationObservers");
const QString selectorsKey = QStringLiteral("selectors");

VKLogContext logContext(const VKActionTarget *target, const char *operation)
{
    return {target->className(), QString::fromLatin1(operation), target};
}

// What "%@" shows for an object without a description of its own.
QString objectDescription(const VKObservable *object)
{
    if (!object)
        return QStringLiteral("(null)");
    return QStringLiteral("<%1: %2>")
        .arg(object->className(), QString::asprintf("%p", static_cast<const void *>(object)));
}

} // namespace

struct VKActionTarget::Private
{
    QSet<QString> selectors;
    bool valid = false;
    VKControlValidationObservers observers;
    // Key paths observed now, so that removal matches what was established even when the
    // dictionary has been replaced meanwhile.
    QList<QPair<QString, std::shared_ptr<VKObservable>>> established;
};

VKActionTarget::VKActionTarget() : d(std::make_unique<Private>())
{
    addObserver(this, kValid);
}

VKActionTarget::~VKActionTarget()
{
    removeObserver(this, kValid);
    // No announcement from a half-destroyed object: only the observations end here.
    removeControlValidationKVO();
    d->observers.clear();
}

QSet<QString> VKActionTarget::selectors() const
{
    return d->selectors;
}

void VKActionTarget::setSelectors(const QSet<QString> &selectors)
{
    changeValueForKey(selectorsKey, [&] { d->selectors = selectors; });
}

bool VKActionTarget::isValid() const
{
    return d->valid;
}

void VKActionTarget::setValid(bool valid)
{
    if (valid == d->valid)
        return;
    willChangeValueForKey(kValid);
    d->valid = valid;
    didChangeValueForKey(kValid);
}

VKControlValidationObservers VKActionTarget::invokeControlValidationObservers() const
{
    return d->observers;
}

void VKActionTarget::setInvokeControlValidationObservers(
    const VKControlValidationObservers &observers)
{
    removeControlValidationKVO();
    willChangeValueForKey(observersKey);
    d->observers = observers;
    didChangeValueForKey(observersKey);
    establishControlValidation();
}

void VKActionTarget::establishControlValidation()
{
    for (auto it = d->observers.cbegin(); it != d->observers.cend(); ++it) {
        if (!it.value())
            continue;
        it.value()->addObserver(this, it.key());
        d->established.append({it.key(), it.value()});
    }
}

void VKActionTarget::removeControlValidationKVO()
{
    const auto established = std::exchange(d->established, {});
    for (const auto &[keyPath, object] : established)
        object->removeObserver(this, keyPath);
}

bool VKActionTarget::isListeningForKeyPath(const QString &keyPath, const VKObservable *object) const
{
    auto it = d->observers.constFind(keyPath);
    return it != d->observers.cend() && it.value().get() == object;
}

bool VKActionTarget::respondsToSelector(const QString &command) const
{
    if (d->selectors.contains(command))
        return d->valid;
    return VKResponder::respondsToSelector(command);
}

bool VKActionTarget::validateMenuItem(QAction *) const
{
    return !isEditingText();
}

bool VKActionTarget::isEditingText()
{
    if (!qobject_cast<QApplication *>(QCoreApplication::instance()))
        return false;
    QWidget *focus = QApplication::focusWidget();
    if (!focus)
        return false;
    if (auto *line = qobject_cast<QLineEdit *>(focus))
        return !line->isReadOnly();
    if (auto *spinBox = qobject_cast<QAbstractSpinBox *>(focus))
        return !spinBox->isReadOnly();
    if (auto *comboBox = qobject_cast<QComboBox *>(focus))
        return comboBox->isEditable();
    return false;
}

void VKActionTarget::observeValueForKeyPath(const QString &keyPath, VKObservable *object,
                                            const VKKeyValueChange &, void *)
{
    if (object == this && keyPath == kValid) {
        postStateNotification();
        return;
    }
    if (isListeningForKeyPath(keyPath, object)) {
        postStateNotification();
        return;
    }
    VKLogger::error(logContext(this, "-[VKActionTarget "
                                     "observeValueForKeyPath:ofObject:change:context:]"),
                    QStringLiteral("No observer found for keyPath %@ of object %@"), keyPath,
                    objectDescription(object));
}

void VKActionTarget::postStateNotification() const
{
    VKNotificationCenter::defaultCenter().postNotificationName(
        VKActionTargetStateCouldHaveBeenChangedNotification,
        VKNotificationObject::commandNames(d->selectors));
}

bool VKActionTarget::automaticallyNotifiesObserversForKey(const QString &key) const
{
    if (key == kValid || key == observersKey)
        return false;
    return VKObservable::automaticallyNotifiesObserversForKey(key);
}

QVariant VKActionTarget::valueForKey(const QString &key) const
{
    if (key == kValid)
        return d->valid;
    if (key == selectorsKey) {
        QStringList names(d->selectors.cbegin(), d->selectors.cend());
        names.sort();
        return names;
    }
    return VKObservable::valueForKey(key);
}

void VKActionTarget::setValueForKey(const QVariant &value, const QString &key)
{
    if (key == kValid) {
        setValid(value.toBool());
        return;
    }
    VKObservable::setValueForKey(value, key);
}

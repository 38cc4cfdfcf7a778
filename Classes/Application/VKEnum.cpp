// Life of an enumeration: made by a class operation (constructor, then initWithUserDefaultsKey),
// it observes its own "selectedElement" (to post VDEnumSelectedElementDidChangeNotification)
// and "userDefaultsKey" (to load, follow and store the selection) until it is destroyed. While a
// key is set it listens to VKUserDefaultsDidChangeNotification from any defaults object. No
// locks: an instance belongs to one thread at a time.
#include "Application/VKEnum.h"

#include "Foundation/VKFormat.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKStringRanges.h"
#include "Foundation/VKUserDefaults.h"

const QString VDEnumSelectedElementDidChangeNotification =
    QStringLiteral("VDEnumSelectedElementDidChangeNotification");

namespace {

const QString selectedElementKey = QStringLiteral("selectedElement");
const QString selectedIdentifierKey = QStringLiteral("selectedIdentifier");
const QString selectedNameKey = QStringLiteral("selectedName");
const QString selectedIndexKey = QStringLiteral("selectedIndex");
const QString userDefaultsKeyKey = QStringLiteral("userDefaultsKey");

// String equality where a null text equals nothing, not even another null one.
bool sameText(const QString &a, const QString &b)
{
    return !a.isNull() && !b.isNull() && a == b;
}

} // namespace

struct VKEnum::Private
{
    std::shared_ptr<VKEnumElement> selectedElement;
    QString userDefaultsKey;
    VKObservationToken selectedElementObservation = 0;
    VKObservationToken userDefaultsKeyObservation = 0;
    VKNotificationToken defaultsListener = 0;
};

VKEnum::VKEnum() : d(std::make_unique<Private>()) {}

VKEnum::~VKEnum()
{
    if (d->defaultsListener)
        VKNotificationCenter::defaultCenter().removeObservation(d->defaultsListener);
    removeObservation(d->selectedElementObservation);
    removeObservation(d->userDefaultsKeyObservation);
    d->userDefaultsKey.clear();
    d->selectedElement.reset();
}

void VKEnum::initWithUserDefaultsKey(const QString &key)
{
    d->selectedElementObservation =
        observe(selectedElementKey, 0,
                [this](VKObservable *, const QString &, const VKKeyValueChange &change) {
                    if (!change.isPrior)
                        selectedElementDidChange();
                });
    d->userDefaultsKeyObservation =
        observe(userDefaultsKeyKey, 0,
                [this](VKObservable *, const QString &, const VKKeyValueChange &change) {
                    if (!change.isPrior)
                        userDefaultsKeyDidChange();
                });
    setSelectedElement(classDefaultElement());
    setUserDefaultsKey(key);
}

std::shared_ptr<VKEnum> VKEnum::enumm()
{
    return makeEnum(new VKEnum, QString());
}

std::shared_ptr<VKEnum> VKEnum::enumWithSelectedIdentifier(const QString &identifier)
{
    auto made = enumm();
    made->setSelectedIdentifier(identifier);
    return made;
}

std::shared_ptr<VKEnum>
VKEnum::enumWithSelectedElement(const std::shared_ptr<VKEnumElement> &element)
{
    auto made = enumm();
    made->setSelectedElement(element);
    return made;
}

std::shared_ptr<VKEnum> VKEnum::enumWithUserDefaultsKey(const QString &key)
{
    return makeEnum(new VKEnum, key);
}

std::shared_ptr<VKEnumElement> VKEnum::defaultElement()
{
    return VKEnumElement::sourceWithIdentifier(QString(), QString(), QVariant());
}

QList<std::shared_ptr<VKEnumElement>> VKEnum::classElements() const
{
    return {};
}

std::shared_ptr<VKEnumElement> VKEnum::classDefaultElement() const
{
    return VKEnum::defaultElement();
}

QList<std::shared_ptr<VKEnumElement>> VKEnum::elements() const
{
    return classElements();
}

QStringList VKEnum::elementNames() const
{
    QStringList names;
    for (const auto &element : elements())
        names.append(element->valueForKey(QStringLiteral("name")).toString());
    return names;
}

QVariantList VKEnum::elementValues() const
{
    QVariantList values;
    for (const auto &element : elements())
        values.append(element->valueForKey(QStringLiteral("value")));
    return values;
}

QStringList VKEnum::possibleKeys() const
{
    return elementNames();
}

QVariantList VKEnum::possibleValues() const
{
    return elementValues();
}

std::shared_ptr<VKEnumElement> VKEnum::selectedElement() const
{
    return d->selectedElement;
}

void VKEnum::setSelectedElement(std::shared_ptr<VKEnumElement> element)
{
    if (!element)
        element = classDefaultElement();
    if (element == d->selectedElement)
        return;
    willChangeValueForKey(selectedElementKey);
    d->selectedElement = std::move(element);
    if (!d->userDefaultsKey.isNull()) {
        const QString identifier = selectedIdentifier();
        VKUserDefaults::standardUserDefaults()->setObject(
            identifier.isNull() ? QVariant() : QVariant(identifier), d->userDefaultsKey);
    }
    didChangeValueForKey(selectedElementKey);
}

QString VKEnum::selectedIdentifier() const
{
    return d->selectedElement ? d->selectedElement->identifier() : QString();
}

void VKEnum::setSelectedIdentifier(QString identifier)
{
    if (identifier.isNull())
        identifier = classDefaultElement()->identifier();
    if (sameText(selectedIdentifier(), identifier))
        return;
    willChangeValueForKey(selectedIdentifierKey);
    for (const auto &element : elements()) {
        if (sameText(element->identifier(), identifier)) {
            setSelectedElement(element);
            break;
        }
    }
    didChangeValueForKey(selectedIdentifierKey);
}

QString VKEnum::selectedName() const
{
    return d->selectedElement ? d->selectedElement->name() : QString();
}

void VKEnum::setSelectedName(const QString &name)
{
    for (const auto &element : elements()) {
        if (sameText(element->name(), name)) {
            setSelectedElement(element);
            return;
        }
    }
    setSelectedElement(nullptr);
}

qint64 VKEnum::selectedIndex() const
{
    const auto list = elements();
    for (qsizetype i = 0; i < list.size(); ++i)
        if (list.at(i)->isEqual(d->selectedElement.get()))
            return i;
    return VKNotFound;
}

void VKEnum::setSelectedIndex(quint64 index)
{
    const auto list = elements();
    setSelectedElement(index < quint64(list.size()) ? list.at(qsizetype(index)) : nullptr);
}

QString VKEnum::userDefaultsKey() const
{
    return d->userDefaultsKey;
}

void VKEnum::setUserDefaultsKey(const QString &key)
{
    changeValueForKey(userDefaultsKeyKey, [&] { d->userDefaultsKey = key; });
}

void VKEnum::userDefaultsDidChange(const VKNotification &)
{
    if (d->userDefaultsKey.isNull())
        return;
    setSelectedIdentifier(VKUserDefaults::standardUserDefaults()->stringForKey(d->userDefaultsKey));
}

void VKEnum::selectedElementDidChange()
{
    VKNotificationCenter::defaultCenter().postNotificationName(
        VDEnumSelectedElementDidChangeNotification, static_cast<VKEnum *>(this));
}

void VKEnum::userDefaultsKeyDidChange()
{
    VKNotificationCenter &center = VKNotificationCenter::defaultCenter();
    const QString key = d->userDefaultsKey;
    if (key.isNull()) {
        if (d->defaultsListener)
            center.removeObservation(d->defaultsListener);
        d->defaultsListener = 0;
        return;
    }
    const auto defaults = VKUserDefaults::standardUserDefaults();
    // A fallback only: it applies while nothing is stored under the key. The base class's
    // default element has no identifier, so there is nothing to enter.
    const QString fallback = classDefaultElement()->identifier();
    if (!fallback.isNull())
        defaults->registerDefaults({{key, fallback}});
    setSelectedIdentifier(defaults->stringForKey(key));
    if (!d->defaultsListener) {
        d->defaultsListener = center.addObserver(
            this, VKUserDefaultsDidChangeNotification, nullptr,
            [this](const VKNotification &notification) { userDefaultsDidChange(notification); });
    }
    const QString identifier = selectedIdentifier();
    defaults->setObject(identifier.isNull() ? QVariant() : QVariant(identifier), key);
}

QString VKEnum::description() const
{
    QString text = vkFormat("<%@: %p>", className(), static_cast<const void *>(this));
    text += QStringLiteral("{\n");
    for (const auto &element : elements()) {
        text += vkFormat("\t%@", element->description());
        if (element == d->selectedElement)
            text += QStringLiteral(" (selected)");
        text += u'\n';
    }
    text += QStringLiteral("}\n");
    return text;
}

bool VKEnum::automaticallyNotifiesObserversForKey(const QString &key) const
{
    if (key == selectedElementKey || key == selectedIdentifierKey)
        return false;
    return VKObservable::automaticallyNotifiesObserversForKey(key);
}

QSet<QString> VKEnum::keyPathsForValuesAffectingValueForKey(const QString &key) const
{
    if (key == selectedIdentifierKey || key == selectedNameKey || key == selectedIndexKey)
        return {selectedElementKey};
    return VKObservable::keyPathsForValuesAffectingValueForKey(key);
}

QVariant VKEnum::valueForKey(const QString &key) const
{
    if (key == selectedElementKey)
        return QVariant::fromValue(d->selectedElement);
    if (key == selectedIdentifierKey)
        return selectedIdentifier();
    if (key == selectedNameKey)
        return selectedName();
    if (key == selectedIndexKey)
        return selectedIndex();
    if (key == userDefaultsKeyKey)
        return d->userDefaultsKey;
    if (key == u"elementNames" || key == u"possibleKeys")
        return elementNames();
    if (key == u"elementValues" || key == u"possibleValues")
        return elementValues();
    return VKObservable::valueForKey(key);
}

void VKEnum::setValueForKey(const QVariant &value, const QString &key)
{
    if (key == selectedElementKey)
        setSelectedElement(value.value<std::shared_ptr<VKEnumElement>>());
    else if (key == selectedIdentifierKey)
        setSelectedIdentifier(value.isNull() ? QString() : value.toString());
    else if (key == selectedNameKey)
        setSelectedName(value.isNull() ? QString() : value.toString());
    else if (key == selectedIndexKey)
        setSelectedIndex(value.toULongLong());
    else if (key == userDefaultsKeyKey)
        setUserDefaultsKey(value.isNull() ? QString() : value.toString());
    else
        VKObservable::setValueForKey(value, key);
}

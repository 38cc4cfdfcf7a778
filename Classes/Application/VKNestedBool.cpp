#include "Application/VKNestedBool.h"

namespace {
const QString kBooleanValue = QStringLiteral("booleanValue");
}

VKNestedBool::VKNestedBool() = default;
VKNestedBool::~VKNestedBool() = default;

void VKNestedBool::increaseCounter()
{
    if (m_counter.load() == 0) {
        willChangeValueForKey(kBooleanValue);
        ++m_counter;
        didChangeValueForKey(kBooleanValue);
    } else {
        ++m_counter;
    }
}

void VKNestedBool::decreaseCounter()
{
    const int counter = m_counter.load();
    if (counter == 1) {
        willChangeValueForKey(kBooleanValue);
        --m_counter;
        didChangeValueForKey(kBooleanValue);
    } else if (counter > 1) {
        --m_counter;
    }
}

void VKNestedBool::setBoolValue(bool value)
{
    if (value)
        increaseCounter();
    else
        decreaseCounter();
}

bool VKNestedBool::boolValue() const
{
    return m_counter.load() > 0;
}

int VKNestedBool::counter() const
{
    return m_counter.load();
}

bool VKNestedBool::automaticallyNotifiesObserversForKey(const QString &key) const
{
    if (key == QLatin1String("boolValue"))
        return false;
    return VKObservable::automaticallyNotifiesObserversForKey(key);
}

QVariant VKNestedBool::valueForKey(const QString &key) const
{
    if (key == QLatin1String("boolValue") || key == kBooleanValue)
        return boolValue();
    return VKObservable::valueForKey(key);
}

// A flag that stays true while at least one holder has set it: each true counts up, each false
// counts down. Observers watch the key "booleanValue", which is what the flag announces.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKObservable.h"

#include <atomic>

class VK_EXPORT VKNestedBool : public VKObservable
{
public:
    VKNestedBool();
    ~VKNestedBool() override;

    // Announces "booleanValue" only when the counter leaves 0.
    void increaseCounter();
    // Announces "booleanValue" only when the counter reaches 0; never goes below 0.
    void decreaseCounter();
    // True counts up, false counts down.
    void setBoolValue(bool value);
    bool boolValue() const;
    int counter() const;

    // Changes of "boolValue" are announced by hand, under the name "booleanValue".
    bool automaticallyNotifiesObserversForKey(const QString &key) const override;
    // "boolValue", and "booleanValue" for observers that ask for new values.
    QVariant valueForKey(const QString &key) const override;

private:
    std::atomic<int> m_counter{0};
};

// Key-value observation and coding for objects of any subsystem: observers register for a key of
// an object and are told, on the thread that made the change, after a will-change/did-change
// announcement pair. Subclasses declare per class which keys announce by hand and which keys
// depend on others, and answer value-by-key access for their properties.
#pragma once

#include "Foundation/VKExport.h"

#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>

// What an observer wants to receive (combine with |).
using VKKeyValueObservingOptions = unsigned;
inline constexpr VKKeyValueObservingOptions VKKeyValueObservingOptionNew = 0x01;
inline constexpr VKKeyValueObservingOptions VKKeyValueObservingOptionOld = 0x02;
// Calls the observer once at registration, with the current value when New is asked for.
inline constexpr VKKeyValueObservingOptions VKKeyValueObservingOptionInitial = 0x04;
// Calls the observer also at will-change (with isPrior set).
inline constexpr VKKeyValueObservingOptions VKKeyValueObservingOptionPrior = 0x08;

// Keys of VKKeyValueChange::dictionary().
VK_EXPORT extern const QString VKKeyValueChangeKindKey;                // "kind"
VK_EXPORT extern const QString VKKeyValueChangeNewKey;                 // "new"
VK_EXPORT extern const QString VKKeyValueChangeOldKey;                 // "old"
VK_EXPORT extern const QString VKKeyValueChangeNotificationIsPriorKey; // "notificationIsPrior"
// User-information key of the undefined-key exception: the key asked for.
VK_EXPORT extern const QString VKUnknownUserInfoKey; // "NSUnknownUserInfoKey"

// The kind of every change this library announces: a value was set.
inline constexpr int VKKeyValueChangeSetting = 1;

// One change as an observer receives it. newValue and oldValue are filled only when the
// observer asked for them (New, Old); a prior call carries no new value.
struct VK_EXPORT VKKeyValueChange
{
    QVariant newValue;
    QVariant oldValue;
    bool isPrior = false;
    bool hasNewValue = false;
    bool hasOldValue = false;

    // "kind" plus "new", "old" and "notificationIsPrior" when present.
    QVariantMap dictionary() const;
};

class VKObservable;

// An object that receives changes through addObserver().
class VK_EXPORT VKKeyValueObserver
{
public:
    virtual ~VKKeyValueObserver();
    virtual void observeValueForKeyPath(const QString &keyPath, VKObservable *object,
                                        const VKKeyValueChange &change, void *context) = 0;
};

// Identifies a callback observation made with observe(); 0 is never used.
using VKObservationToken = quint64;

// A weak reference to the life of an observable object. A table keyed by observed objects keeps
// one per entry and lets entries lapse once their object is gone; a new object at the same
// address has another lifetime. It expires when the object's VKObservable part is destroyed,
// that is after the subclass's destructor ran.
class VK_EXPORT VKObservableLifetime
{
public:
    // Never alive.
    VKObservableLifetime() = default;

    bool isAlive() const { return !m_alive.expired(); }
    // The object's address, as a key; only dereference it while the object is known to live.
    const VKObservable *object() const { return m_object; }

    // The same life of the same object.
    friend bool operator==(const VKObservableLifetime &a, const VKObservableLifetime &b)
    {
        return !a.m_alive.owner_before(b.m_alive) && !b.m_alive.owner_before(a.m_alive);
    }

private:
    friend class VKObservable;
    std::weak_ptr<const void> m_alive;
    const VKObservable *m_object = nullptr;
};

// Observers and callbacks are told on the thread that announced the change. Registration and
// removal never wait for calls running on other threads: once a removal returned, no call of
// that registration starts any more, but a call that started earlier on another thread may
// still be running. A callback registration keeps its function (and what it captures) alive
// until such calls are over; an observer registered by shared pointer is kept alive for the
// length of each call; a plain observer pointer must outlive calls that may be running.
class VK_EXPORT VKObservable
{
public:
    using Callback = std::function<void(VKObservable *object, const QString &key,
                                        const VKKeyValueChange &change)>;

    VKObservable();
    virtual ~VKObservable();
    VKObservable(const VKObservable &) = delete;
    VKObservable &operator=(const VKObservable &) = delete;

    // The observer is not owned. The same observer may register several times for one key
    // (each registration is told once per change).
    void addObserver(VKKeyValueObserver *observer, const QString &key,
                     VKKeyValueObservingOptions options = 0, void *context = nullptr);
    void addObserver(VKKeyValueObserver *observer, const QStringList &keys,
                     VKKeyValueObservingOptions options = 0, void *context = nullptr);
    // Holds the observer weakly: calls stop once it is gone, and each call keeps it alive
    // while it runs. Remove it with the plain pointer.
    void addObserver(const std::shared_ptr<VKKeyValueObserver> &observer, const QString &key,
                     VKKeyValueObservingOptions options = 0, void *context = nullptr);
    // Removes the observer's latest registration for the key (with the given context when one
    // is passed). Throws VKRangeException when there is none.
    void removeObserver(VKKeyValueObserver *observer, const QString &key);
    void removeObserver(VKKeyValueObserver *observer, const QString &key, void *context);
    void removeObserver(VKKeyValueObserver *observer, const QStringList &keys);

    // A callback registration; removeObservation() ends it (unknown tokens are ignored).
    VKObservationToken observe(const QString &key, VKKeyValueObservingOptions options,
                               Callback callback);
    void removeObservation(VKObservationToken token);

    // Whether anyone observes the key, directly or through a key that depends on it.
    bool hasObserversForKey(const QString &key) const;

    // The object's lifetime, for tables keyed by observed objects.
    VKObservableLifetime lifetime() const;

    // The announcement pair around a change of `key`. Pairs may nest (also for the same key);
    // each did-change closes the latest open will-change of that key on the calling thread.
    // Every registration made before the did-change is told: one made after the will-change
    // gets no old value. Without observers the pair costs a few loads.
    void willChangeValueForKey(const QString &key);
    void didChangeValueForKey(const QString &key);

    // Runs `change` between an announcement pair when the key announces automatically;
    // property setters go through it.
    template <typename F>
    void changeValueForKey(const QString &key, F &&change)
    {
        if (!automaticallyNotifiesObserversForKey(key)) {
            change();
            return;
        }
        willChangeValueForKey(key);
        try {
            change();
        } catch (...) {
            didChangeValueForKey(key);
            throw;
        }
        didChangeValueForKey(key);
    }

    // Per class: false for keys whose changes the class announces by hand. Default true.
    virtual bool automaticallyNotifiesObserversForKey(const QString &key) const;
    // Per class: the keys whose changes also change `key` (observers of `key` are told when
    // any of them changes; dependencies are followed transitively). Default none.
    virtual QSet<QString> keyPathsForValuesAffectingValueForKey(const QString &key) const;

    // Value-by-key access. Subclasses answer their keys and pass others to the base class,
    // which ends in the undefined-key handlers.
    virtual QVariant valueForKey(const QString &key) const;
    virtual void setValueForKey(const QVariant &value, const QString &key);
    // Default: throw VKUndefinedKeyException ("[<Class 0x...> valueForUndefinedKey:]: this
    // class is not key value coding-compliant for the key <key>.").
    virtual QVariant valueForUndefinedKey(const QString &key) const;
    virtual void setValueForUndefinedKey(const QVariant &value, const QString &key);
    QVariantMap dictionaryWithValuesForKeys(const QStringList &keys) const;

    // The class name used in messages; the default is the demangled C++ type name.
    virtual QString className() const;

    // Internal: one registration of an observer or callback.
    struct Registration;

protected:
    // Lets a class react to its own announcements without observing itself (an operation
    // tells its queue and its dependants this way): once enabled, from the constructor,
    // didAnnounceChangeForKey() runs after the observers of every did-change were told.
    void setAnnouncesToItself(bool enabled);
    virtual void didAnnounceChangeForKey(const QString &key);

private:
    struct Private;
    // The observation part, made on first registration (or lifetime()): most objects are never
    // observed, and their announcements then cost a load of the pointer.
    Private *observation() const;
    void addRegistration(std::shared_ptr<Registration> registration);
    void removeMatching(VKKeyValueObserver *observer, const QString &key, bool anyContext,
                        void *context);
    mutable std::atomic<Private *> d{nullptr};
    bool m_announcesToItself = false;
};

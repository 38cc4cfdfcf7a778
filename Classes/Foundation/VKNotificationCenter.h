// Notifications by name: observers register for a name and optionally one sender, and every
// post is delivered synchronously, on the posting thread, in the order of registration.
#pragma once

#include "Foundation/VKExport.h"

#include <QSet>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <type_traits>
#include <typeindex>

// What a notification is about: nil, an object (by typed pointer, not owned, or by shared
// pointer, kept for the notification's life), or a set of command names.
class VK_EXPORT VKNotificationObject
{
public:
    VKNotificationObject() = default;
    VKNotificationObject(std::nullptr_t) {}
    template <typename T>
    VKNotificationObject(T *object)
        : m_object(object ? std::shared_ptr<const void>(std::shared_ptr<const void>(), object)
                          : nullptr),
          m_type(typeid(std::remove_cv_t<T>))
    {}
    template <typename T>
    VKNotificationObject(std::shared_ptr<T> object)
        : m_object(std::move(object)), m_type(typeid(std::remove_cv_t<T>))
    {}
    static VKNotificationObject commandNames(QSet<QString> names);

    bool isNull() const { return !m_object && !m_hasNames; }
    // The object when it was given as a T (the same static type), otherwise null.
    template <typename T>
    T *object() const
    {
        if (!m_object || m_type != std::type_index(typeid(std::remove_cv_t<T>)))
            return nullptr;
        return const_cast<T *>(static_cast<const T *>(m_object.get()));
    }
    // The object's address whatever its type; null for nil and for command names.
    const void *identity() const { return m_object.get(); }
    bool hasCommandNames() const { return m_hasNames; }
    QSet<QString> commandNames() const { return m_names; }

    // The same object, or equal sets of command names, or both nil.
    friend bool operator==(const VKNotificationObject &a, const VKNotificationObject &b)
    {
        return a.m_object.get() == b.m_object.get() && a.m_hasNames == b.m_hasNames &&
               a.m_names == b.m_names;
    }

private:
    std::shared_ptr<const void> m_object;
    std::type_index m_type{typeid(void)};
    QSet<QString> m_names;
    bool m_hasNames = false;
};

class VK_EXPORT VKNotification
{
public:
    VKNotification(QString name, VKNotificationObject object = {}, QVariantMap userInfo = {});

    QString name() const { return m_name; }
    // The sender or subject; nil when the poster named none.
    const VKNotificationObject &object() const { return m_object; }
    QVariantMap userInfo() const { return m_userInfo; }

private:
    QString m_name;
    VKNotificationObject m_object;
    QVariantMap m_userInfo;
};

using VKNotificationHandler = std::function<void(const VKNotification &notification)>;
// Identifies one registration; 0 is never used.
using VKNotificationToken = quint64;

class VK_EXPORT VKNotificationCenter
{
public:
    VKNotificationCenter();
    ~VKNotificationCenter();
    VKNotificationCenter(const VKNotificationCenter &) = delete;
    VKNotificationCenter &operator=(const VKNotificationCenter &) = delete;

    // The process-wide centre.
    static VKNotificationCenter &defaultCenter();

    // Registers `handler` for notifications named `name` (a null or empty name means every
    // name) about `sender` (nil means any; otherwise the same object or equal command names).
    // `observer` only groups registrations for removeObserver(); it may be null. Thread-safe.
    VKNotificationToken addObserver(const void *observer, const QString &name,
                                    const VKNotificationObject &sender,
                                    VKNotificationHandler handler);
    // Removes every registration of the observer, or those that match name and sender (a null
    // name or a nil sender matches any). Removal never waits: once it returned no call of the
    // removed handlers starts, while calls already running on other threads go on with the
    // handler, which the registration keeps alive until they end. Allowed inside a handler.
    void removeObserver(const void *observer);
    void removeObserver(const void *observer, const QString &name,
                        const VKNotificationObject &sender);
    void removeObservation(VKNotificationToken token);

    void postNotification(const VKNotification &notification);
    void postNotificationName(const QString &name, const VKNotificationObject &sender = {},
                              const QVariantMap &userInfo = {});

    // Number of registrations (for diagnostics and tests).
    int observationCount() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

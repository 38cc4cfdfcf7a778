// Notifications by name: observers register for a name and optionally one sender, and every
// post is delivered synchronously, on the posting thread, in the order of registration.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>

class VK_EXPORT VKNotification
{
public:
    VKNotification(QString name, void *object = nullptr, QVariantMap userInfo = {});

    QString name() const { return m_name; }
    // The sender (not owned); null when the poster named none.
    void *object() const { return m_object; }
    QVariantMap userInfo() const { return m_userInfo; }

private:
    QString m_name;
    void *m_object;
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
    // name) from `sender` (null means any sender). `observer` only groups registrations for
    // removeObserver(); it may be null. Thread-safe.
    VKNotificationToken addObserver(const void *observer, const QString &name, const void *sender,
                                    VKNotificationHandler handler);
    // Removes every registration of the observer, or those that match name and sender (a null
    // name or sender matches any). Calls in progress on other threads are waited for, so the
    // observer may be destroyed afterwards; removal from inside a handler is allowed.
    void removeObserver(const void *observer);
    void removeObserver(const void *observer, const QString &name, const void *sender);
    void removeObservation(VKNotificationToken token);

    void postNotification(const VKNotification &notification);
    void postNotificationName(const QString &name, void *sender = nullptr,
                              const QVariantMap &userInfo = {});

    // Number of registrations (for diagnostics and tests).
    int observationCount() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

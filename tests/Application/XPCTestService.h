// An in-process D-Bus service for the XPC tests: its own connection to the private bus and an
// object at "/" whose calls are answered by a handler on a worker thread, so that the main
// thread can block in a call to it.
#pragma once

#include "VKPrivateDBus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QThread>

#include <functional>
#include <memory>

class XPCTestService
{
public:
    // Answers a call, or returns a null message to leave it unanswered.
    using Handler = std::function<QDBusMessage(const QDBusMessage &call)>;

    explicit XPCTestService(Handler handler)
        : m_connectionName(QStringLiteral("xpc-test-service-%1").arg(++s_count))
    {
        m_thread.start();
        m_object = std::make_unique<Object>(std::move(handler));
        m_object->moveToThread(&m_thread);
        QDBusConnection connection = QDBusConnection::connectToBus(
            QString::fromStdString(VKPrivateDBus::shared().address()), m_connectionName);
        connection.registerVirtualObject(QStringLiteral("/"), m_object.get());
    }

    ~XPCTestService()
    {
        QDBusConnection(m_connectionName).unregisterObject(QStringLiteral("/"));
        QDBusConnection::disconnectFromBus(m_connectionName);
        m_thread.quit();
        m_thread.wait();
    }

    // The unique name ("1.42") to call the service by.
    QString busName() const { return QDBusConnection(m_connectionName).baseService(); }

private:
    class Object : public QDBusVirtualObject
    {
    public:
        explicit Object(Handler handler) : m_handler(std::move(handler)) {}
        QString introspect(const QString &) const override { return {}; }
        bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
        {
            const QDBusMessage reply = m_handler(message);
            if (reply.type() != QDBusMessage::InvalidMessage)
                connection.send(reply);
            return true;
        }

    private:
        Handler m_handler;
    };

    static inline int s_count = 0;
    QString m_connectionName;
    QThread m_thread;
    std::unique_ptr<Object> m_object;
};

// The delegate of vkmetad: owns a well-known name on the session bus and answers the requests
// of XPCRequest with facts about a file (size, modification date, first bytes, its numbered
// file sequence). Runs until SIGTERM or SIGINT.
#pragma once

#include "Application/VKApplication.h"

#include <QDBusVirtualObject>

#include <memory>

class QSocketNotifier;
class QTimer;

// The object at "/" that answers org.vessan.Utilities.Request.Send.
class VKMetadataServiceObject : public QDBusVirtualObject
{
public:
    // Error names of the replies to bad requests.
    static constexpr char invalidArgsError[] = "org.freedesktop.DBus.Error.InvalidArgs";
    static constexpr char fileNotFoundError[] = "org.vessan.Utilities.Error.FileNotFound";
    static constexpr char notAFileError[] = "org.vessan.Utilities.Error.NotAFile";
    static constexpr char failedError[] = "org.vessan.Utilities.Error.Failed";

    // With `exitMidCall` the service takes a request and exits without answering (a test mode
    // standing for a service that crashes while it works).
    explicit VKMetadataServiceObject(bool exitMidCall) : m_exitMidCall(exitMidCall) {}

    QString introspect(const QString &path) const override;
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;

    // The reply dictionary for `parameters`, or an error reply.
    static QDBusMessage answer(const QDBusMessage &message);

private:
    bool m_exitMidCall = false;
};

class VKMetadataServiceTool : public VKApplicationDelegate
{
public:
    static constexpr char defaultName[] = "org.vessan.Utilities.Metadata";

    static std::shared_ptr<VKApplicationConfiguration> applicationConfiguration();

    VKMetadataServiceTool();
    ~VKMetadataServiceTool() override;

    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override;

private:
    std::unique_ptr<VKMetadataServiceObject> m_object;
    std::unique_ptr<QSocketNotifier> m_signalNotifier;
    std::unique_ptr<QTimer> m_busWatch;
    QString m_name;
};

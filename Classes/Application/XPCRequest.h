// A synchronous request to a companion service on the session bus: sends string parameters and
// answers the service's reply as a dictionary of library values.
//
// On the bus the request is a method call to the service's well-known name (connectionName), at
// object path "/", interface "org.vessan.Utilities.Request", method "Send", with one argument of
// type "a{ss}" (each parameter's "%@" description); the service answers one "a{sv}" dictionary,
// decoded with decode_dictionary_from_xpc_object().
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QVariantMap>

#include <memory>
#include <optional>

class VK_EXPORT XPCRequest
{
public:
    static constexpr char objectPath[] = "/";
    static constexpr char interfaceName[] = "org.vessan.Utilities.Request";
    static constexpr char methodName[] = "Send";
    // D-Bus's own default for a call.
    static constexpr int defaultTimeout = 25000;

    explicit XPCRequest(const QString &connectionName = QString());
    ~XPCRequest();
    XPCRequest(const XPCRequest &) = delete;
    XPCRequest &operator=(const XPCRequest &) = delete;

    // The well-known bus name of the service.
    QString connectionName() const;
    void setConnectionName(const QString &connectionName);
    QVariantMap parameters() const;
    void setParameters(const QVariantMap &parameters);
    // How long send() waits for the reply, in milliseconds.
    int timeout() const;
    void setTimeout(int milliseconds);

    // Sends the parameters and blocks the calling thread until the reply or an error arrives
    // (never call it on a thread the service's answer depends on). Nothing on failure:
    //  - a service that is not on the bus (or no bus at all) logs "error calling metadata XPC
    //    service" and "connection is invalid, service <name> not found";
    //  - a service that leaves the bus without answering (or does not answer in time) logs
    //    "error calling metadata XPC service" and "premature exit of service, maybe it
    //    crashed?";
    //  - any other error reply logs the first message alone; a reply that is not one "a{sv}" is
    //    answered with nothing, unlogged.
    // A reply holding a value of another D-Bus type stops the process (see XPCHelpers.h).
    [[nodiscard]] std::optional<QVariantMap> send() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

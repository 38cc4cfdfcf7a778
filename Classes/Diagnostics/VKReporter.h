// The common base of the crash and bug reporters: packs a report's form fields into a
// multipart body and posts it to the report server, or opens it as a message in the user's
// mail program.
//
// Form fields map a field name to a value: a QString is sent as a plain field, a QUrl of a
// local file as an attachment (file name and bytes); any other value gives an empty part.
// Subclasses receive the upload's callbacks by overriding the VKURLConnectionDelegate methods;
// they append what arrives to receivedData() and clear URLConnection() when it ends.
#pragma once

#include "Diagnostics/VKURLConnection.h"
#include "Foundation/VKExport.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <memory>

// The report server's paths, appended to VKReporter::reportServerBaseURL().
VK_EXPORT extern const QString VKCrashReportServerPath; // "/bugreports/sendbugreport.php"
VK_EXPORT extern const QString VKBugReportServerPath;   // "/orvanta/sendbugreport.php"
// The user-defaults key of the report server's base URL ("VKReportServerBaseURL").
VK_EXPORT extern const QString VKReportServerBaseURLKey;

class VK_EXPORT VKReporter : public VKURLConnectionDelegate
{
public:
    // The multipart boundary, the same for every report.
    static constexpr char boundary[] = "0xKh3mLbOuNdArY";

    VKReporter();
    ~VKReporter() override;

    // The whole multipart body, fields in the map's key order. Every string value has each
    // backslash turned into "/"; a file that cannot be read sends no bytes. Any thread.
    QByteArray generateHTTPBody(const QVariantMap &fields) const;

    // Posts generateHTTPBody(fields) to `address` with the multipart Content-Type and starts
    // it at once on this thread's event loop, with this reporter as the delegate. An address
    // that is not a valid URL sends nothing and reports nothing. Replaces receivedData() with
    // an empty buffer and URLConnection() with the new upload (the previous one carries on).
    void sendHTTPData(const QVariantMap &fields, const QString &address);

    // Opens "mailto:<address>?subject=<subject>&body=<body>" in the default mail program,
    // with every "&" from character 100 of the body on turned into "+". A body shorter than
    // 100 characters throws VKException VKRangeException. A link that cannot be made opens
    // nothing.
    void openMessageInMailClient(const QString &body, const QString &subject,
                                 const QString &address);

    QByteArray receivedData() const;
    void setReceivedData(const QByteArray &data);
    std::shared_ptr<VKURLConnection> URLConnection() const;
    void setURLConnection(std::shared_ptr<VKURLConnection> connection);

    // The report server: the user default VKReportServerBaseURLKey, else what
    // setReportServerBaseURL() chose, else the built-in address. No trailing slash needed.
    static QString reportServerBaseURL();
    static void setReportServerBaseURL(const QString &baseURL);
    // The base URL followed by `path` (VKCrashReportServerPath or VKBugReportServerPath).
    static QString reportServerAddress(const QString &path);

    // The mail link's text after escaping, as openMessageInMailClient() opens it.
    static QString mailLinkText(const QString &body, const QString &subject,
                                const QString &address);

protected:
    // Whether a subclass has loaded its report window's interface (once per reporter).
    bool isReportBundleLoaded() const;
    void setReportBundleLoaded(bool loaded);
    // For subclasses' data callbacks: append to the buffer without copying it.
    QByteArray &mutableReceivedData();

private:
    struct Private;
    std::unique_ptr<Private> d;
};

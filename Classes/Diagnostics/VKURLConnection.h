// One HTTP upload in flight and the delegate that hears how it goes: body bytes sent, the
// server's response, its data, and then either completion or failure.
//
// Callbacks arrive on the thread that started the connection, which must turn an event loop.
// Any HTTP answer (200, 404, 500, ...) is a response followed by completion; only a transport
// failure (refused, reset, closed early, DNS, TLS, timeout) ends in failure.
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <memory>

// The error domain of transport failures; its value is its own name. The code is the
// QNetworkReply::NetworkError value and the description Qt's text for it.
VK_EXPORT extern const QString VKURLConnectionErrorDomain;

class VKURLConnection;

// Receives the callbacks of connections started with it. The connection does not own its
// delegate; a delegate that is destroyed first simply stops hearing from its connections.
class VK_EXPORT VKURLConnectionDelegate
{
public:
    VKURLConnectionDelegate();
    virtual ~VKURLConnectionDelegate();
    VKURLConnectionDelegate(const VKURLConnectionDelegate &) = delete;
    VKURLConnectionDelegate &operator=(const VKURLConnectionDelegate &) = delete;

    // `bytesWritten` since the last call; the totals so far and expected (the body's size).
    virtual void connectionDidSendBodyData(VKURLConnection *connection, qint64 bytesWritten,
                                           qint64 totalBytesWritten,
                                           qint64 totalBytesExpectedToWrite);
    // Once per connection, before any data: the HTTP status code and its reason text.
    virtual void connectionDidReceiveResponse(VKURLConnection *connection, int statusCode,
                                              const QString &reasonPhrase);
    virtual void connectionDidReceiveData(VKURLConnection *connection, const QByteArray &data);
    virtual void connectionDidFinishLoading(VKURLConnection *connection);
    virtual void connectionDidFailWithError(VKURLConnection *connection, const VKError &error);

private:
    friend class VKURLConnection;
    // Connections hold a weak reference to this token, so a destroyed delegate is never called.
    std::shared_ptr<VKURLConnectionDelegate *> m_token;
};

class VK_EXPORT VKURLConnection
{
public:
    // Starts a POST of `body` to `url` with the given Content-Type at once on the current
    // thread's event loop. The connection keeps itself alive until it has finished or failed,
    // whether or not the caller keeps the pointer; releasing it cancels nothing.
    static std::shared_ptr<VKURLConnection> startPost(const QUrl &url,
                                                      const QByteArray &contentType,
                                                      const QByteArray &body,
                                                      VKURLConnectionDelegate *delegate);
    ~VKURLConnection();
    VKURLConnection(const VKURLConnection &) = delete;
    VKURLConnection &operator=(const VKURLConnection &) = delete;

    QUrl url() const;
    // Whether the connection has ended (completion, failure or cancel).
    bool isFinished() const;
    // Stops the upload; no further callbacks follow.
    void cancel();

private:
    VKURLConnection();
    struct Private;
    std::unique_ptr<Private> d;
};

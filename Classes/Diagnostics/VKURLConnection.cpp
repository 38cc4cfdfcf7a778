// States: running -> finished (completion, failure or cancel). While running, the connection
// holds a strong reference to itself so that callers may drop it; the reference goes when it
// ends. Everything happens on the thread that started it (its network manager lives there).
#include "Diagnostics/VKURLConnection.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>

const QString VKURLConnectionErrorDomain = QStringLiteral("VKURLConnectionErrorDomain");

VKURLConnectionDelegate::VKURLConnectionDelegate()
    : m_token(std::make_shared<VKURLConnectionDelegate *>(this))
{}

VKURLConnectionDelegate::~VKURLConnectionDelegate() = default;

void VKURLConnectionDelegate::connectionDidSendBodyData(VKURLConnection *, qint64, qint64, qint64)
{}
void VKURLConnectionDelegate::connectionDidReceiveResponse(VKURLConnection *, int, const QString &)
{}
void VKURLConnectionDelegate::connectionDidReceiveData(VKURLConnection *, const QByteArray &) {}
void VKURLConnectionDelegate::connectionDidFinishLoading(VKURLConnection *) {}
void VKURLConnectionDelegate::connectionDidFailWithError(VKURLConnection *, const VKError &) {}

struct VKURLConnection::Private
{
    QUrl url;
    std::unique_ptr<QNetworkAccessManager> manager;
    QPointer<QNetworkReply> reply;
    std::weak_ptr<VKURLConnectionDelegate *> delegate;
    std::shared_ptr<VKURLConnection> keepAlive;
    qint64 sent = 0;
    bool responded = false;
    bool finished = false;

    VKURLConnectionDelegate *target() const
    {
        auto token = delegate.lock();
        return token ? *token : nullptr;
    }
};

VKURLConnection::VKURLConnection() : d(std::make_unique<Private>()) {}

VKURLConnection::~VKURLConnection()
{
    // The last reference may go inside one of the reply's own signals: let Qt delete the
    // manager (and with it the reply) once that signal has returned.
    if (d->reply) {
        d->reply->disconnect();
        if (!d->finished)
            d->reply->abort();
    }
    if (d->manager)
        d->manager.release()->deleteLater();
}

QUrl VKURLConnection::url() const
{
    return d->url;
}

bool VKURLConnection::isFinished() const
{
    return d->finished;
}

void VKURLConnection::cancel()
{
    if (d->finished)
        return;
    d->finished = true;
    if (d->reply) {
        d->reply->disconnect();
        d->reply->abort();
    }
    // Dropping the last reference may destroy this object; keep it until we return.
    auto self = std::move(d->keepAlive);
}

std::shared_ptr<VKURLConnection> VKURLConnection::startPost(const QUrl &url,
                                                            const QByteArray &contentType,
                                                            const QByteArray &body,
                                                            VKURLConnectionDelegate *delegate)
{
    std::shared_ptr<VKURLConnection> connection(new VKURLConnection);
    Private *d = connection->d.get();
    VKURLConnection *c = connection.get();
    d->url = url;
    if (delegate)
        d->delegate = delegate->m_token;
    d->manager = std::make_unique<QNetworkAccessManager>();
    d->manager->setProxy(QNetworkProxy::NoProxy);

    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    // One upload is one request: no connection reuse and no silent retry of the body.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    d->reply = d->manager->post(request, body);
    d->keepAlive = connection;

    auto respond = [d, c] {
        if (d->responded || d->finished)
            return;
        const QVariant status = d->reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!status.isValid())
            return;
        d->responded = true;
        if (auto *t = d->target())
            t->connectionDidReceiveResponse(
                c, status.toInt(),
                d->reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString());
    };

    QObject::connect(d->reply, &QNetworkReply::uploadProgress, d->reply,
                     [d, c](qint64 bytesSent, qint64 bytesTotal) {
                         if (d->finished || bytesSent <= d->sent)
                             return;
                         const qint64 delta = bytesSent - d->sent;
                         d->sent = bytesSent;
                         if (auto *t = d->target())
                             t->connectionDidSendBodyData(c, delta, bytesSent, bytesTotal);
                     });
    QObject::connect(d->reply, &QNetworkReply::metaDataChanged, d->reply, respond);
    QObject::connect(d->reply, &QNetworkReply::readyRead, d->reply, [d, c, respond] {
        respond();
        const QByteArray data = d->reply->readAll();
        if (d->finished || data.isEmpty())
            return;
        if (auto *t = d->target())
            t->connectionDidReceiveData(c, data);
    });
    QObject::connect(d->reply, &QNetworkReply::finished, d->reply, [d, c, respond] {
        if (d->finished)
            return;
        respond();
        const QByteArray rest = d->reply->readAll();
        // Keep this object alive through the callbacks, then let it go.
        auto self = std::move(d->keepAlive);
        d->finished = true;
        auto *t = d->target();
        if (d->responded) {
            if (t && !rest.isEmpty())
                t->connectionDidReceiveData(c, rest);
            if (t)
                t->connectionDidFinishLoading(c);
        } else if (t) {
            t->connectionDidFailWithError(
                c, VKError::errorWithDescription(VKURLConnectionErrorDomain, d->reply->error(),
                                                 d->reply->errorString()));
        }
    });
    return connection;
}

#include "Diagnostics/VKReporter.h"

#include "Diagnostics/VKInterfaceDescription.h"
#include "Diagnostics/VKReporter_p.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKException.h"
#include "Foundation/VKUserDefaults.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QFile>
#include <QLabel>
#include <QMutex>
#include <QProgressBar>
#include <QUrl>

const QString VKCrashReportServerPath = QStringLiteral("/bugreports/sendbugreport.php");
const QString VKBugReportServerPath = QStringLiteral("/orvanta/sendbugreport.php");
const QString VKReportServerBaseURLKey = QStringLiteral("VKReportServerBaseURL");

namespace {

const QString kBuiltInReportServer = QStringLiteral("https://reports.vessan.com");

QMutex &baseURLMutex()
{
    static QMutex mutex;
    return mutex;
}

QString &chosenBaseURL()
{
    static QString url;
    return url;
}

} // namespace

struct VKReporter::Private
{
    QByteArray receivedData;
    std::shared_ptr<VKURLConnection> connection;
    bool reportBundleLoaded = false;
};

VKReporter::VKReporter() : d(std::make_unique<Private>()) {}

VKReporter::~VKReporter()
{
    // Releasing the upload cancels nothing; the delegate token going stops its callbacks.
    setReceivedData(QByteArray());
    setURLConnection(nullptr);
}

QByteArray VKReporter::generateHTTPBody(const QVariantMap &fields) const
{
    const QByteArray boundaryText(boundary);
    QByteArray body;
    for (auto it = fields.cbegin(); it != fields.cend(); ++it) {
        const QVariant &value = it.value();
        body += "--" + boundaryText + "\r\n";
        if (value.metaType().id() == QMetaType::QString) {
            QString text = value.toString();
            text.replace(QLatin1Char('\\'), QLatin1Char('/'));
            body += "Content-Disposition: form-data; name=\"" + it.key().toUtf8() + "\"\r\n\r\n";
            body += text.toUtf8();
        } else if (value.metaType().id() == QMetaType::QUrl && value.toUrl().isLocalFile()) {
            const QUrl url = value.toUrl();
            body += "Content-Disposition: form-data; name=\"" + it.key().toUtf8() +
                    "\"; filename=\"" + url.fileName().toUtf8() + "\"\r\n";
            body += "Content-Type: application/octet-stream\r\n\r\n";
            QFile file(url.toLocalFile());
            if (file.open(QIODevice::ReadOnly))
                body += file.readAll();
        }
        body += "\r\n";
    }
    body += "--" + boundaryText + "--\r\n";
    return body;
}

void VKReporter::sendHTTPData(const QVariantMap &fields, const QString &address)
{
    const QByteArray contentType = "multipart/form-data; boundary=" + QByteArray(boundary);
    const QUrl url(address, QUrl::StrictMode);
    if (address.isEmpty() || !url.isValid())
        return;
    const QByteArray body = generateHTTPBody(fields);
    setReceivedData(QByteArray(""));
    auto connection = VKURLConnection::startPost(url, contentType, body, this);
    if (connection)
        setURLConnection(std::move(connection));
}

QString VKReporter::mailLinkText(const QString &body, const QString &subject,
                                 const QString &address)
{
    QString rewritten = body;
    if (rewritten.size() < 100) {
        // The range {100, length - 100} wraps around as an unsigned length.
        VKException::raise(VKRangeException,
                           QStringLiteral("-[NSString replaceOccurrencesOfString:withString:"
                                          "options:range:]: Range {100, %llu} out of bounds; "
                                          "string length %llu"),
                           quint64(qint64(rewritten.size()) - 100), quint64(rewritten.size()));
    }
    const QString tail = rewritten.mid(100).replace(QLatin1Char('&'), QLatin1Char('+'));
    rewritten = rewritten.left(100) + tail;

    const QString link = QStringLiteral("mailto:") + address + QStringLiteral("?subject=") +
                         subject + QStringLiteral("&body=") + rewritten;
    // Escape what may not stand in a URL, but leave the URL's own punctuation alone.
    return QString::fromLatin1(link.toUtf8().toPercentEncoding("!#$&'()*+,/:;=?@"));
}

void VKReporter::openMessageInMailClient(const QString &body, const QString &subject,
                                         const QString &address)
{
    const QUrl url(mailLinkText(body, subject, address), QUrl::StrictMode);
    if (!url.isValid())
        return;
    QDesktopServices::openUrl(url);
}

QByteArray VKReporter::receivedData() const
{
    return d->receivedData;
}

void VKReporter::setReceivedData(const QByteArray &data)
{
    d->receivedData = data;
}

QByteArray &VKReporter::mutableReceivedData()
{
    return d->receivedData;
}

std::shared_ptr<VKURLConnection> VKReporter::URLConnection() const
{
    return d->connection;
}

void VKReporter::setURLConnection(std::shared_ptr<VKURLConnection> connection)
{
    if (connection != d->connection)
        d->connection = std::move(connection);
}

bool VKReporter::isReportBundleLoaded() const
{
    return d->reportBundleLoaded;
}

void VKReporter::setReportBundleLoaded(bool loaded)
{
    d->reportBundleLoaded = loaded;
}

QString VKReporter::reportServerBaseURL()
{
    const QString fromDefaults =
        VKUserDefaults::standardUserDefaults()->stringForKey(VKReportServerBaseURLKey);
    if (!fromDefaults.isEmpty())
        return fromDefaults;
    QMutexLocker locker(&baseURLMutex());
    return chosenBaseURL().isEmpty() ? kBuiltInReportServer : chosenBaseURL();
}

void VKReporter::setReportServerBaseURL(const QString &baseURL)
{
    QMutexLocker locker(&baseURLMutex());
    chosenBaseURL() = baseURL;
}

QString VKReporter::reportServerAddress(const QString &path)
{
    QString base = reportServerBaseURL();
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    return base + path;
}

// MARK: the report windows

QString VKReportWindow::infoString(const QString &key)
{
    const auto bundle = VKBundle::mainBundle();
    return bundle ? bundle->objectForInfoDictionaryKey(key).toString() : QString();
}

QString VKReportWindow::applicationName()
{
    const QString name = infoString(VKBundleNameKey);
    return name.isEmpty() ? QCoreApplication::applicationName() : name;
}

QWidget *VKReportWindow::loadDescription(const QString &name)
{
    QWidget *window = VKInterfaceDescription::load(name);
    if (window)
        window->setWindowFlag(Qt::Window);
    return window;
}

void VKReportWindow::logMissingDescription(const QString &name, const VKLogContext &context)
{
    VKLogger::error(context, "Could not load nib named %@", name);
}

void VKReportWindow::bringToFront(QWidget *window)
{
    window->show();
    window->raise();
    window->activateWindow();
}

void VKReportWindow::startProgress(QProgressBar *indicator, QLabel *textField, const QString &text)
{
    indicator->setRange(0, 0);
    indicator->show();
    textField->setText(text);
    textField->show();
}

void VKReportWindow::stopIndicator(QProgressBar *indicator)
{
    // An indeterminate bar keeps moving until it gets a range again.
    if (indicator->maximum() == 0)
        indicator->setRange(0, 1);
}

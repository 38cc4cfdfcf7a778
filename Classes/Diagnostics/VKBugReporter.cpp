#include "Diagnostics/VKBugReporter.h"

#include "Diagnostics/VKReporter_p.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKFileSystem.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKMainLoop.h"

#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMutex>
#include <QPlainTextEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QUrl>

const QString VKBugReporter::bugReportType = QStringLiteral("Bug Report");
const QString VKBugReporter::featureRequestType = QStringLiteral("Feature Request");

namespace {

const QString kBuiltInSupportAddress = QStringLiteral("support@vessan.com");
constexpr double kCloseDelay = 1.75;

VKLogContext logContext(const VKBugReporter *reporter, const char *operation)
{
    return {QStringLiteral("VKBugReporter"),
            QStringLiteral("-[VKBugReporter %1]").arg(QLatin1String(operation)), reporter};
}

QMutex &addressMutex()
{
    static QMutex mutex;
    return mutex;
}

QString &chosenSupportAddress()
{
    static QString address;
    return address;
}

using VKReportWindow::applicationName;
using VKReportWindow::infoString;

// What "%@" prints for a string: "(null)" for nothing.
QString formatted(const QString &text)
{
    return text.isNull() ? QStringLiteral("(null)") : text;
}

QString tildeExpanded(const QString &path)
{
    if (path == QLatin1String("~"))
        return QDir::homePath();
    if (path.startsWith(QLatin1String("~/")))
        return QDir::homePath() + path.mid(1);
    return path;
}

const QString kHyphens = QString(75, QLatin1Char('-'));

} // namespace

struct VKBugReporter::Private
{
    QString reporterName;
    QString reporterEmailAddress;
    QString reportTitle;
    QString reportType;
    QString reportAttachment;

    QWidget *window = nullptr; // owned
    // The window's outlets, all set together once its description is loaded.
    struct Outlets
    {
        QPlainTextEdit *descriptionView = nullptr;
        QPlainTextEdit *defaultBugReportView = nullptr;
        QPlainTextEdit *defaultFeatureRequestView = nullptr;
        QPushButton *sendButton = nullptr;
        QPushButton *mailButton = nullptr;
        QProgressBar *progressIndicator = nullptr;
        QLabel *progressTextField = nullptr;
        QLineEdit *nameField = nullptr;
        QLineEdit *emailField = nullptr;
        QLineEdit *titleField = nullptr;
        QLineEdit *attachmentField = nullptr;
        QComboBox *typePopUp = nullptr;
    } ui;
    std::shared_ptr<VKMainLoopTimer> closeTimer;
    std::shared_ptr<bool> alive = std::make_shared<bool>(true);

    static void show(QLineEdit *field, const QString &text)
    {
        if (field && field->text() != text)
            field->setText(text);
    }
};

VKBugReporter::VKBugReporter() : d(std::make_unique<Private>()) {}

VKBugReporter::~VKBugReporter()
{
    if (d->closeTimer)
        d->closeTimer->invalidate();
    delete d->window;
}

QString VKBugReporter::supportAddress()
{
    QMutexLocker locker(&addressMutex());
    return chosenSupportAddress().isEmpty() ? kBuiltInSupportAddress : chosenSupportAddress();
}

void VKBugReporter::setSupportAddress(const QString &address)
{
    QMutexLocker locker(&addressMutex());
    chosenSupportAddress() = address;
}

void VKBugReporter::showReportWindow(QObject *)
{
    if (!isReportBundleLoaded()) {
        using VKReportWindow::outlet;
        Private::Outlets ui;
        QWidget *window = VKReportWindow::load(
            QStringLiteral("VKBugReporter"), logContext(this, "showReportWindow:"),
            [&ui](const QWidget *w) {
                return outlet(w, ui.descriptionView, "mReportDescriptionTextView") &&
                       outlet(w, ui.defaultBugReportView, "mDefaultBugReportTextView") &&
                       outlet(w, ui.defaultFeatureRequestView, "mDefaultFeatureRequestTextView") &&
                       outlet(w, ui.sendButton, "mSendButton") &&
                       outlet(w, ui.mailButton, "mOpenInMailClientButton") &&
                       outlet(w, ui.progressIndicator, "mSendProgressIndicator") &&
                       outlet(w, ui.progressTextField, "mSendProgressTextField") &&
                       outlet(w, ui.nameField, "mReporterNameField") &&
                       outlet(w, ui.emailField, "mReporterEmailField") &&
                       outlet(w, ui.titleField, "mReportTitleField") &&
                       outlet(w, ui.attachmentField, "mAttachmentField") &&
                       outlet(w, ui.typePopUp, "mReportTypePopUp");
            });
        if (!window)
            return;
        d->ui = ui;
        window->setWindowTitle(QStringLiteral("%1 – Report a Problem").arg(applicationName()));
        if (!QGuiApplication::windowIcon().isNull())
            window->setWindowIcon(QGuiApplication::windowIcon());
        d->window = window;
        setReportBundleLoaded(true);

        QObject::connect(d->ui.nameField, &QLineEdit::textEdited, window,
                         [this](const QString &text) { d->reporterName = text; });
        QObject::connect(d->ui.emailField, &QLineEdit::textEdited, window,
                         [this](const QString &text) { d->reporterEmailAddress = text; });
        QObject::connect(d->ui.titleField, &QLineEdit::textEdited, window,
                         [this](const QString &text) { d->reportTitle = text; });
        QObject::connect(d->ui.typePopUp, &QComboBox::textActivated, window,
                         [this](const QString &text) { setReportType(text); });
        QObject::connect(d->ui.sendButton, &QPushButton::clicked, window,
                         [this] { sendReport(d->ui.sendButton); });
        QObject::connect(d->ui.mailButton, &QPushButton::clicked, window,
                         [this] { showReportInMail(d->ui.mailButton); });
        if (auto *choose =
                window->findChild<QPushButton *>(QStringLiteral("mChooseAttachmentButton")))
            QObject::connect(choose, &QPushButton::clicked, window,
                             [this, choose] { chooseAttachment(choose); });
    }
    setReporterName(QString());
    setReportTitle(QString());
    setReportAttachment(QString());
    setReporterEmailAddress(QString());
    d->ui.sendButton->setEnabled(true);
    d->ui.mailButton->setEnabled(true);
    d->ui.progressIndicator->hide();
    d->ui.progressTextField->hide();
    d->ui.descriptionView->setPlainText(QString());
    setReportType(bugReportType);
    VKReportWindow::bringToFront(d->window);
}

void VKBugReporter::chooseAttachment(QObject *)
{
    auto *dialog = new QFileDialog(d->window);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    // Files only, and no making of folders in the chooser.
    dialog->setOption(QFileDialog::ReadOnly, true);
    dialog->setDirectory(QStandardPaths::writableLocation(QStandardPaths::DesktopLocation));
    std::weak_ptr<bool> alive = d->alive;
    QObject::connect(dialog, &QFileDialog::filesSelected, dialog,
                     [this, alive](const QStringList &files) {
                         if (!alive.expired() && !files.isEmpty())
                             setReportAttachment(files.first());
                     });
    dialog->open();
}

QString VKBugReporter::bugReport() const
{
    QString text;
    text += kHyphens + QStringLiteral("\n");
    text += QStringLiteral("This Email was generated by the Orvanta Bug Reporter.\n");
    text += kHyphens + QStringLiteral("\n\n");
    text += QStringLiteral("Reporter:\t%1, %2\n\n")
                .arg(formatted(d->reporterName), formatted(d->reporterEmailAddress));
    text += QStringLiteral("Type:\t\t%1\n\n").arg(formatted(d->reportType));
    text += QStringLiteral("Title:\t\t%1\n\n").arg(formatted(d->reportTitle));
    text += QStringLiteral("Version:\t\t%1\n\n").arg(formatted(infoString(VKBundleVersionKey)));
    text += kHyphens + QStringLiteral("\n");
    text += QStringLiteral("Description:\n%1")
                .arg(formatted(d->ui.descriptionView ? d->ui.descriptionView->toPlainText()
                                                     : QString()));
    text += kHyphens + QStringLiteral("\n\n");
    return text;
}

void VKBugReporter::showReportInMail(QObject *)
{
    if (d->window)
        d->window->hide();
    openMessageInMailClient(
        bugReport(),
        QStringLiteral("%1 %2").arg(formatted(applicationName()), formatted(d->reportType)),
        supportAddress());
}

QVariantMap VKBugReporter::reportFields() const
{
    QVariantMap fields;
    fields.insert(QStringLiteral("NAME"), formatted(d->reporterName));
    fields.insert(QStringLiteral("EMAIL"), formatted(d->reporterEmailAddress));
    fields.insert(QStringLiteral("TITLE"), QStringLiteral("%1 %2").arg(formatted(applicationName()),
                                                                       formatted(d->reportType)));
    fields.insert(QStringLiteral("TYPE"), formatted(d->reportType));
    fields.insert(QStringLiteral("VERSION"), formatted(infoString(VKBundleVersionKey)));
    fields.insert(
        QStringLiteral("DESCRIPTION"),
        formatted(d->ui.descriptionView ? d->ui.descriptionView->toPlainText() : QString()));
    if (!d->reportAttachment.isEmpty()) {
        const QString path = tildeExpanded(d->reportAttachment);
        bool isDirectory = false;
        if (VKFileSystem::fileExistsAtPath(path, &isDirectory) && !isDirectory)
            fields.insert(QStringLiteral("ATTACHMENT"), QUrl::fromLocalFile(path));
    }
    return fields;
}

void VKBugReporter::sendReport(QObject *)
{
    sendHTTPData(reportFields(), reportServerAddress(VKBugReportServerPath));
    if (!d->window)
        return;
    d->ui.sendButton->setEnabled(false);
    d->ui.mailButton->setEnabled(false);
    VKReportWindow::startProgress(d->ui.progressIndicator, d->ui.progressTextField,
                                  QStringLiteral("Sending data..."));
}

void VKBugReporter::connectionDidReceiveResponse(VKURLConnection *, int, const QString &)
{
    setReceivedData(QByteArray(""));
}

void VKBugReporter::connectionDidReceiveData(VKURLConnection *, const QByteArray &data)
{
    mutableReceivedData().append(data);
}

void VKBugReporter::connectionDidFailWithError(VKURLConnection *, const VKError &error)
{
    VKLogger::error(logContext(this, "connection:didFailWithError:"),
                    "Could not establish connection because of error %@", error.description());
    setReceivedData(QByteArray());
    setURLConnection(nullptr);
    if (!d->window)
        return;
    d->ui.progressTextField->setText(
        QStringLiteral("Sending failed, please check your\ninternet connection and try again!"));
    d->ui.sendButton->setText(QStringLiteral("Try again"));
    d->ui.sendButton->setEnabled(true);
    d->ui.mailButton->setEnabled(true);
    VKReportWindow::stopIndicator(d->ui.progressIndicator);
}

void VKBugReporter::connectionDidFinishLoading(VKURLConnection *)
{
    setReceivedData(QByteArray());
    setURLConnection(nullptr);
    if (!d->window)
        return;
    d->ui.progressTextField->setText(QStringLiteral("Report sent,\nThank you for your feedback!"));
    VKReportWindow::stopIndicator(d->ui.progressIndicator);
    std::weak_ptr<bool> alive = d->alive;
    d->closeTimer = VKMainLoopTimer::scheduledTimer(kCloseDelay, [this, alive](VKMainLoopTimer &) {
        if (alive.expired())
            return;
        d->window->hide();
        d->closeTimer.reset();
    });
}

QString VKBugReporter::reporterName() const
{
    return d->reporterName;
}
QString VKBugReporter::reporterEmailAddress() const
{
    return d->reporterEmailAddress;
}
QString VKBugReporter::reportTitle() const
{
    return d->reportTitle;
}
QString VKBugReporter::reportType() const
{
    return d->reportType;
}
QString VKBugReporter::reportAttachment() const
{
    return d->reportAttachment;
}

void VKBugReporter::setReporterName(const QString &name)
{
    d->reporterName = name;
    Private::show(d->ui.nameField, name);
}

void VKBugReporter::setReporterEmailAddress(const QString &address)
{
    d->reporterEmailAddress = address;
    Private::show(d->ui.emailField, address);
}

void VKBugReporter::setReportTitle(const QString &title)
{
    d->reportTitle = title;
    Private::show(d->ui.titleField, title);
}

void VKBugReporter::setReportAttachment(const QString &path)
{
    d->reportAttachment = path;
    Private::show(d->ui.attachmentField, path);
}

void VKBugReporter::setReportType(const QString &type)
{
    d->reportType = type;
    if (d->ui.typePopUp && d->ui.typePopUp->findText(type) >= 0)
        d->ui.typePopUp->setCurrentText(type);
    if (!d->ui.descriptionView)
        return;
    QString text;
    if (type == bugReportType)
        text = defaultBugReport();
    else if (type == featureRequestType)
        text = defaultFeatureRequest();
    else
        return;
    d->ui.descriptionView->setPlainText(text.isEmpty() ? QString() : text);
}

QString VKBugReporter::defaultBugReport() const
{
    return d->ui.defaultBugReportView ? d->ui.defaultBugReportView->toPlainText() : QString();
}

QString VKBugReporter::defaultFeatureRequest() const
{
    return d->ui.defaultFeatureRequestView ? d->ui.defaultFeatureRequestView->toPlainText()
                                           : QString();
}

QWidget *VKBugReporter::reportWindow() const
{
    return d->window;
}
QPlainTextEdit *VKBugReporter::reportDescriptionTextView() const
{
    return d->ui.descriptionView;
}
QPushButton *VKBugReporter::sendButton() const
{
    return d->ui.sendButton;
}
QPushButton *VKBugReporter::openInMailClientButton() const
{
    return d->ui.mailButton;
}
QProgressBar *VKBugReporter::sendProgressIndicator() const
{
    return d->ui.progressIndicator;
}
QLabel *VKBugReporter::sendProgressTextField() const
{
    return d->ui.progressTextField;
}
std::shared_ptr<VKMainLoopTimer> VKBugReporter::closeTimer() const
{
    return d->closeTimer;
}

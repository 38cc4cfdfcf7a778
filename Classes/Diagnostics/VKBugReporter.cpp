#include "Diagnostics/VKBugReporter.h"

#include "Diagnostics/VKInterfaceDescription.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKFileSystem.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKMainLoop.h"

#include <QComboBox>
#include <QCoreApplication>
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

QString infoString(const QString &key)
{
    const auto bundle = VKBundle::mainBundle();
    return bundle ? bundle->objectForInfoDictionaryKey(key).toString() : QString();
}

QString applicationName()
{
    const QString name = infoString(VKBundleNameKey);
    return name.isEmpty() ? QCoreApplication::applicationName() : name;
}

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
    std::shared_ptr<VKMainLoopTimer> closeTimer;
    std::shared_ptr<bool> alive = std::make_shared<bool>(true);

    static void show(QLineEdit *field, const QString &text)
    {
        if (field && field->text() != text)
            field->setText(text);
    }
    void stopIndicator() const
    {
        if (progressIndicator->maximum() == 0)
            progressIndicator->setRange(0, 1);
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
        QWidget *window = VKInterfaceDescription::load(QStringLiteral("VKBugReporter"));
        auto find = [window](auto *&outlet, const char *name) {
            using Type = std::remove_pointer_t<std::remove_reference_t<decltype(outlet)>>;
            outlet = window ? window->findChild<Type *>(QLatin1String(name)) : nullptr;
            return outlet != nullptr;
        };
        const bool complete =
            window && find(d->descriptionView, "mReportDescriptionTextView") &&
            find(d->defaultBugReportView, "mDefaultBugReportTextView") &&
            find(d->defaultFeatureRequestView, "mDefaultFeatureRequestTextView") &&
            find(d->sendButton, "mSendButton") && find(d->mailButton, "mOpenInMailClientButton") &&
            find(d->progressIndicator, "mSendProgressIndicator") &&
            find(d->progressTextField, "mSendProgressTextField") &&
            find(d->nameField, "mReporterNameField") &&
            find(d->emailField, "mReporterEmailField") &&
            find(d->titleField, "mReportTitleField") &&
            find(d->attachmentField, "mAttachmentField") && find(d->typePopUp, "mReportTypePopUp");
        if (!complete) {
            delete window;
            VKLogger::error(logContext(this, "showReportWindow:"), "Could not load nib named %@",
                            QStringLiteral("VKBugReporter"));
            return;
        }
        window->setWindowFlag(Qt::Window);
        window->setWindowTitle(QStringLiteral("%1 – Report a Problem").arg(applicationName()));
        if (!QGuiApplication::windowIcon().isNull())
            window->setWindowIcon(QGuiApplication::windowIcon());
        d->window = window;
        setReportBundleLoaded(true);

        QObject::connect(d->nameField, &QLineEdit::textEdited, window,
                         [this](const QString &text) { d->reporterName = text; });
        QObject::connect(d->emailField, &QLineEdit::textEdited, window,
                         [this](const QString &text) { d->reporterEmailAddress = text; });
        QObject::connect(d->titleField, &QLineEdit::textEdited, window,
                         [this](const QString &text) { d->reportTitle = text; });
        QObject::connect(d->typePopUp, &QComboBox::textActivated, window,
                         [this](const QString &text) { setReportType(text); });
        QObject::connect(d->sendButton, &QPushButton::clicked, window,
                         [this] { sendReport(d->sendButton); });
        QObject::connect(d->mailButton, &QPushButton::clicked, window,
                         [this] { showReportInMail(d->mailButton); });
        if (auto *choose =
                window->findChild<QPushButton *>(QStringLiteral("mChooseAttachmentButton")))
            QObject::connect(choose, &QPushButton::clicked, window,
                             [this, choose] { chooseAttachment(choose); });
    }
    setReporterName(QString());
    setReportTitle(QString());
    setReportAttachment(QString());
    setReporterEmailAddress(QString());
    d->sendButton->setEnabled(true);
    d->mailButton->setEnabled(true);
    d->progressIndicator->hide();
    d->progressTextField->hide();
    d->descriptionView->setPlainText(QString());
    setReportType(bugReportType);
    d->window->show();
    d->window->raise();
    d->window->activateWindow();
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
                .arg(formatted(d->descriptionView ? d->descriptionView->toPlainText() : QString()));
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
    fields.insert(QStringLiteral("DESCRIPTION"),
                  formatted(d->descriptionView ? d->descriptionView->toPlainText() : QString()));
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
    d->sendButton->setEnabled(false);
    d->mailButton->setEnabled(false);
    d->progressIndicator->setRange(0, 0);
    d->progressIndicator->show();
    d->progressTextField->setText(QStringLiteral("Sending data..."));
    d->progressTextField->show();
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
    d->progressTextField->setText(
        QStringLiteral("Sending failed, please check your\ninternet connection and try again!"));
    d->sendButton->setText(QStringLiteral("Try again"));
    d->sendButton->setEnabled(true);
    d->mailButton->setEnabled(true);
    d->stopIndicator();
}

void VKBugReporter::connectionDidFinishLoading(VKURLConnection *)
{
    setReceivedData(QByteArray());
    setURLConnection(nullptr);
    if (!d->window)
        return;
    d->progressTextField->setText(QStringLiteral("Report sent,\nThank you for your feedback!"));
    d->stopIndicator();
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
    Private::show(d->nameField, name);
}

void VKBugReporter::setReporterEmailAddress(const QString &address)
{
    d->reporterEmailAddress = address;
    Private::show(d->emailField, address);
}

void VKBugReporter::setReportTitle(const QString &title)
{
    d->reportTitle = title;
    Private::show(d->titleField, title);
}

void VKBugReporter::setReportAttachment(const QString &path)
{
    d->reportAttachment = path;
    Private::show(d->attachmentField, path);
}

void VKBugReporter::setReportType(const QString &type)
{
    d->reportType = type;
    if (d->typePopUp && d->typePopUp->findText(type) >= 0)
        d->typePopUp->setCurrentText(type);
    if (!d->descriptionView)
        return;
    QString text;
    if (type == bugReportType)
        text = defaultBugReport();
    else if (type == featureRequestType)
        text = defaultFeatureRequest();
    else
        return;
    d->descriptionView->setPlainText(text.isEmpty() ? QString() : text);
}

QString VKBugReporter::defaultBugReport() const
{
    return d->defaultBugReportView ? d->defaultBugReportView->toPlainText() : QString();
}

QString VKBugReporter::defaultFeatureRequest() const
{
    return d->defaultFeatureRequestView ? d->defaultFeatureRequestView->toPlainText() : QString();
}

QWidget *VKBugReporter::reportWindow() const
{
    return d->window;
}
QPlainTextEdit *VKBugReporter::reportDescriptionTextView() const
{
    return d->descriptionView;
}
QPushButton *VKBugReporter::sendButton() const
{
    return d->sendButton;
}
QPushButton *VKBugReporter::openInMailClientButton() const
{
    return d->mailButton;
}
QProgressBar *VKBugReporter::sendProgressIndicator() const
{
    return d->progressIndicator;
}
QLabel *VKBugReporter::sendProgressTextField() const
{
    return d->progressTextField;
}
std::shared_ptr<VKMainLoopTimer> VKBugReporter::closeTimer() const
{
    return d->closeTimer;
}

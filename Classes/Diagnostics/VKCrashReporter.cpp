// States of a reporter:
//   created    -> the window is loaded, the readers made (main thread, initialize()).
//   launched   -> the start-up check ran once (didLoad), perhaps showing the window.
//   sending    -> sendReport() started one gathering thread; the send button stays disabled
//                 until the upload ends, so sends never overlap.
//   sent/failed-> the crash readers are dropped for good (nothing reloads them).
//
// Threads: everything touching widgets runs on the main thread. The gathering thread reads the
// properties and readers under d->mutex (which is never held while calling out), reads the
// summary text through a waiting hop to the main thread, and hands the form over the same way.
// The gathering thread keeps the reporter alive and gives its reference back on the main
// thread, so the reporter is always destroyed there.
#include "Diagnostics/VKCrashReporter.h"

#include "Diagnostics/VKCrashLogReader.h"
#include "Diagnostics/VKJournalSearch.h"
#include "Diagnostics/VKReporter_p.h"
#include "Diagnostics/VKRunLogReader.h"
#include "Diagnostics/VKSystemInfo.h"
#include "Diagnostics/VKUsageLogger.h"
#include "Diagnostics/VKUserCard.h"
#include "Diagnostics/VKZipArchive.h"
#include "Files/VKFileSize.h"
#include "Foundation/VKApplicationLifecycle.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKLenientNumber.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKMainLoop.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKUserDefaults.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QMutex>
#include <QPlainTextEdit>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QSaveFile>
#include <QStyle>

#include <algorithm>
#include <mutex>
#include <thread>

const QString kCRDidTerminateProperly = QStringLiteral("crashReporterDidTerminateProperly");
const QString kCRShowAtStartup = QStringLiteral("showCrashReporterAtStartup");

namespace {

const QString kNameKey = QStringLiteral("crashReporterName");
const QString kEmailKey = QStringLiteral("crashReporterEmail");
const QString kLastLogReadingTimeKey = QStringLiteral("lastLogReadingTime");
constexpr double kEarliestReportAge = 1209600.0; // 14 days
constexpr double kCloseDelay = 1.75;

VKLogContext logContext(const VKCrashReporter *reporter, const char *operation)
{
    return {QStringLiteral("VKCrashReporter"),
            QStringLiteral("-[VKCrashReporter %1]").arg(QLatin1String(operation)), reporter};
}

QMutex &profilerMutex()
{
    static QMutex mutex;
    return mutex;
}

QString &profilerProgram()
{
    static QString program = QStringLiteral("lshw");
    return program;
}

QStringList &profilerArguments()
{
    static QStringList arguments{QStringLiteral("-xml"), QStringLiteral("-quiet")};
    return arguments;
}

std::shared_ptr<VKUserDefaults> defaults()
{
    return VKUserDefaults::standardUserDefaults();
}

using VKReportWindow::applicationName;
using VKReportWindow::infoString;

QString bundleIdentifier()
{
    const auto bundle = VKBundle::mainBundle();
    const QString identifier = bundle ? bundle->bundleIdentifier() : QString();
    return identifier.isEmpty() ? VKUserDefaults::applicationIdentifier() : identifier;
}

QString countText(qsizetype count)
{
    return QString::number(quint64(count));
}

QIcon applicationIcon(const QWidget *window)
{
    QIcon icon = QGuiApplication::windowIcon();
    if (icon.isNull())
        icon = QIcon::fromTheme(QStringLiteral("dialog-warning"));
    if (icon.isNull())
        icon = window->style()->standardIcon(QStyle::SP_MessageBoxWarning);
    return icon;
}

} // namespace

int viewSort(const QWidget *first, const QWidget *second, void *)
{
    auto origin = [](const QWidget *view) {
        const QWidget *parent = view->parentWidget();
        const int height = parent ? parent->height() : 0;
        return float(height - view->geometry().bottom() - 1);
    };
    const float a = origin(first);
    const float b = origin(second);
    if (a < b)
        return -1;
    if (a > b)
        return 1;
    return 0;
}

struct VKCrashReporter::Private
{
    mutable std::mutex mutex;
    QList<std::shared_ptr<VKCrashLogReader>> crashReportReaders;
    QList<std::shared_ptr<VKRunLogReader>> runLogReaders;
    QString reporterName;
    QString reporterEmailAddress;

    QWidget *window = nullptr; // owned
    QList<QWidget *> allSubviews;
    QPlainTextEdit *summaryTextView = nullptr;
    QWidget *userDescriptionView = nullptr;
    QWidget *startupNoteView = nullptr;
    QLabel *startupNoteTextField = nullptr;
    QString startupNoteTemplate;
    QWidget *reportDetailsView = nullptr;
    QLabel *applicationIconView = nullptr;
    QPushButton *sendButton = nullptr;
    QProgressBar *progressIndicator = nullptr;
    QLabel *progressTextField = nullptr;
    QCheckBox *showAtStartupButton = nullptr;
    QLineEdit *nameField = nullptr;
    QLineEdit *emailField = nullptr;

    bool showStartupNotice = false;
    bool showDetails = false;
    bool didLoad = false;
    std::shared_ptr<VKMainLoopTimer> closeTimer;

    void showFields() const
    {
        nameField->setText(reporterName);
        emailField->setText(reporterEmailAddress);
    }
};

VKCrashReporter::VKCrashReporter() : d(std::make_unique<Private>()) {}

VKCrashReporter::~VKCrashReporter()
{
    VKNotificationCenter::defaultCenter().removeObserver(this);
    if (d->closeTimer)
        d->closeTimer->invalidate();
    d->allSubviews.clear();
    d->summaryTextView = nullptr;
    delete d->window;
    d->window = nullptr;
    setReporterName(QString());
    setReporterEmailAddress(QString());
}

std::shared_ptr<VKCrashReporter> VKCrashReporter::crashReporter()
{
    return create<VKCrashReporter>();
}

QString VKCrashReporter::nibName() const
{
    return QStringLiteral("VKCrashReporter");
}

bool VKCrashReporter::initialize()
{
    using VKReportWindow::outlet;
    QWidget *window = VKReportWindow::load(nibName(), logContext(this, "init"), [this](QWidget *w) {
        d->userDescriptionView = w->findChild<QWidget *>(QStringLiteral("userDescriptionView"));
        return outlet(w, d->summaryTextView, "reportSummaryTextView") &&
               outlet(w, d->startupNoteView, "mStartupNoteView") &&
               outlet(w, d->startupNoteTextField, "mStartupNoteTextField") &&
               outlet(w, d->reportDetailsView, "mReportDetailsView") &&
               outlet(w, d->applicationIconView, "mApplicationIconView") &&
               outlet(w, d->sendButton, "mSendButton") &&
               outlet(w, d->progressIndicator, "mSendProgressIndicator") &&
               outlet(w, d->progressTextField, "mSendProgressTextField") &&
               outlet(w, d->showAtStartupButton, "mToggleShowAtStartupButton") &&
               outlet(w, d->nameField, "mReporterNameField") &&
               outlet(w, d->emailField, "mReporterEmailField");
    });
    if (!window)
        return false; // the reporter is dropped with whatever outlets it found
    window->setAttribute(Qt::WA_DeleteOnClose, false);
    d->window = window;
    d->startupNoteTemplate = d->startupNoteTextField->text();

    d->allSubviews = window->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
    std::stable_sort(
        d->allSubviews.begin(), d->allSubviews.end(),
        [](const QWidget *a, const QWidget *b) { return viewSort(a, b, nullptr) < 0; });

    QObject::connect(d->sendButton, &QPushButton::clicked, window,
                     [this] { sendReport(d->sendButton); });
    QObject::connect(d->showAtStartupButton, &QCheckBox::clicked, window,
                     [this] { toggleShowCrashAtStartup(d->showAtStartupButton); });
    if (auto *details = window->findChild<QPushButton *>(QStringLiteral("mToggleDetailsButton")))
        QObject::connect(details, &QPushButton::clicked, window,
                         [this, details] { toggleReportDetails(details); });
    if (auto *autofill = window->findChild<QPushButton *>(QStringLiteral("mAutofillButton")))
        QObject::connect(autofill, &QPushButton::clicked, window,
                         [this, autofill] { autofillUserInfo(autofill); });
    QObject::connect(d->nameField, &QLineEdit::textEdited, window,
                     [this](const QString &text) { setReporterName(text); });
    QObject::connect(d->emailField, &QLineEdit::textEdited, window,
                     [this](const QString &text) { setReporterEmailAddress(text); });

    loadCrashReportReaders();
    loadRunLogReaders();
    // As the owner of its own window description, the reporter wakes from it too.
    awakeFromNib();
    return true;
}

void VKCrashReporter::awakeFromNib()
{
    auto &center = VKNotificationCenter::defaultCenter();
    center.addObserver(this, VKApplicationWillFinishLaunchingNotification, {},
                       [this](const VKNotification &n) { applicationWillFinishLaunching(n); });
    center.addObserver(this, VKApplicationDidFinishLaunchingNotification, {},
                       [this](const VKNotification &n) { applicationDidFinishLaunching(n); });
    center.addObserver(this, VKApplicationWillTerminateNotification, {},
                       [this](const VKNotification &n) { applicationWillTerminate(n); });
}

void VKCrashReporter::applicationWillFinishLaunching(const VKNotification &)
{
    if (d->didLoad)
        return;
    const auto store = defaults();
    const QVariant didTerminate = store->objectForKey(kCRDidTerminateProperly);
    const QVariant showAtStartup = store->objectForKey(kCRShowAtStartup);
    if (showAtStartup.isNull())
        store->setBool(true, kCRShowAtStartup); // the value read above stays absent
    auto &usage = VKUsageLogger::sharedUsageLogger();
    if (!didTerminate.isNull() && !store->boolForKey(kCRDidTerminateProperly)) {
        usage.logUsageForKey(QStringLiteral("termination.crash"));
        if (!showAtStartup.isNull() && store->boolForKey(kCRShowAtStartup)) {
            usage.logUsageForKey(QStringLiteral("termination.crash.show"));
            d->showDetails = true;
            d->showStartupNotice = true;
            setupReportWindow();
            VKReportWindow::bringToFront(d->window);
        }
        d->didLoad = true;
        return;
    }
    usage.logUsageForKey(QStringLiteral("termination.regular"));
    d->didLoad = true;
}

void VKCrashReporter::applicationDidFinishLaunching(const VKNotification &)
{
    const auto store = defaults();
    store->setBool(false, kCRDidTerminateProperly);
    store->synchronize();
}

void VKCrashReporter::applicationWillTerminate(const VKNotification &)
{
    defaults()->setBool(true, kCRDidTerminateProperly);
}

// MARK: window

void VKCrashReporter::restoreDefaults()
{
    const auto store = defaults();
    setReporterName(store->stringForKey(kNameKey));
    setReporterEmailAddress(store->stringForKey(kEmailKey));
}

void VKCrashReporter::saveDefaults()
{
    const auto store = defaults();
    store->setObject(reporterName(), kNameKey);
    store->setObject(reporterEmailAddress(), kEmailKey);
    store->synchronize();
}

void VKCrashReporter::setupReportWindow()
{
    restoreDefaults();
    d->showFields();
    const QString name = applicationName();
    d->window->setWindowTitle(QStringLiteral("%1 Bug Reporter").arg(name));
    // A rich-text note must not read the name as markup.
    const bool richNote = d->startupNoteTextField->textFormat() != Qt::PlainText;
    QString note = d->startupNoteTemplate;
    note.replace(QStringLiteral("<<ApplicationName>>"), richNote ? name.toHtmlEscaped() : name);
    d->startupNoteTextField->setText(note);
    d->window->setWindowIcon(applicationIcon(d->window));
    const QSize iconSize = d->applicationIconView->maximumSize().boundedTo(QSize(64, 64));
    d->applicationIconView->setPixmap(applicationIcon(d->window).pixmap(iconSize));
    d->progressIndicator->hide();
    d->progressTextField->hide();
    rearrangeSubviews();
    d->sendButton->setEnabled(true);
    d->showAtStartupButton->setChecked(defaults()->boolForKey(kCRShowAtStartup));
    d->summaryTextView->setPlainText(QString());
}

QList<QWidget *> VKCrashReporter::visibleSubviews() const
{
    QList<QWidget *> views;
    for (QWidget *view : d->allSubviews) {
        if (view == d->startupNoteView && !d->showStartupNotice)
            continue;
        if (view == d->reportDetailsView && !d->showDetails)
            continue;
        views.append(view);
    }
    return views;
}

void VKCrashReporter::rearrangeSubviews()
{
    const QList<QWidget *> visible = visibleSubviews();
    int height = 0;
    for (const QWidget *view : visible)
        height += view->height();
    QWidget *window = d->window;
    // Grow or shrink at the bottom: the top edge stays where it was.
    if (window->isVisible()) {
        QRect frame = window->geometry();
        frame.setHeight(height);
        window->setGeometry(frame);
    } else {
        window->resize(window->width(), height);
    }
    for (QWidget *view : d->allSubviews)
        view->hide();
    int y = height;
    for (QWidget *view : visible) {
        y -= view->height();
        view->setGeometry(0, y, window->width(), view->height());
        view->show();
    }
}

// MARK: actions

void VKCrashReporter::showReportWindow(QObject *)
{
    d->showStartupNotice = false;
    d->showDetails = true;
    setupReportWindow();
    VKReportWindow::bringToFront(d->window);
}

void VKCrashReporter::toggleReportDetails(QObject *)
{
    d->showDetails = !d->showDetails;
    setupReportWindow();
}

void VKCrashReporter::toggleShowCrashAtStartup(QObject *sender)
{
    const auto store = defaults();
    const bool show = !store->boolForKey(kCRShowAtStartup);
    store->setBool(show, kCRShowAtStartup);
    store->synchronize();
    if (auto *button = qobject_cast<QAbstractButton *>(sender))
        button->setChecked(show);
}

void VKCrashReporter::autofillUserInfo(QObject *)
{
    const VKUserCard card = VKUserCard::currentUserCard();
    setReporterEmailAddress(card.emailAddresses.isEmpty() ? QStringLiteral("")
                                                          : card.emailAddresses.first());
    QString name = (card.firstName.isNull() ? QStringLiteral("") : card.firstName) +
                   QStringLiteral(" ") +
                   (card.lastName.isNull() ? QStringLiteral("") : card.lastName);
    if (name.isEmpty()) // never: the blank is always there
        name = VKUserCard::fullUserName();
    setReporterName(name);
    d->showFields();
}

void VKCrashReporter::sendReport(QObject *)
{
    std::shared_ptr<VKCrashReporter> self = shared_from_this();
    std::thread([self]() mutable {
        self->sendReportThreaded();
        // Give the reference back where the reporter lives.
        VKMainLoop::performOnMainThread([keep = std::move(self)] {}, false);
    }).detach();
    d->sendButton->setEnabled(false);
    VKReportWindow::startProgress(d->progressIndicator, d->progressTextField,
                                  QStringLiteral("Sending report"));
}

// MARK: gathering

QStringList VKCrashReporter::applicationNames() const
{
    return {applicationName()};
}

void VKCrashReporter::loadCrashReportReaders()
{
    const QDateTime earliest =
        QDateTime::currentDateTimeUtc().addMSecs(qint64(-kEarliestReportAge * 1000));
    QList<std::shared_ptr<VKCrashLogReader>> readers;
    for (const QString &name : applicationNames())
        readers.append(std::make_shared<VKCrashLogReader>(name, earliest, true));
    setCrashReportReaders(std::move(readers));
}

void VKCrashReporter::loadRunLogReaders()
{
    const QDateTime earliest =
        QDateTime::currentDateTimeUtc().addMSecs(qint64(-kEarliestReportAge * 1000));
    QList<std::shared_ptr<VKRunLogReader>> readers;
    for (const QString &name : applicationNames())
        readers.append(std::make_shared<VKRunLogReader>(name, earliest));
    setRunLogReaders(std::move(readers));
}

QString VKCrashReporter::crashReportString() const
{
    QString text;
    for (const auto &reader : crashReportReaders())
        text += reader->recentLogString();
    return text.isEmpty() ? QString() : text;
}

QString VKCrashReporter::runLogString() const
{
    // Reads the crash readers, as it always has; the report does not use it.
    return crashReportString();
}

namespace {

template <typename Reader, typename Answer>
QStringList collect(const QList<std::shared_ptr<Reader>> &readers, Answer answer)
{
    QStringList paths;
    for (const auto &reader : readers)
        paths += answer(*reader);
    return paths;
}

} // namespace

QStringList VKCrashReporter::sentCrashReportFilePaths() const
{
    return collect(crashReportReaders(), [](const VKLogReader &r) {
        return r.sentLogFilePaths().value_or(QStringList());
    });
}

QStringList VKCrashReporter::unsentCrashReportFilePaths() const
{
    return collect(crashReportReaders(),
                   [](const VKLogReader &r) { return r.unsentLogFilePaths(); });
}

QStringList VKCrashReporter::allCrashReportFilePaths() const
{
    return collect(crashReportReaders(), [](const VKLogReader &r) { return r.allLogFilePaths(); });
}

QStringList VKCrashReporter::sentRunLogFilePaths() const
{
    return collect(runLogReaders(), [](const VKLogReader &r) {
        return r.sentLogFilePaths().value_or(QStringList());
    });
}

QStringList VKCrashReporter::unsentRunLogFilePaths() const
{
    return collect(runLogReaders(), [](const VKLogReader &r) { return r.unsentLogFilePaths(); });
}

QStringList VKCrashReporter::allRunLogFilePaths() const
{
    return collect(runLogReaders(), [](const VKLogReader &r) { return r.allLogFilePaths(); });
}

QStringList VKCrashReporter::preferencesPaths() const
{
    // The defaults file of the application (JSON here), user domain first.
    const QStringList folders = VKSearchPaths::libraryDirectories(int(VKSearchPathDomain::User) |
                                                                  int(VKSearchPathDomain::Local));
    for (const QString &folder : folders) {
        const QString path =
            folder + QStringLiteral("/Preferences/") + bundleIdentifier() + QStringLiteral(".json");
        if (QFileInfo::exists(path))
            return {path};
    }
    return {};
}

void VKCrashReporter::setSystemProfilerCommand(const QString &program, const QStringList &arguments)
{
    QMutexLocker locker(&profilerMutex());
    profilerProgram() = program;
    profilerArguments() = arguments;
}

QStringList VKCrashReporter::systemProfilePaths() const
{
    QString program;
    QStringList arguments;
    {
        QMutexLocker locker(&profilerMutex());
        program = profilerProgram();
        arguments = profilerArguments();
    }
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments, QIODevice::ReadOnly);
    if (!process.waitForStarted(-1))
        return {};
    QByteArray output;
    while (process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(-1);
        output += process.readAllStandardOutput();
        process.readAllStandardError();
    }
    process.waitForFinished(-1);
    output += process.readAllStandardOutput();
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return {};

    const QString target =
        VKSearchPaths::temporaryDirectory() + QStringLiteral("system_profile.spx");
    if (QFileInfo::exists(target) && !QFile::remove(target))
        return {};
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly) || file.write(output) != output.size() || !file.commit())
        return {};
    return {target};
}

QUrl VKCrashReporter::createZipFileWithName(const QString &name, const QStringList &paths) const
{
    const QString path = VKSearchPaths::temporaryDirectory() + name + QStringLiteral(".zip");
    if (QFileInfo::exists(path) && !QFile::remove(path))
        return {};
    QString why;
    if (!VKZipArchive::createZipFileAtPath(path, paths, &why))
        return {};
    return QUrl::fromLocalFile(path);
}

void VKCrashReporter::logOldLogStatementsFromConsole()
{
    const auto store = defaults();
    const double oneDayAgo = double(QDateTime::currentSecsSinceEpoch()) - 86400.0;
    QString chosen = store->stringForKey(kLastLogReadingTimeKey);
    if (chosen.isNull() || VKLenientNumber::floatValue(chosen) < oneDayAgo)
        chosen = QString::asprintf("%.0f", oneDayAgo);

    const auto messages =
        VKJournalSearch::messages(bundleIdentifier(), qint64(VKLenientNumber::doubleValue(chosen)));
    for (const QString &message : messages.value_or(QStringList())) {
        if (message.contains(QLatin1String("Unable to simultaneously satisfy constraints:")))
            continue;
        VKLogger::error(logContext(this, "logOldLogStatementsFromConsole"), "OldLog: %@", message);
    }
    store->setObject(QString::asprintf("%.0f", double(QDateTime::currentSecsSinceEpoch())),
                     kLastLogReadingTimeKey);
}

QString VKCrashReporter::systemVersion()
{
    return VKSystemInfo::productVersion().value_or(QString());
}

std::optional<QVariantMap> VKCrashReporter::messageData() const
{
    return std::nullopt;
}

// MARK: sending

void VKCrashReporter::sendReportThreaded()
{
    saveDefaults();
    logOldLogStatementsFromConsole();

    QVariantMap fields;
    auto setText = [&fields](const QString &key, const QString &value) {
        if (!value.isNull())
            fields.insert(key, value);
    };
    auto setURL = [&fields](const QString &key, const QUrl &value) {
        if (!value.isEmpty())
            fields.insert(key, value);
    };
    QString description;
    VKMainLoop::performOnMainThread(
        [this, &description] {
            if (d->summaryTextView)
                description = d->summaryTextView->toPlainText();
        },
        true);

    setText(QStringLiteral("NAME"), reporterName());
    setText(QStringLiteral("EMAIL"), reporterEmailAddress());
    setText(QStringLiteral("CRASH_REPORT"), crashReportString());
    setText(QStringLiteral("USER_IDENTIFIER"), VKUsageLogger::sharedUsageLogger().userIdentifier());
    setText(QStringLiteral("APPLICATION_NAME"), applicationName());
    setText(QStringLiteral("APPLICATION_VERSION"), infoString(VKBundleShortVersionKey));
    setText(QStringLiteral("SYSTEM_VERSION"), systemVersion());
    setText(QStringLiteral("DESCRIPTION"), description);

    const QStringList unsentCrashReports = unsentCrashReportFilePaths();
    if (!unsentCrashReports.isEmpty())
        setURL(QStringLiteral("CRASH_REPORTS_ATTACHMENT"),
               createZipFileWithName(QStringLiteral("CrashReports"), unsentCrashReports));
    fields.insert(QStringLiteral("CRASH_REPORTS_COUNT_ALL"),
                  countText(allCrashReportFilePaths().size()));
    fields.insert(QStringLiteral("CRASH_REPORTS_COUNT_SENT"),
                  countText(sentCrashReportFilePaths().size()));
    fields.insert(QStringLiteral("CRASH_REPORTS_COUNT_ATTACHED"),
                  countText(unsentCrashReports.size()));

    const QStringList unsentRunLogs = unsentRunLogFilePaths();
    if (!unsentRunLogs.isEmpty())
        setURL(QStringLiteral("RUN_LOGS_ATTACHMENT"),
               createZipFileWithName(QStringLiteral("RunLogs"), unsentRunLogs));
    fields.insert(QStringLiteral("RUN_LOGS_COUNT_ALL"), countText(allRunLogFilePaths().size()));
    fields.insert(QStringLiteral("RUN_LOGS_COUNT_SENT"), countText(sentRunLogFilePaths().size()));
    fields.insert(QStringLiteral("RUN_LOGS_COUNT_ATTACHED"), countText(unsentRunLogs.size()));

    const QStringList profile = systemProfilePaths();
    if (!profile.isEmpty())
        setURL(QStringLiteral("SYSTEM_PROFILE_ATTACHMENT"),
               createZipFileWithName(QStringLiteral("SystemProfile"), profile));
    const QStringList preferences = preferencesPaths();
    if (!preferences.isEmpty())
        setURL(QStringLiteral("PREFERENCES_ATTACHMENT"),
               createZipFileWithName(QStringLiteral("Preferences"), preferences));

    if (const auto extra = messageData()) {
        for (auto it = extra->cbegin(); it != extra->cend(); ++it)
            fields.insert(it.key(), it.value());
    }
    VKMainLoop::performOnMainThread([this, &fields] { sendMessageDataMainThread(fields); }, true);
}

void VKCrashReporter::sendMessageDataMainThread(const QVariantMap &fields)
{
    sendHTTPData(fields, reportServerAddress(VKCrashReportServerPath));
}

void VKCrashReporter::connectionDidSendBodyData(VKURLConnection *, qint64, qint64 totalBytesWritten,
                                                qint64 totalBytesExpectedToWrite)
{
    d->progressIndicator->setRange(0, 1000);
    const double fraction = totalBytesExpectedToWrite > 0
                                ? double(totalBytesWritten) / double(totalBytesExpectedToWrite)
                                : 0.0;
    d->progressIndicator->setValue(int(fraction * 1000));
    d->progressTextField->setText(
        QStringLiteral("Sending report, %1 of %2 transmitted")
            .arg(VKFileSize::humanReadableFileSizeStringFromByteCount(quint64(totalBytesWritten)),
                 VKFileSize::humanReadableFileSizeStringFromByteCount(
                     quint64(totalBytesExpectedToWrite))));
}

void VKCrashReporter::connectionDidReceiveResponse(VKURLConnection *, int statusCode,
                                                   const QString &reasonPhrase)
{
    VKLogger::info(logContext(this, "connection:didReceiveResponse:"),
                   "Received response while sending crash report - %ld : %@", long(statusCode),
                   reasonPhrase);
    setReceivedData(QByteArray(""));
}

void VKCrashReporter::connectionDidReceiveData(VKURLConnection *, const QByteArray &data)
{
    mutableReceivedData().append(data);
}

void VKCrashReporter::connectionDidFailWithError(VKURLConnection *, const VKError &error)
{
    VKLogger::error(logContext(this, "connection:didFailWithError:"),
                    "Could not establish connection because of error %@", error.description());
    VKUsageLogger::sharedUsageLogger().logUsageForKey(
        QStringLiteral("termination.crash.send.failed"));
    setReceivedData(QByteArray());
    setURLConnection(nullptr);
    d->progressTextField->setText(
        QStringLiteral("Sending failed, please check your internet connection and try again!"));
    d->sendButton->setText(QStringLiteral("Try again"));
    d->sendButton->setEnabled(true);
    VKReportWindow::stopIndicator(d->progressIndicator);
    setCrashReportReaders({});
}

void VKCrashReporter::connectionDidFinishLoading(VKURLConnection *)
{
    VKUsageLogger::sharedUsageLogger().logUsageForKey(
        QStringLiteral("termination.crash.send.success"));
    setReceivedData(QByteArray());
    setURLConnection(nullptr);
    d->progressTextField->setText(QStringLiteral("Report sent, Thank you for your feedback!"));
    VKReportWindow::stopIndicator(d->progressIndicator);
    std::weak_ptr<VKCrashReporter> weak = weak_from_this();
    d->closeTimer = VKMainLoopTimer::scheduledTimer(kCloseDelay, [weak](VKMainLoopTimer &) {
        if (auto self = weak.lock()) {
            self->d->window->hide();
            self->d->closeTimer.reset();
        }
    });
    for (const auto &reader : crashReportReaders())
        reader->markUnsentLogsAsSent();
    for (const auto &reader : runLogReaders())
        reader->markUnsentLogsAsSent();
    setCrashReportReaders({});
    setCrashReportReaders({});
}

// MARK: properties

QList<std::shared_ptr<VKCrashLogReader>> VKCrashReporter::crashReportReaders() const
{
    std::lock_guard lock(d->mutex);
    return d->crashReportReaders;
}

void VKCrashReporter::setCrashReportReaders(QList<std::shared_ptr<VKCrashLogReader>> readers)
{
    std::lock_guard lock(d->mutex);
    d->crashReportReaders = std::move(readers);
}

QList<std::shared_ptr<VKRunLogReader>> VKCrashReporter::runLogReaders() const
{
    std::lock_guard lock(d->mutex);
    return d->runLogReaders;
}

void VKCrashReporter::setRunLogReaders(QList<std::shared_ptr<VKRunLogReader>> readers)
{
    std::lock_guard lock(d->mutex);
    d->runLogReaders = std::move(readers);
}

QString VKCrashReporter::reporterName() const
{
    std::lock_guard lock(d->mutex);
    return d->reporterName;
}

void VKCrashReporter::setReporterName(const QString &name)
{
    std::lock_guard lock(d->mutex);
    d->reporterName = name;
}

QString VKCrashReporter::reporterEmailAddress() const
{
    std::lock_guard lock(d->mutex);
    return d->reporterEmailAddress;
}

void VKCrashReporter::setReporterEmailAddress(const QString &address)
{
    std::lock_guard lock(d->mutex);
    d->reporterEmailAddress = address;
}

QWidget *VKCrashReporter::reportWindow() const
{
    return d->window;
}
QList<QWidget *> VKCrashReporter::allSubviews() const
{
    return d->allSubviews;
}
QPlainTextEdit *VKCrashReporter::reportSummaryTextView() const
{
    return d->summaryTextView;
}
QWidget *VKCrashReporter::userDescriptionView() const
{
    return d->userDescriptionView;
}
bool VKCrashReporter::showStartupNotice() const
{
    return d->showStartupNotice;
}
void VKCrashReporter::setShowStartupNotice(bool show)
{
    d->showStartupNotice = show;
}
bool VKCrashReporter::showDetails() const
{
    return d->showDetails;
}
void VKCrashReporter::setShowDetails(bool show)
{
    d->showDetails = show;
}
bool VKCrashReporter::didLoad() const
{
    return d->didLoad;
}
QWidget *VKCrashReporter::startupNoteView() const
{
    return d->startupNoteView;
}
QLabel *VKCrashReporter::startupNoteTextField() const
{
    return d->startupNoteTextField;
}
QWidget *VKCrashReporter::reportDetailsView() const
{
    return d->reportDetailsView;
}
QLabel *VKCrashReporter::applicationIconView() const
{
    return d->applicationIconView;
}
QPushButton *VKCrashReporter::sendButton() const
{
    return d->sendButton;
}
QProgressBar *VKCrashReporter::sendProgressIndicator() const
{
    return d->progressIndicator;
}
QLabel *VKCrashReporter::sendProgressTextField() const
{
    return d->progressTextField;
}
QCheckBox *VKCrashReporter::toggleShowAtStartupButton() const
{
    return d->showAtStartupButton;
}
std::shared_ptr<VKMainLoopTimer> VKCrashReporter::closeTimer() const
{
    return d->closeTimer;
}

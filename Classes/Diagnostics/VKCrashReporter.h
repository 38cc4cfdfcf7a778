// The crash reporter: notices at start-up that the application's previous run did not end
// normally, offers a report window, and on request gathers the evidence (crash reports, run
// logs, old journal messages, a hardware profile, the preferences, the user's description and
// contact data) and posts it to the report server. Outcomes are counted through VKUsageLogger.
//
// A host makes one with crashReporter() on the main thread right after attaching
// VKApplicationLifecycle; the reporter then hears the launch and termination notifications.
#pragma once

#include "Diagnostics/VKReporter.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariantMap>

#include <memory>
#include <optional>

class QCheckBox;
class QLabel;
class QObject;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QWidget;
class VKCrashLogReader;
class VKMainLoopTimer;
class VKNotification;
class VKRunLogReader;

// User-defaults keys; each holds the text in its comment.
VK_EXPORT extern const QString kCRDidTerminateProperly; // "crashReporterDidTerminateProperly"
VK_EXPORT extern const QString kCRShowAtStartup;        // "showCrashReporterAtStartup"

// Orders two views of one window by the vertical origin of their frames, measured upwards from
// the bottom of their parent and compared as floats: -1 when `first` lies lower, 1 when higher,
// 0 when equal. `context` is not used.
VK_EXPORT int viewSort(const QWidget *first, const QWidget *second, void *context);

class VK_EXPORT VKCrashReporter : public VKReporter,
                                  public std::enable_shared_from_this<VKCrashReporter>
{
public:
    // Loads the window description "VKCrashReporter", sorts its panels and makes the readers.
    // Null (after logging "Could not load nib named VKCrashReporter") when the description
    // cannot be loaded. Main thread only.
    static std::shared_ptr<VKCrashReporter> crashReporter();
    // The same for a subclass T with a protected default constructor (its applicationNames()
    // and messageData() are in effect for the readers made here).
    template <typename T>
    static std::shared_ptr<T> create()
    {
        std::shared_ptr<T> reporter(new T);
        return reporter->initialize() ? reporter : nullptr;
    }
    ~VKCrashReporter() override;

    // Set-up and life cycle.
    QString nibName() const; // "VKCrashReporter"
    // Registers for the launch and termination notifications (again on each call).
    void awakeFromNib();
    void applicationWillFinishLaunching(const VKNotification &notification);
    void applicationDidFinishLaunching(const VKNotification &notification);
    void applicationWillTerminate(const VKNotification &notification);

    // User actions; `sender` is the control that asked (may be null).
    void showReportWindow(QObject *sender);
    void toggleReportDetails(QObject *sender);
    void toggleShowCrashAtStartup(QObject *sender);
    void autofillUserInfo(QObject *sender);
    void sendReport(QObject *sender);

    // Gathering. An empty list or null answer stands for "nothing".
    virtual QStringList applicationNames() const;
    void loadCrashReportReaders();
    void loadRunLogReaders();
    QString crashReportString() const;
    QString runLogString() const;
    QStringList sentCrashReportFilePaths() const;
    QStringList unsentCrashReportFilePaths() const;
    QStringList allCrashReportFilePaths() const;
    QStringList sentRunLogFilePaths() const;
    QStringList unsentRunLogFilePaths() const;
    QStringList allRunLogFilePaths() const;
    QStringList preferencesPaths() const;
    QStringList systemProfilePaths() const;
    // "<temporary folder><name>.zip" holding `paths` flat; an empty URL when it cannot be made.
    QUrl createZipFileWithName(const QString &name, const QStringList &paths) const;
    void logOldLogStatementsFromConsole();
    static QString systemVersion();
    // Extra form fields of a subclass (they win over the reporter's); nothing by default.
    virtual std::optional<QVariantMap> messageData() const;

    // Sending: the gathering (background thread) and the hand-over (main thread).
    void sendReportThreaded();
    void sendMessageDataMainThread(const QVariantMap &fields);
    void connectionDidSendBodyData(VKURLConnection *connection, qint64 bytesWritten,
                                   qint64 totalBytesWritten,
                                   qint64 totalBytesExpectedToWrite) override;
    void connectionDidReceiveResponse(VKURLConnection *connection, int statusCode,
                                      const QString &reasonPhrase) override;
    void connectionDidReceiveData(VKURLConnection *connection, const QByteArray &data) override;
    void connectionDidFailWithError(VKURLConnection *connection, const VKError &error) override;
    void connectionDidFinishLoading(VKURLConnection *connection) override;

    // Defaults and window.
    void saveDefaults();
    void restoreDefaults();
    void setupReportWindow();
    QList<QWidget *> visibleSubviews() const;
    void rearrangeSubviews();

    // Properties. The reader lists may be read from any thread.
    QList<std::shared_ptr<VKCrashLogReader>> crashReportReaders() const;
    void setCrashReportReaders(QList<std::shared_ptr<VKCrashLogReader>> readers);
    QList<std::shared_ptr<VKRunLogReader>> runLogReaders() const;
    void setRunLogReaders(QList<std::shared_ptr<VKRunLogReader>> readers);
    QWidget *reportWindow() const;
    QList<QWidget *> allSubviews() const;
    QPlainTextEdit *reportSummaryTextView() const;
    QWidget *userDescriptionView() const;
    QString reporterName() const;
    void setReporterName(const QString &name);
    QString reporterEmailAddress() const;
    void setReporterEmailAddress(const QString &address);
    bool showStartupNotice() const;
    void setShowStartupNotice(bool show);
    bool showDetails() const;
    void setShowDetails(bool show);
    bool didLoad() const;

    // Outlets.
    QWidget *startupNoteView() const;
    QLabel *startupNoteTextField() const;
    QWidget *reportDetailsView() const;
    QLabel *applicationIconView() const;
    QPushButton *sendButton() const;
    QProgressBar *sendProgressIndicator() const;
    QLabel *sendProgressTextField() const;
    QCheckBox *toggleShowAtStartupButton() const;

    // The one-shot timer that orders the window out after a successful send (1.75 s), while it
    // is pending; null otherwise.
    std::shared_ptr<VKMainLoopTimer> closeTimer() const;

    // The program that writes the hardware profile and its arguments (default "lshw" with
    // "-xml" and "-quiet").
    static void setSystemProfilerCommand(const QString &program, const QStringList &arguments);

protected:
    VKCrashReporter();
    // The work of init; false when the window description cannot be loaded.
    bool initialize();

private:
    struct Private;
    std::unique_ptr<Private> d;
};

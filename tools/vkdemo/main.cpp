// vkdemo: a small desktop application that uses the diagnostics as a host would. It writes a
// run log, installs the crash handler, offers the crash reporter when the previous run did not
// end normally, and has a Help menu with the bug reporter and the crash reporter (commands of an
// action target, VHActionTargetReports) and a "Crash now" command.
//
//   vkdemo [--report-server URL] [--send-crash-report] [--screenshot FILE] [--crash-now]
#include "VHActionTargetReports.h"

#include "Application/VKActionDispatch.h"
#include "Application/VKCommandAction.h"
#include "Diagnostics/VKBugReporter.h"
#include "Diagnostics/VKCrashHandler.h"
#include "Diagnostics/VKCrashReporter.h"
#include "Diagnostics/VKRunLog.h"
#include "Foundation/VKApplicationLifecycle.h"

#include <QAction>
#include <QApplication>
#include <QCommandLineParser>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QIcon>
#include <QLabel>
#include <QLinearGradient>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

#include <cstdio>
#include <functional>
#include <memory>

namespace {

int *volatile g_nowhere = nullptr;

// The fault must reach the crash handler as a real fault, also in sanitizer builds, where the
// sanitizer would otherwise report the write and exit.
#if defined(__clang__)
#define VKDEMO_REAL_FAULT __attribute__((noinline, no_sanitize("address", "undefined")))
#else
#define VKDEMO_REAL_FAULT __attribute__((noinline, no_sanitize_address, no_sanitize_undefined))
#endif

[[noreturn]] VKDEMO_REAL_FAULT void crashNow()
{
    std::fflush(nullptr);
    *g_nowhere = 42;
    __builtin_trap(); // not reached: the write above faults
}

// Turns the event loop until `done` holds or the deadline passes.
bool waitFor(const std::function<bool()> &done, int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (!done() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 50);
    return done();
}

bool saveWindow(QWidget *window, const QString &file)
{
    if (!window)
        return false;
    window->show();
    QCoreApplication::processEvents();
    const bool saved = window->grab().save(file, "PNG");
    window->hide();
    return saved;
}

// The application's icon, drawn rather than shipped: a frame of film with the initial on it. The
// reporter windows show it next to their text.
QIcon applicationIcon()
{
    QIcon icon;
    for (const int size : {32, 64, 128}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        const qreal unit = size / 16.0;
        QLinearGradient fill(0, 0, 0, size);
        fill.setColorAt(0, QColor(0x3a, 0x4f, 0x7a));
        fill.setColorAt(1, QColor(0x1c, 0x25, 0x3a));
        QPainterPath frame;
        frame.addRoundedRect(QRectF(unit, unit, 14 * unit, 14 * unit), 3 * unit, 3 * unit);
        painter.fillPath(frame, fill);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(255, 255, 255, 90));
        for (int hole = 0; hole < 4; ++hole) {
            const qreal x = (2.6 + hole * 3) * unit;
            painter.drawRoundedRect(QRectF(x, 2 * unit, 1.8 * unit, 1.4 * unit), unit / 3,
                                    unit / 3);
            painter.drawRoundedRect(QRectF(x, 12.6 * unit, 1.8 * unit, 1.4 * unit), unit / 3,
                                    unit / 3);
        }
        QFont font = painter.font();
        font.setBold(true);
        font.setPixelSize(int(8 * unit));
        painter.setFont(font);
        painter.setPen(QColor(0xf2, 0xb1, 0x34));
        painter.drawText(QRectF(0, 0, size, size), Qt::AlignCenter, QStringLiteral("V"));
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

// The bug reporter's picture beside the crash reporter's: "crash" in the name becomes "bug"
// ("crash-reporter.png" gives "bug-reporter.png"); a name without it gets "-bug" added
// ("shot.png" gives "shot-bug.png").
QString bugScreenshotFile(const QString &file)
{
    const QFileInfo info(file);
    QString base = info.completeBaseName();
    const qsizetype crash = base.lastIndexOf(QLatin1String("crash"));
    if (crash >= 0)
        base.replace(crash, 5, QStringLiteral("bug"));
    else
        base += QStringLiteral("-bug");
    const QString extension = info.suffix().isEmpty() ? QString() : u'.' + info.suffix();
    return info.path() + u'/' + base + extension;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("vkdemo"));
    QApplication::setApplicationDisplayName(QStringLiteral("VessanUtilities Demo"));
    QApplication::setOrganizationDomain(QStringLiteral("vessan.com"));
    QApplication::setApplicationVersion(QStringLiteral(VKDEMO_VERSION));
    QApplication::setWindowIcon(applicationIcon());

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A host of the crash handler, the crash reporter and the bug reporter."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption serverOption(QStringLiteral("report-server"),
                                          QStringLiteral("Send reports to the server at URL."),
                                          QStringLiteral("URL"));
    const QCommandLineOption sendOption(
        QStringLiteral("send-crash-report"),
        QStringLiteral("Gather and send the pending crash report without a window, then quit."));
    const QCommandLineOption screenshotOption(
        QStringLiteral("screenshot"),
        QStringLiteral("Render the crash reporter window to FILE and the bug reporter window "
                       "beside it (\"crash\" in the name becomes \"bug\", else \"-bug\" is "
                       "added) as PNG, then quit."),
        QStringLiteral("FILE"));
    const QCommandLineOption crashOption(
        QStringLiteral("crash-now"), QStringLiteral("Crash once launched (as the menu command)."));
    parser.addOptions({serverOption, sendOption, screenshotOption, crashOption});
    parser.process(application);

    VKRunLog::startRunLog();
    if (!VKCrashHandler::install())
        std::fprintf(stderr, "vkdemo: crash reports cannot be written\n");
    if (parser.isSet(serverOption))
        VKReporter::setReportServerBaseURL(parser.value(serverOption));

    // The reporters and the dispatcher exist before launch: the crash reporter decides at "did
    // finish launching" whether to offer a report, and the dispatcher makes the action targets
    // then.
    const std::shared_ptr<VKCrashReporter> crashReporter = VKCrashReporter::crashReporter();
    const auto bugReporter = std::make_shared<VKBugReporter>();
    VHActionTargetReports::setReporters(crashReporter, bugReporter);
    // The reporters' windows must go while the application object is still there.
    struct ReleaseReporters
    {
        ~ReleaseReporters() { VHActionTargetReports::setReporters(nullptr, nullptr); }
    } releaseReporters;
    VKActionDispatch dispatch;
    VKApplicationLifecycle::attachToApplication();

    if (parser.isSet(crashOption)) {
        // After launch, as the menu command would: the reporter has marked the run as not yet
        // ended properly, so the next start notices the crash.
        waitFor([] { return VKApplicationLifecycle::hasFinishedLaunching(); }, 5000);
        crashNow();
    }

    if (parser.isSet(screenshotOption)) {
        const QString file = parser.value(screenshotOption);
        // The crash reporter as a user meets it after a crash: the start-up note and the
        // details (name, e-mail, description) both shown.
        bool saved = false;
        if (crashReporter) {
            crashReporter->setShowStartupNotice(true);
            crashReporter->setShowDetails(true);
            crashReporter->setupReportWindow();
            saved = saveWindow(crashReporter->reportWindow(), file);
        }
        bugReporter->showReportWindow(nullptr);
        saved = saveWindow(bugReporter->reportWindow(), bugScreenshotFile(file)) && saved;
        VKApplicationLifecycle::applicationWillTerminate();
        return saved ? 0 : 1;
    }

    if (parser.isSet(sendOption)) {
        // The reporter decides at "did finish launching" whether there is something to send.
        waitFor([] { return VKApplicationLifecycle::hasFinishedLaunching(); }, 5000);
        if (!crashReporter || crashReporter->unsentCrashReportFilePaths().isEmpty()) {
            std::printf("vkdemo: no crash report to send\n");
            VKApplicationLifecycle::applicationWillTerminate();
            return 0;
        }
        if (QWidget *window = crashReporter->reportWindow())
            window->hide();
        crashReporter->sendReport(nullptr);
        const auto outcome = [&] { return crashReporter->sendProgressTextField()->text(); };
        waitFor(
            [&] {
                return outcome().startsWith(QLatin1String("Report sent")) ||
                       outcome().startsWith(QLatin1String("Sending failed"));
            },
            120000);
        std::printf("vkdemo: %s\n", qPrintable(outcome()));
        VKApplicationLifecycle::applicationWillTerminate();
        return outcome().startsWith(QLatin1String("Report sent")) ? 0 : 1;
    }

    QMainWindow window;
    window.setWindowTitle(QApplication::applicationDisplayName());
    auto *note = new QLabel(
        QStringLiteral("<h3>VessanUtilities Demo</h3>"
                       "<p>This window hosts the library's crash handler and reporters.</p>"
                       "<p>Choose <b>Debug ▸ Crash Now</b> to end the program with a crash; the "
                       "next start offers to send the report.</p>"
                       "<p><b>Help ▸ Report a Bug…</b> opens the bug reporter.</p>"));
    note->setWordWrap(true);
    note->setMargin(24);
    window.setCentralWidget(note);
    window.resize(520, 280);

    QMenu *file = window.menuBar()->addMenu(QStringLiteral("&File"));
    QAction *quit = file->addAction(QStringLiteral("&Quit"), &application, &QApplication::quit);
    quit->setShortcut(QKeySequence::Quit);
    QMenu *debug = window.menuBar()->addMenu(QStringLiteral("&Debug"));
    debug->addAction(QStringLiteral("Crash Now"), [] { crashNow(); });
    QMenu *help = window.menuBar()->addMenu(QStringLiteral("&Help"));
    const QList<VKCommandAction *> commands{
        new VKCommandAction(QStringLiteral("Report a Bug…"), QStringLiteral("showBugReporter"),
                            help),
        new VKCommandAction(QStringLiteral("Send a Crash Report…"),
                            QStringLiteral("showCrashReporter"), help)};
    for (VKCommandAction *command : commands)
        help->addAction(command);
    QObject::connect(help, &QMenu::aboutToShow, help, [commands] {
        for (VKCommandAction *command : commands)
            command->validate();
    });
    help->addSeparator();
    help->addAction(QStringLiteral("About vkdemo"), [&window] {
        QMessageBox::about(
            &window, QStringLiteral("About vkdemo"),
            QStringLiteral("VessanUtilities Demo %1").arg(QApplication::applicationVersion()));
    });
    window.show();
    return application.exec();
}

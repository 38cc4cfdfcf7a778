// vkdemo: a small desktop application that uses the diagnostics as a host would. It writes a
// run log, installs the crash handler, offers the crash reporter when the previous run did not
// end normally, and has a Help menu with the bug reporter and a "Crash now" command.
//
//   vkdemo [--report-server URL] [--send-crash-report] [--screenshot FILE] [--crash-now]
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
#include <QLabel>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>

#include <cstdio>
#include <functional>

namespace {

int *volatile g_nowhere = nullptr;

[[noreturn]] void crashNow()
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

// "name.png" gives "name-bug.png".
QString withSuffix(const QString &file, const QString &suffix)
{
    const QFileInfo info(file);
    const QString extension = info.suffix().isEmpty() ? QString() : u'.' + info.suffix();
    return info.path() + u'/' + info.completeBaseName() + suffix + extension;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("vkdemo"));
    QApplication::setApplicationDisplayName(QStringLiteral("VessanUtilities Demo"));
    QApplication::setOrganizationDomain(QStringLiteral("vessan.com"));
    QApplication::setApplicationVersion(QStringLiteral(VKDEMO_VERSION));

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
        QStringLiteral("Render the crash reporter window to FILE and the bug reporter window to "
                       "FILE with \"-bug\" added to its name (PNG), then quit."),
        QStringLiteral("FILE"));
    const QCommandLineOption crashOption(QStringLiteral("crash-now"),
                                         QStringLiteral("Crash at once (as the menu command)."));
    parser.addOptions({serverOption, sendOption, screenshotOption, crashOption});
    parser.process(application);

    VKRunLog::startRunLog();
    if (!VKCrashHandler::install())
        std::fprintf(stderr, "vkdemo: crash reports cannot be written\n");
    if (parser.isSet(serverOption))
        VKReporter::setReportServerBaseURL(parser.value(serverOption));
    if (parser.isSet(crashOption))
        crashNow();

    VKApplicationLifecycle::attachToApplication();
    const std::shared_ptr<VKCrashReporter> crashReporter = VKCrashReporter::crashReporter();
    VKBugReporter bugReporter;

    if (parser.isSet(screenshotOption)) {
        const QString file = parser.value(screenshotOption);
        bool saved = crashReporter && (crashReporter->setupReportWindow(),
                                       saveWindow(crashReporter->reportWindow(), file));
        bugReporter.showReportWindow(nullptr);
        saved = saveWindow(bugReporter.reportWindow(), withSuffix(file, QStringLiteral("-bug"))) &&
                saved;
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
    help->addAction(QStringLiteral("Report a Bug…"),
                    [&bugReporter] { bugReporter.showReportWindow(nullptr); });
    if (crashReporter)
        help->addAction(QStringLiteral("Send a Crash Report…"),
                        [crashReporter] { crashReporter->showReportWindow(nullptr); });
    help->addSeparator();
    help->addAction(QStringLiteral("About vkdemo"), [&window] {
        QMessageBox::about(
            &window, QStringLiteral("About vkdemo"),
            QStringLiteral("VessanUtilities Demo %1").arg(QApplication::applicationVersion()));
    });
    window.show();
    return application.exec();
}

#include "Diagnostics/VKCrashLogReader.h"
#include "Diagnostics/VKRunLogReader.h"
#include "Diagnostics/VKSystemInfo.h"
#include "Foundation/VKApplicationLifecycle.h"
#include "Foundation/VKMainLoop.h"

#include "ReporterTestSupport.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QWidget>

namespace {

QStringList names(const QList<QWidget *> &views)
{
    QStringList list;
    for (const QWidget *view : views)
        list << view->objectName();
    return list;
}

void post(const QString &name)
{
    VKNotificationCenter::defaultCenter().postNotificationName(name);
}

} // namespace

TEST(VKCrashReporterWindow, SetUpThenStackingForEachCombinationKeepsTheTopEdge)
{
    ReporterEnvironment env;
    auto reporter = VKCrashReporter::crashReporter();
    ASSERT_TRUE(reporter);
    // Lowest panel first, as viewSort orders them.
    EXPECT_EQ(names(reporter->allSubviews()),
              QStringList({"mButtonsView", "mReportDetailsView", "mStartupNoteView"}));
    QWidget *buttonsView = reporter->allSubviews()[0], *detailsView = reporter->reportDetailsView(),
            *noteView = reporter->startupNoteView();
    const int buttons = buttonsView->height(), details = detailsView->height(),
              noteHeight = noteView->height();
    EXPECT_EQ(QList<int>({viewSort(buttonsView, detailsView, nullptr),
                          viewSort(noteView, detailsView, nullptr),
                          viewSort(noteView, noteView, nullptr)}),
              QList<int>({-1, 1, 0}));
    env.defaults()->setObject(QString("Ada"), "crashReporterName");
    env.defaults()->setObject(QString("ada@example.com"), "crashReporterEmail");
    for (bool show : {true, false, true}) {
        env.defaults()->setBool(show, kCRShowAtStartup);
        reporter->reportSummaryTextView()->setPlainText("left over");
        reporter->showReportWindow(nullptr);
        EXPECT_EQ(reporter->toggleShowAtStartupButton()->isChecked(), show);
        EXPECT_EQ(reporter->reportSummaryTextView()->toPlainText(), "");
    }
    QWidget *window = reporter->reportWindow();
    EXPECT_EQ(window->windowTitle(), "ReporterHost Bug Reporter");
    const QString note = reporter->startupNoteTextField()->text();
    EXPECT_TRUE(note.contains("ReporterHost quit unexpectedly")) << note;
    EXPECT_FALSE(note.contains("ApplicationName")) << note;
    EXPECT_EQ(QStringList({reporter->reporterName(), reporter->reporterEmailAddress(),
                           window->findChild<QLineEdit *>("mReporterNameField")->text()}),
              QStringList({"Ada", "ada@example.com", "Ada"}));
    // Progress indicator and text, send button, icon, startup notice, details.
    EXPECT_EQ(QList<bool>({reporter->sendProgressIndicator()->isVisible(),
                           reporter->sendProgressTextField()->isVisible(),
                           reporter->sendButton()->isEnabled(),
                           reporter->applicationIconView()->pixmap().isNull(),
                           reporter->showStartupNotice(), reporter->showDetails()}),
              QList<bool>({false, false, true, false, false, true}));

    // The check box writes the inverse of what is stored and shows it.
    env.defaults()->setBool(true, kCRShowAtStartup);
    reporter->toggleShowAtStartupButton()->click();
    EXPECT_FALSE(env.defaults()->boolForKey(kCRShowAtStartup));
    EXPECT_FALSE(reporter->toggleShowAtStartupButton()->isChecked());
    reporter->toggleShowCrashAtStartup(nullptr);
    EXPECT_TRUE(env.defaults()->boolForKey(kCRShowAtStartup));
    reporter->toggleReportDetails(nullptr);
    EXPECT_FALSE(reporter->showDetails() || reporter->reportDetailsView()->isVisible());

    reporter->connectionDidSendBodyData(nullptr, 250000, 750000, 1500000);
    EXPECT_EQ(reporter->sendProgressTextField()->text(),
              "Sending report, 750.0 KB of 1.5 MB transmitted");
    EXPECT_EQ(reporter->sendProgressIndicator()->value(), 500);

    window->move(120, 200);
    vkSpinEventLoop(20);
    const int top = window->geometry().top(); // below the frame the platform may add
    ASSERT_GE(top, 200);
    struct Case
    {
        const char *name;
        bool note;
        bool details;
        QStringList order; // bottom to top
        int height;
    } cases[] = {
        {"neither", false, false, {"mButtonsView"}, buttons},
        {"details only", false, true, {"mButtonsView", "mReportDetailsView"}, buttons + details},
        {"note only", true, false, {"mButtonsView", "mStartupNoteView"}, buttons + noteHeight},
        {"both", true, true, names(reporter->allSubviews()), buttons + details + noteHeight},
        {"back to neither", false, false, {"mButtonsView"}, buttons},
    };
    for (const Case &c : cases) {
        reporter->setShowStartupNotice(c.note);
        reporter->setShowDetails(c.details);
        reporter->rearrangeSubviews();
        EXPECT_EQ(names(reporter->visibleSubviews()), c.order) << c.name;
        EXPECT_EQ(window->height(), c.height) << c.name;
        EXPECT_EQ(window->geometry().top(), top) << c.name << ": the top edge stays";
        int bottom = c.height;
        for (QWidget *view : reporter->visibleSubviews()) {
            EXPECT_EQ(view->geometry().bottom() + 1, bottom) << c.name << view->objectName();
            EXPECT_EQ(view->width(), window->width()) << c.name;
            bottom = view->y();
        }
        EXPECT_EQ(bottom, 0) << c.name << ": stacked without gaps";
        for (QWidget *view : reporter->allSubviews())
            EXPECT_EQ(view->isVisible(), reporter->visibleSubviews().contains(view)) << c.name;
    }
}

TEST(VKCrashReporterLifecycle, EventsAtStartAndQuit)
{
    struct Case
    {
        const char *name;
        QVariant didTerminate; // null: absent
        QVariant showAtStartup;
        QStringList events;
        bool windowShown;
    } cases[] = {
        {"first run ever", QVariant(), QVariant(), {"termination.regular"}, false},
        {"after a normal quit", true, true, {"termination.regular"}, false},
        {"crash, show at start-up",
         false,
         true,
         {"termination.crash", "termination.crash.show"},
         true},
        {"crash, show at start-up off", false, false, {"termination.crash"}, false},
        {"first crash of a fresh installation", false, QVariant(), {"termination.crash"}, false},
    };
    for (const Case &c : cases) {
        ReporterEnvironment env;
        env.defaults()->setObject(c.didTerminate, kCRDidTerminateProperly);
        env.defaults()->setObject(c.showAtStartup, kCRShowAtStartup);
        auto reporter = VKCrashReporter::crashReporter();
        ASSERT_TRUE(reporter) << c.name;
        reporter->awakeFromNib(); // the host's description wakes it too
        post(VKApplicationWillFinishLaunchingNotification);
        EXPECT_EQ(env.usageEvents, c.events) << c.name << ": recorded once, in order";
        EXPECT_TRUE(reporter->didLoad()) << c.name;
        EXPECT_EQ(reporter->reportWindow()->isVisible(), c.windowShown) << c.name;
        EXPECT_EQ(reporter->showStartupNotice(), c.windowShown) << c.name;
        EXPECT_EQ(reporter->startupNoteView()->isVisible(), c.windowShown) << c.name;
        EXPECT_EQ(env.defaults()->objectForKey(kCRShowAtStartup),
                  c.showAtStartup.isNull() ? QVariant(true) : c.showAtStartup)
            << c.name;

        post(VKApplicationDidFinishLaunchingNotification);
        VKUserDefaults::resetStandardUserDefaults(); // what the disk holds
        EXPECT_EQ(env.defaults()->objectForKey(kCRDidTerminateProperly), QVariant(false)) << c.name;
        post(VKApplicationWillTerminateNotification);
        EXPECT_EQ(env.defaults()->objectForKey(kCRDidTerminateProperly), QVariant(true)) << c.name;
        EXPECT_EQ(env.usageEvents, c.events) << c.name;
    }
}

namespace {

// A host's files: two crash reports (one sent already), a report of another application, two
// run logs, the defaults file; vkreportd on 127.0.0.1; a reporter pointed at it.
class CrashSendTest : public ::testing::Test
{
protected:
    ReporterEnvironment env;
    std::unique_ptr<VKReportServerProcess> server;
    std::shared_ptr<VKCrashReporter> reporter;
    QString reports, logs, sentReport, newReport;
    const QString kNewReport =
        "Process: ReporterHost\nBinary Images:\n 0x1 libx.so\n\nThread 0 crashed\n";

    void SetUp() override
    {
        if (QStringLiteral(VKREPORTD_PATH).isEmpty())
            GTEST_SKIP() << "vkreportd is not built (it needs Qt HTTP Server)";
        server = std::make_unique<VKReportServerProcess>(env.tree.makeDir("received"));
        ASSERT_NE(server->port(), 0);
        reports = env.library() + "/Logs/DiagnosticReports/";
        logs = env.library() + "/Logs/Vessan/";
        sentReport =
            vkWriteFile(reports + "ReporterHost_2026-01-01-101010_host.crash", "old crash\n");
        newReport =
            vkWriteFile(reports + "ReporterHost_2026-01-02-101010_host.crash", kNewReport.toUtf8());
        vkWriteFile(reports + "Other_2026-01-02-101010_host.crash", "not ours\n");
        vkWriteFile(logs + "ReporterHost_2026-01-02-100000_1.vqnLog", "run one\n");
        vkWriteFile(logs + "ReporterHost_2026-01-02-110000_2.vqnLog", "run two\n");
        env.defaults()->setObject(QStringList({sentReport, "/elsewhere/Other.crash"}),
                                  kVKSentCrashLogFilePaths);
        env.defaults()->synchronize();
        VKReporter::setReportServerBaseURL(server->baseURL());
        reporter = VKCrashReporter::crashReporter();
        ASSERT_TRUE(reporter);
        reporter->showReportWindow(nullptr);
    }
    QString progressText() const { return reporter->sendProgressTextField()->text(); }
    // Sends and waits for the end; answers the report stored, if any.
    std::optional<VKStoredReport> send(const std::shared_ptr<VKCrashReporter> &r)
    {
        const qsizetype before = server->reports().size();
        r->sendReport(r->sendButton());
        EXPECT_FALSE(r->sendButton()->isEnabled()) << "until the upload ends";
        EXPECT_TRUE(
            vkWaitUntil([&] { return r->sendButton()->isEnabled() || r->closeTimer(); }, 15000));
        if (server->reports().size() != before + 1)
            return std::nullopt;
        return server->report(before);
    }
};

} // namespace

TEST_F(CrashSendTest, EveryFieldArrivesThenNoCrashFieldsOnASecondSend)
{
    reporter->setReporterName("Ada Lovelace");
    reporter->setReporterEmailAddress("ada@example.com");
    reporter->reportSummaryTextView()->setPlainText("Opened C:\\clips\\a.mov, then it quit");
    reporter->sendReport(reporter->sendButton());
    EXPECT_EQ(progressText(), "Sending report");
    ASSERT_TRUE(vkWaitUntil([&] { return bool(reporter->closeTimer()); }, 15000)) << progressText();
    EXPECT_EQ(progressText(), "Report sent, Thank you for your feedback!");
    ASSERT_EQ(server->reports().size(), 1);
    const VKStoredReport form = server->report(0);
    EXPECT_TRUE(server->log().contains(" 200 /bugreports/sendbugreport.php stored "))
        << server->log();

    // In the form's key order. The sent list is shared by every application; the defaults
    // file is the one gathered just after the contact data was saved.
    QStringList parts = {
        "field APPLICATION_NAME: ReporterHost",
        "field APPLICATION_VERSION: 2.5.1",
        "field CRASH_REPORT: Process: ReporterHost\nThread 0 crashed\n",
        "file CRASH_REPORTS_ATTACHMENT: CrashReports.zip",
        "archive CRASH_REPORTS_ATTACHMENT: ReporterHost_2026-01-02-101010_host.crash=" + kNewReport,
        "field CRASH_REPORTS_COUNT_ALL: 2",
        "field CRASH_REPORTS_COUNT_ATTACHED: 1",
        "field CRASH_REPORTS_COUNT_SENT: 2",
        "field DESCRIPTION: Opened C:/clips/a.mov, then it quit",
        "field EMAIL: ada@example.com",
        "field NAME: Ada Lovelace",
        "file PREFERENCES_ATTACHMENT: Preferences.zip",
        "archive PREFERENCES_ATTACHMENT: com.example.ReporterHost.json",
        "file RUN_LOGS_ATTACHMENT: RunLogs.zip",
        "archive RUN_LOGS_ATTACHMENT: ReporterHost_2026-01-02-100000_1.vqnLog=run one\n; "
        "ReporterHost_2026-01-02-110000_2.vqnLog=run two\n",
        "field RUN_LOGS_COUNT_ALL: 2",
        "field RUN_LOGS_COUNT_ATTACHED: 2",
        "field RUN_LOGS_COUNT_SENT: 0",
        "file SYSTEM_PROFILE_ATTACHMENT: SystemProfile.zip",
        "archive SYSTEM_PROFILE_ATTACHMENT: system_profile.spx=<list/>",
        "field USER_IDENTIFIER: " + VKUsageLogger::sharedUsageLogger().userIdentifier()};
    if (const QString version = VKCrashReporter::systemVersion(); !version.isNull())
        parts.insert(parts.size() - 1, "field SYSTEM_VERSION: " + version);
    EXPECT_EQ(partsOf(form, {"PREFERENCES_ATTACHMENT"}), parts);
    EXPECT_TRUE(form.archives["PREFERENCES_ATTACHMENT"].first().contains("\"Ada Lovelace\""));

    EXPECT_EQ(env.usageEvents, QStringList({"termination.crash.send.success"}));
    EXPECT_TRUE(env.defaults()->stringArrayForKey(kVKSentCrashLogFilePaths).contains(newReport));

    // The window goes 1.75 s later; the timer is fired here rather than waited out.
    auto timer = reporter->closeTimer();
    EXPECT_DOUBLE_EQ(timer->timeInterval(), 1.75);
    EXPECT_TRUE(reporter->reportWindow()->isVisible());
    timer->fire();
    EXPECT_FALSE(reporter->reportWindow()->isVisible());

    // The same reporter again: no crash fields, only the run log that is new since.
    vkWriteFile(logs + "ReporterHost_2026-01-03-110000_3.vqnLog", "three\n");
    const auto second = send(reporter);
    ASSERT_TRUE(second);
    EXPECT_EQ(
        partsOf(*second).filter(QRegularExpression("CRASH_REPORT|RUN_LOGS")),
        QStringList({"field CRASH_REPORTS_COUNT_ALL: 0", "field CRASH_REPORTS_COUNT_ATTACHED: 0",
                     "field CRASH_REPORTS_COUNT_SENT: 0", "file RUN_LOGS_ATTACHMENT: RunLogs.zip",
                     "archive RUN_LOGS_ATTACHMENT: ReporterHost_2026-01-03-110000_3.vqnLog=three\n",
                     "field RUN_LOGS_COUNT_ALL: 3", "field RUN_LOGS_COUNT_ATTACHED: 1",
                     "field RUN_LOGS_COUNT_SENT: 2"}));
}

TEST_F(CrashSendTest, RefusedConnectionTakesTheFailurePathThenTryAgain)
{
    VKReporter::setReportServerBaseURL(QStringLiteral("http://127.0.0.1:%1").arg(refusedPort()));
    VKLogCapture capture;
    EXPECT_FALSE(send(reporter));
    EXPECT_EQ(progressText(),
              "Sending failed, please check your internet connection and try again!");
    EXPECT_EQ(reporter->sendButton()->text(), "Try again");
    EXPECT_NE(reporter->sendProgressIndicator()->maximum(), 0) << "the indicator stopped";
    EXPECT_EQ(env.usageEvents, QStringList({"termination.crash.send.failed"}));
    EXPECT_EQ(capture.messages().filter("Could not establish connection because of error ").size(),
              1)
        << capture.messages().join('\n');
    EXPECT_TRUE(reporter->crashReportReaders().isEmpty());
    EXPECT_FALSE(env.defaults()->stringArrayForKey(kVKSentCrashLogFilePaths).contains(newReport))
        << "nothing is marked sent after a failure";

    // Trying again reaches the server.
    VKReporter::setReportServerBaseURL(server->baseURL());
    ASSERT_TRUE(send(reporter));
    EXPECT_EQ(progressText(), "Report sent, Thank you for your feedback!");
    EXPECT_EQ(env.usageEvents,
              QStringList({"termination.crash.send.failed", "termination.crash.send.success"}));
}

namespace {

// A host that watches a helper tool too and adds a field of its own.
class SuiteCrashReporter : public VKCrashReporter
{
public:
    QStringList applicationNames() const override { return {"ReporterHost", "HelperTool"}; }
    std::optional<QVariantMap> messageData() const override
    {
        return QVariantMap{{"NAME", QString("from the host")}, {"PROJECT", QString("Dailies")}};
    }
};

} // namespace

TEST_F(CrashSendTest, SubclassNamesAndExtraFields)
{
    const QString helperReport =
        vkWriteFile(reports + "HelperTool_2026-01-02-120000_host.crash", "helper crashed\n");
    auto suite = VKCrashReporter::create<SuiteCrashReporter>();
    ASSERT_TRUE(suite);
    EXPECT_EQ(suite->runLogReaders().size(), 2);
    EXPECT_EQ(suite->unsentCrashReportFilePaths(), QStringList({newReport, helperReport}))
        << "reader order, then each reader's own";
    suite->showReportWindow(nullptr);
    suite->setReporterName("typed name"); // showing the window restores the saved name
    const auto form = send(suite);
    ASSERT_TRUE(form);
    // The subclass's fields win; the shared sent list counts once per reader.
    EXPECT_EQ(partsOf(*form).filter(QRegularExpression("field (NAME|PROJECT|CRASH_REPORT\\b|"
                                                       "CRASH_REPORTS_COUNT_SENT)|archive CRASH")),
              QStringList({"field CRASH_REPORT: Process: ReporterHost\nThread 0 crashed\nhelper "
                           "crashed\n",
                           "archive CRASH_REPORTS_ATTACHMENT: HelperTool_2026-01-02-120000_host."
                           "crash=helper crashed\n; ReporterHost_2026-01-02-101010_host.crash=" +
                               kNewReport,
                           "field CRASH_REPORTS_COUNT_SENT: 4", "field NAME: from the host",
                           "field PROJECT: Dailies"}));
}

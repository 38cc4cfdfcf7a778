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
#include <QWidget>

#include <unistd.h>

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

TEST(VKCrashReporterWindow, MissingDescriptionAnswersNothing)
{
    ReporterEnvironment env;
    VKTempDir empty;
    VKInterfaceDescription::setSearchFolder(empty.path());
    VKLogCapture capture;
    EXPECT_EQ(VKCrashReporter::crashReporter(), nullptr);
    EXPECT_EQ(capture.messages(), QStringList({"Could not load nib named VKCrashReporter"}));
    empty.writeFile("VKCrashReporter.ui", "<ui version=\"4.0\"><widget class=\"QWidget\"/></ui>");
    capture.clear();
    EXPECT_EQ(VKCrashReporter::crashReporter(), nullptr) << "a description without the outlets";
    EXPECT_EQ(capture.messages(), QStringList({"Could not load nib named VKCrashReporter"}));
}

TEST(VKCrashReporterWindow, StackingForEachCombinationKeepsTheTopEdge)
{
    ReporterEnvironment env;
    auto reporter = VKCrashReporter::crashReporter();
    ASSERT_TRUE(reporter);
    // Lowest panel first, as viewSort orders them.
    EXPECT_EQ(names(reporter->allSubviews()),
              QStringList({"mButtonsView", "mReportDetailsView", "mStartupNoteView"}));
    const int buttons = reporter->allSubviews()[0]->height();
    const int details = reporter->reportDetailsView()->height();
    const int note = reporter->startupNoteView()->height();
    EXPECT_EQ(viewSort(reporter->allSubviews()[0], reporter->reportDetailsView(), nullptr), -1);
    EXPECT_EQ(viewSort(reporter->startupNoteView(), reporter->reportDetailsView(), nullptr), 1);
    EXPECT_EQ(viewSort(reporter->startupNoteView(), reporter->startupNoteView(), nullptr), 0);

    reporter->showReportWindow(nullptr);
    QWidget *window = reporter->reportWindow();
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
        {"note only", true, false, {"mButtonsView", "mStartupNoteView"}, buttons + note},
        {"both",
         true,
         true,
         {"mButtonsView", "mReportDetailsView", "mStartupNoteView"},
         buttons + details + note},
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
            EXPECT_TRUE(view->isVisible()) << c.name;
            EXPECT_EQ(view->geometry().bottom() + 1, bottom) << c.name << view->objectName();
            EXPECT_EQ(view->width(), window->width()) << c.name;
            bottom = view->y();
        }
        EXPECT_EQ(bottom, 0) << c.name << ": stacked without gaps";
        for (QWidget *view : reporter->allSubviews())
            EXPECT_EQ(view->isVisible(), reporter->visibleSubviews().contains(view)) << c.name;
    }
}

TEST(VKCrashReporterWindow, SetUpTitleNoteCheckBoxAndFields)
{
    ReporterEnvironment env;
    auto reporter = VKCrashReporter::crashReporter();
    ASSERT_TRUE(reporter);
    env.defaults()->setObject(QString("Ada"), "crashReporterName");
    env.defaults()->setObject(QString("ada@example.com"), "crashReporterEmail");
    for (bool show : {true, false, true}) {
        env.defaults()->setBool(show, kCRShowAtStartup);
        reporter->reportSummaryTextView()->setPlainText("left over");
        reporter->showReportWindow(nullptr);
        EXPECT_EQ(reporter->toggleShowAtStartupButton()->isChecked(), show);
        EXPECT_EQ(reporter->reportSummaryTextView()->toPlainText(), "");
    }
    EXPECT_EQ(reporter->reportWindow()->windowTitle(), "ReporterHost Bug Reporter");
    const QString note = reporter->startupNoteTextField()->text();
    EXPECT_TRUE(note.contains("ReporterHost quit unexpectedly")) << note;
    EXPECT_FALSE(note.contains("ApplicationName")) << note;
    EXPECT_EQ(reporter->reporterName(), "Ada");
    EXPECT_EQ(reporter->reporterEmailAddress(), "ada@example.com");
    EXPECT_EQ(reporter->reportWindow()->findChild<QLineEdit *>("mReporterNameField")->text(),
              "Ada");
    EXPECT_FALSE(reporter->sendProgressIndicator()->isVisible());
    EXPECT_FALSE(reporter->sendProgressTextField()->isVisible());
    EXPECT_TRUE(reporter->sendButton()->isEnabled());
    EXPECT_FALSE(reporter->applicationIconView()->pixmap().isNull());
    EXPECT_FALSE(reporter->showStartupNotice());
    EXPECT_TRUE(reporter->showDetails());

    // The check box writes the inverse of what is stored and shows it.
    env.defaults()->setBool(true, kCRShowAtStartup);
    reporter->toggleShowAtStartupButton()->click();
    EXPECT_FALSE(env.defaults()->boolForKey(kCRShowAtStartup));
    EXPECT_FALSE(reporter->toggleShowAtStartupButton()->isChecked());
    reporter->toggleShowCrashAtStartup(nullptr);
    EXPECT_TRUE(env.defaults()->boolForKey(kCRShowAtStartup));

    reporter->toggleReportDetails(nullptr);
    EXPECT_FALSE(reporter->showDetails());
    EXPECT_FALSE(reporter->reportDetailsView()->isVisible());
}

TEST(VKCrashReporterWindow, AutofillFromTheAccountAndEmail)
{
    ReporterEnvironment env;
    auto reporter = VKCrashReporter::crashReporter();
    ASSERT_TRUE(reporter);
    VKTempDir dir;
    const QByteArray savedEmail = qgetenv("EMAIL");
    struct Case
    {
        const char *name;
        QByteArray gecos;
        QByteArray email; // empty: unset
        QString expectedName;
        QString expectedEmail;
    } cases[] = {
        {"full name and address", "Ada Lovelace,,,", "ada@example.com", "Ada Lovelace",
         "ada@example.com"},
        {"no full name: one blank", "", "", " ", ""},
        {"first name only keeps the blank", "Cher", "c@example.com", "Cher ", "c@example.com"},
    };
    for (const Case &c : cases) {
        const QString passwd = dir.writeFile(
            "passwd", "other:x:99999:99999:Somebody Else:/:/bin/sh\nme:x:" +
                          QByteArray::number(getuid()) + ":0:" + c.gecos + ":/home/me:/bin/sh\n");
        VKUserCard::setPasswordFileForTesting(passwd);
        if (c.email.isEmpty())
            qunsetenv("EMAIL");
        else
            qputenv("EMAIL", c.email);
        reporter->autofillUserInfo(nullptr);
        EXPECT_EQ(reporter->reporterName(), c.expectedName) << c.name;
        EXPECT_EQ(reporter->reporterEmailAddress(), c.expectedEmail) << c.name;
        EXPECT_FALSE(reporter->reporterEmailAddress().isNull()) << c.name;
    }
    if (savedEmail.isEmpty())
        qunsetenv("EMAIL");
    else
        qputenv("EMAIL", savedEmail);
    EXPECT_TRUE(env.defaults()->stringForKey("crashReporterName").isNull())
        << "not saved before a send";
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
        if (c.windowShown) {
            EXPECT_TRUE(reporter->startupNoteView()->isVisible()) << c.name;
        }
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
// run logs, the defaults file; a form server; a reporter pointed at it.
class CrashSendTest : public ::testing::Test
{
protected:
    ReporterEnvironment env;
    FormServer server;
    std::shared_ptr<VKCrashReporter> reporter;
    QString reports, logs, sentReport, newReport, runLog1, runLog2;

    void SetUp() override
    {
        reports = env.library() + "/Logs/DiagnosticReports/";
        logs = env.library() + "/Logs/Vessan/";
        sentReport =
            env.write(reports + "ReporterHost_2026-01-01-101010_host.crash", "old crash\n");
        newReport = env.write(reports + "ReporterHost_2026-01-02-101010_host.crash",
                              "Process: ReporterHost\nBinary Images:\n 0x1 libx.so\n\n"
                              "Thread 0 crashed\n");
        env.write(reports + "Other_2026-01-02-101010_host.crash", "not ours\n");
        runLog1 = env.write(logs + "ReporterHost_2026-01-02-100000_1.vqnLog", "run one\n");
        runLog2 = env.write(logs + "ReporterHost_2026-01-02-110000_2.vqnLog", "run two\n");
        env.defaults()->setObject(QStringList({sentReport, "/elsewhere/Other.crash"}),
                                  kVKSentCrashLogFilePaths);
        env.defaults()->synchronize();
        VKReporter::setReportServerBaseURL(server.baseURL());
        reporter = VKCrashReporter::crashReporter();
        ASSERT_TRUE(reporter);
        reporter->showReportWindow(nullptr);
    }
    QString progressText() const { return reporter->sendProgressTextField()->text(); }
    bool waitForEnd(const char *word) const
    {
        return vkWaitUntil([&] { return progressText().startsWith(QLatin1String(word)); }, 15000);
    }
};

} // namespace

TEST_F(CrashSendTest, EveryFieldArrivesThenNoCrashFieldsOnASecondSend)
{
    reporter->setReporterName("Ada Lovelace");
    reporter->setReporterEmailAddress("ada@example.com");
    reporter->reportSummaryTextView()->setPlainText("Opened C:\\clips\\a.mov, then it quit");
    reporter->sendReport(reporter->sendButton());
    EXPECT_FALSE(reporter->sendButton()->isEnabled());
    EXPECT_EQ(progressText(), "Sending report");
    ASSERT_TRUE(waitForEnd("Report sent")) << progressText();
    EXPECT_EQ(progressText(), "Report sent, Thank you for your feedback!");
    ASSERT_EQ(server.forms.size(), 1);
    EXPECT_EQ(server.paths[0], "/bugreports/sendbugreport.php");
    const auto form = server.forms[0];

    const QStringList expectedFields = {"APPLICATION_NAME",
                                        "APPLICATION_VERSION",
                                        "CRASH_REPORT",
                                        "CRASH_REPORTS_ATTACHMENT",
                                        "CRASH_REPORTS_COUNT_ALL",
                                        "CRASH_REPORTS_COUNT_ATTACHED",
                                        "CRASH_REPORTS_COUNT_SENT",
                                        "DESCRIPTION",
                                        "EMAIL",
                                        "NAME",
                                        "PREFERENCES_ATTACHMENT",
                                        "RUN_LOGS_ATTACHMENT",
                                        "RUN_LOGS_COUNT_ALL",
                                        "RUN_LOGS_COUNT_ATTACHED",
                                        "RUN_LOGS_COUNT_SENT",
                                        "SYSTEM_PROFILE_ATTACHMENT",
                                        "USER_IDENTIFIER"};
    QStringList fields = form.keys();
    const QString systemVersion = VKCrashReporter::systemVersion();
    EXPECT_EQ(fields.contains("SYSTEM_VERSION"), !systemVersion.isNull());
    EXPECT_EQ(QString::fromUtf8(form.value("SYSTEM_VERSION").data), systemVersion);
    fields.removeAll("SYSTEM_VERSION");
    EXPECT_EQ(fields, expectedFields);

    struct Text
    {
        const char *field;
        QByteArray value;
    } texts[] = {
        {"NAME", "Ada Lovelace"},
        {"EMAIL", "ada@example.com"},
        {"CRASH_REPORT", "Process: ReporterHost\nThread 0 crashed\n"},
        {"USER_IDENTIFIER", VKUsageLogger::sharedUsageLogger().userIdentifier().toUtf8()},
        {"APPLICATION_NAME", "ReporterHost"},
        {"APPLICATION_VERSION", "2.5.1"},
        {"DESCRIPTION", "Opened C:/clips/a.mov, then it quit"},
        {"CRASH_REPORTS_COUNT_ALL", "2"},
        {"CRASH_REPORTS_COUNT_SENT", "2"},
        {"CRASH_REPORTS_COUNT_ATTACHED", "1"},
        {"RUN_LOGS_COUNT_ALL", "2"},
        {"RUN_LOGS_COUNT_SENT", "0"},
        {"RUN_LOGS_COUNT_ATTACHED", "2"},
    };
    for (const Text &t : texts) {
        EXPECT_EQ(form.value(t.field).data, t.value) << t.field;
        EXPECT_TRUE(form.value(t.field).fileName.isNull()) << t.field;
    }
    struct Archive
    {
        const char *field;
        QString fileName;
        QMap<QString, QByteArray> entries;
    } archives[] = {
        {"CRASH_REPORTS_ATTACHMENT",
         "CrashReports.zip",
         {{QFileInfo(newReport).fileName(), readAll(newReport)}}},
        {"RUN_LOGS_ATTACHMENT",
         "RunLogs.zip",
         {{QFileInfo(runLog1).fileName(), "run one\n"},
          {QFileInfo(runLog2).fileName(), "run two\n"}}},
        {"SYSTEM_PROFILE_ATTACHMENT", "SystemProfile.zip", {{"system_profile.spx", "<list/>"}}},
    };
    for (const Archive &a : archives) {
        EXPECT_EQ(form.value(a.field).fileName, a.fileName) << a.field;
        EXPECT_EQ(unzip(form.value(a.field).data), a.entries) << a.field;
        EXPECT_TRUE(QFile::exists(VKSearchPaths::temporaryDirectory() + a.fileName))
            << a.field << ": archives stay";
    }
    // The defaults file as it was when gathered: the contact data had just been saved.
    const auto preferences = unzip(form.value("PREFERENCES_ATTACHMENT").data);
    EXPECT_EQ(form.value("PREFERENCES_ATTACHMENT").fileName, "Preferences.zip");
    EXPECT_EQ(preferences.keys(), QStringList({"com.example.ReporterHost.json"}));
    EXPECT_TRUE(preferences.value("com.example.ReporterHost.json").contains("\"Ada Lovelace\""));
    EXPECT_EQ(env.usageEvents, QStringList({"termination.crash.send.success"}));
    EXPECT_EQ(env.defaults()->stringForKey("crashReporterName"), "Ada Lovelace");
    EXPECT_TRUE(reporter->crashReportReaders().isEmpty());
    EXPECT_EQ(reporter->runLogReaders().size(), 1);
    EXPECT_TRUE(env.defaults()->stringArrayForKey(kVKSentCrashLogFilePaths).contains(newReport));
    EXPECT_EQ(env.defaults()->stringArrayForKey("SentRunLogFilePaths").size(), 2);

    // The window goes 1.75 s later; the timer is fired here rather than waited out.
    auto timer = reporter->closeTimer();
    ASSERT_TRUE(timer);
    EXPECT_DOUBLE_EQ(timer->timeInterval(), 1.75);
    EXPECT_TRUE(reporter->reportWindow()->isVisible());
    timer->fire();
    EXPECT_FALSE(reporter->reportWindow()->isVisible());

    // The same reporter again: no crash fields, new run logs still go.
    const QString runLog3 = env.write(logs + "ReporterHost_2026-01-03-110000_3.vqnLog", "three\n");
    reporter->sendReport(nullptr);
    ASSERT_TRUE(vkWaitUntil([&] { return server.forms.size() == 2; }, 15000));
    const auto second = server.forms[1];
    EXPECT_FALSE(second.contains("CRASH_REPORT"));
    EXPECT_FALSE(second.contains("CRASH_REPORTS_ATTACHMENT"));
    EXPECT_EQ(second.value("CRASH_REPORTS_COUNT_ALL").data, "0");
    EXPECT_EQ(second.value("CRASH_REPORTS_COUNT_SENT").data, "0");
    EXPECT_EQ(second.value("CRASH_REPORTS_COUNT_ATTACHED").data, "0");
    EXPECT_EQ(second.value("RUN_LOGS_COUNT_ATTACHED").data, "1");
    EXPECT_EQ(unzip(second.value("RUN_LOGS_ATTACHMENT").data).keys(),
              QStringList({QFileInfo(runLog3).fileName()}));
}

TEST_F(CrashSendTest, RefusedConnectionTakesTheFailurePath)
{
    VKReporter::setReportServerBaseURL(QStringLiteral("http://127.0.0.1:%1").arg(refusedPort()));
    VKLogCapture capture;
    reporter->sendReport(reporter->sendButton());
    ASSERT_TRUE(waitForEnd("Sending failed")) << progressText();
    EXPECT_EQ(progressText(),
              "Sending failed, please check your internet connection and try again!");
    EXPECT_EQ(reporter->sendButton()->text(), "Try again");
    EXPECT_TRUE(reporter->sendButton()->isEnabled());
    EXPECT_NE(reporter->sendProgressIndicator()->maximum(), 0) << "the indicator stopped";
    EXPECT_EQ(env.usageEvents, QStringList({"termination.crash.send.failed"}));
    const QStringList messages = capture.messages();
    ASSERT_FALSE(messages.isEmpty());
    EXPECT_TRUE(messages.last().startsWith("Could not establish connection because of error "))
        << messages.last();
    EXPECT_TRUE(reporter->crashReportReaders().isEmpty());
    EXPECT_FALSE(reporter->closeTimer());
    EXPECT_FALSE(env.defaults()->stringArrayForKey(kVKSentCrashLogFilePaths).contains(newReport))
        << "nothing is marked sent after a failure";

    // Trying again reaches the server without the crash reports, with everything else.
    VKReporter::setReportServerBaseURL(server.baseURL());
    reporter->sendReport(reporter->sendButton());
    ASSERT_TRUE(waitForEnd("Report sent")) << progressText();
    ASSERT_EQ(server.forms.size(), 1);
    const auto form = server.forms[0];
    EXPECT_FALSE(form.contains("CRASH_REPORT"));
    EXPECT_FALSE(form.contains("CRASH_REPORTS_ATTACHMENT"));
    EXPECT_EQ(form.value("CRASH_REPORTS_COUNT_ATTACHED").data, "0");
    for (const char *field :
         {"RUN_LOGS_ATTACHMENT", "SYSTEM_PROFILE_ATTACHMENT", "PREFERENCES_ATTACHMENT"})
        EXPECT_TRUE(form.contains(field)) << field;
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
        env.write(reports + "HelperTool_2026-01-02-120000_host.crash", "helper crashed\n");
    auto suite = VKCrashReporter::create<SuiteCrashReporter>();
    ASSERT_TRUE(suite);
    EXPECT_EQ(suite->crashReportReaders().size(), 2);
    EXPECT_EQ(suite->runLogReaders().size(), 2);
    EXPECT_EQ(suite->unsentCrashReportFilePaths(), QStringList({newReport, helperReport}))
        << "reader order, then each reader's own";
    suite->setReporterName("typed name");
    suite->showReportWindow(nullptr);
    suite->sendReport(nullptr);
    ASSERT_TRUE(vkWaitUntil([&] { return server.forms.size() == 1; }, 15000));
    const auto form = server.forms[0];
    EXPECT_EQ(form.value("NAME").data, "from the host") << "the subclass's fields win";
    EXPECT_EQ(form.value("PROJECT").data, "Dailies");
    EXPECT_EQ(form.value("CRASH_REPORT").data,
              "Process: ReporterHost\nThread 0 crashed\nhelper crashed\n");
    EXPECT_EQ(form.value("CRASH_REPORTS_COUNT_SENT").data, "4")
        << "the shared list, once per reader";
    EXPECT_EQ(unzip(form.value("CRASH_REPORTS_ATTACHMENT").data).size(), 2);
    ASSERT_TRUE(
        vkWaitUntil([&] { return suite->sendButton()->isEnabled() || suite->closeTimer(); }));
}

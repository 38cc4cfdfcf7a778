#include "Diagnostics/VKBugReporter.h"
#include "Foundation/VKMainLoop.h"

#include "ReporterTestSupport.h"

#include <QDesktopServices>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QUrl>

namespace {

class MailCatcher : public QObject
{
    Q_OBJECT
public:
    QList<QUrl> urls;
public Q_SLOTS:
    void open(const QUrl &url) { urls << url; }
};

class BugReporterTest : public ::testing::Test
{
protected:
    ReporterEnvironment env;
    VKBugReporter reporter;

    void SetUp() override
    {
        reporter.showReportWindow(nullptr);
        ASSERT_TRUE(reporter.reportWindow());
    }
    QString progressText() const { return reporter.sendProgressTextField()->text(); }
};

} // namespace

TEST_F(BugReporterTest, ShowingClearsTheFormAndTypesFillTheDescription)
{
    EXPECT_TRUE(reporter.reportWindow()->isVisible());
    EXPECT_EQ(reporter.reportType(), "Bug Report");
    EXPECT_FALSE(reporter.defaultBugReport().isEmpty());
    EXPECT_EQ(reporter.reportDescriptionTextView()->toPlainText(), reporter.defaultBugReport());
    struct Case
    {
        const char *name;
        QString type;
        QString expected; // null: the text typed before stays
    } cases[] = {
        {"feature request template", "Feature Request", reporter.defaultFeatureRequest()},
        {"another type leaves it alone", "Question", QString()},
        {"type names are exact", "bug report", QString()},
        {"bug report template", "Bug Report", reporter.defaultBugReport()},
    };
    for (const Case &c : cases) {
        reporter.reportDescriptionTextView()->setPlainText("typed by the user");
        reporter.setReportType(c.type);
        EXPECT_EQ(reporter.reportDescriptionTextView()->toPlainText(),
                  c.expected.isNull() ? QString("typed by the user") : c.expected)
            << c.name;
    }
    reporter.setReporterName("Ada");
    reporter.setReportTitle("t");
    reporter.setReportAttachment("/tmp/x");
    reporter.showReportWindow(nullptr);
    EXPECT_TRUE(reporter.reporterName().isNull() && reporter.reportTitle().isNull() &&
                reporter.reportAttachment().isNull());
}

TEST_F(BugReporterTest, NameAndAttachmentFields)
{
    VKTempDir dir;
    const QString file = dir.writeFile("clip notes.txt", "notes\n");
    struct Case
    {
        const char *name;
        QString reporterName;
        QString attachment;
        QString expectedName;
        QString expectedFile; // empty: no ATTACHMENT field
    } cases[] = {
        {"nothing entered: (null)", QString(), QString(), "(null)", ""},
        {"an existing file", "Ada", file, "Ada", file},
        {"a folder is not sent", "Ada", dir.path(), "Ada", ""},
        {"a missing file is not sent", "", dir.filePath("gone.txt"), "", ""},
    };
    for (const Case &c : cases) {
        reporter.setReporterName(c.reporterName);
        reporter.setReportAttachment(c.attachment);
        const QVariantMap form = reporter.reportFields();
        EXPECT_EQ(form.value("NAME").toString(), c.expectedName) << c.name;
        EXPECT_EQ(form.value("ATTACHMENT").toUrl().toLocalFile(), c.expectedFile) << c.name;
    }
}

// One refused send, then one to vkreportd.
TEST_F(BugReporterTest, RefusedThenTryAgainAndSent)
{
    if (QStringLiteral(VKREPORTD_PATH).isEmpty())
        GTEST_SKIP() << "vkreportd is not built (it needs Qt HTTP Server)";
    VKReportServerProcess server(env.tree.makeDir("received"));
    ASSERT_NE(server.port(), 0);
    VKReporter::setReportServerBaseURL(QStringLiteral("http://127.0.0.1:%1").arg(refusedPort()));
    VKLogCapture capture;
    reporter.sendReport(nullptr);
    EXPECT_EQ(progressText(), "Sending data...");
    EXPECT_FALSE(reporter.sendButton()->isEnabled() ||
                 reporter.openInMailClientButton()->isEnabled());
    ASSERT_TRUE(vkWaitUntil([&] { return progressText().startsWith("Sending failed"); }, 15000));
    EXPECT_EQ(progressText(),
              "Sending failed, please check your\ninternet connection and try again!");
    EXPECT_EQ(reporter.sendButton()->text(), "Try again");
    EXPECT_TRUE(reporter.sendButton()->isEnabled() &&
                reporter.openInMailClientButton()->isEnabled());
    EXPECT_EQ(capture.messages().filter("Could not establish connection because of error ").size(),
              1);
    EXPECT_FALSE(reporter.closeTimer());

    VKReporter::setReportServerBaseURL(server.baseURL());
    VKTempDir dir;
    reporter.setReportAttachment(dir.writeFile("clip notes.txt", "notes\\n"));
    reporter.reportDescriptionTextView()->setPlainText("Please add C:\\ paths");
    reporter.sendReport(reporter.sendButton());
    ASSERT_TRUE(vkWaitUntil([&] { return bool(reporter.closeTimer()); }, 15000));
    EXPECT_EQ(progressText(), "Report sent,\nThank you for your feedback!");
    ASSERT_EQ(server.reports().size(), 1);
    const VKStoredReport form = server.report(0);
    EXPECT_EQ(partsOf(form),
              QStringList({"file ATTACHMENT: clip notes.txt",
                           "field DESCRIPTION: Please add C:/ paths", "field EMAIL: (null)",
                           "field NAME: (null)", "field TITLE: ReporterHost Bug Report",
                           "field TYPE: Bug Report", "field VERSION: 2.5.1"}));
    EXPECT_EQ(form.files.value("ATTACHMENT"), "notes\\n") << "bytes untouched";
    EXPECT_EQ(server.log().count(" 200 /orvanta/sendbugreport.php stored "), 1) << server.log();
    auto timer = reporter.closeTimer();
    EXPECT_DOUBLE_EQ(timer->timeInterval(), 1.75);
    timer->fire();
    EXPECT_FALSE(reporter.reportWindow()->isVisible());
}

TEST_F(BugReporterTest, MailTextAndLink)
{
    MailCatcher catcher;
    QDesktopServices::setUrlHandler("mailto", &catcher, "open");
    VKBugReporter::setSupportAddress("help@example.com");
    reporter.setReporterName("Ada & Co");
    reporter.setReporterEmailAddress("ada@example.com");
    reporter.setReportTitle("Export & crash");
    reporter.reportDescriptionTextView()->setPlainText("Steps: A & B");
    const QString hyphens(75, QLatin1Char('-'));
    const QString expected =
        hyphens + "\n" + "This Email was generated by the Orvanta Bug Reporter.\n" + hyphens +
        "\n\n" + "Reporter:\tAda & Co, ada@example.com\n\n" + "Type:\t\tBug Report\n\n" +
        "Title:\t\tExport & crash\n\n" + "Version:\t\t2.5.1\n\n" + hyphens + "\n" +
        "Description:\nSteps: A & B" + hyphens + "\n\n";
    EXPECT_EQ(reporter.bugReport(), expected);

    reporter.showReportInMail(reporter.openInMailClientButton());
    EXPECT_FALSE(reporter.reportWindow()->isVisible());
    ASSERT_EQ(catcher.urls.size(), 1);
    // Every "&" of this text stands past character 100; the escaping is VKReporter's.
    EXPECT_EQ(QUrl::fromPercentEncoding(catcher.urls[0].toEncoded()),
              "mailto:help@example.com?subject=ReporterHost Bug Report&body=" +
                  QString(expected).replace('&', '+'));
    QDesktopServices::unsetUrlHandler("mailto");
    VKBugReporter::setSupportAddress(QString());
}

TEST(VKReporterWindows, MissingDescriptionLoadsNothing)
{
    ReporterEnvironment env;
    VKTempDir empty;
    VKInterfaceDescription::setSearchFolder(empty.path());
    VKLogCapture capture;
    VKBugReporter reporter;
    reporter.showReportWindow(nullptr);
    EXPECT_EQ(reporter.reportWindow(), nullptr);
    EXPECT_EQ(VKCrashReporter::crashReporter(), nullptr);
    empty.writeFile("VKCrashReporter.ui", "<ui version=\"4.0\"><widget class=\"QWidget\"/></ui>");
    EXPECT_EQ(VKCrashReporter::crashReporter(), nullptr) << "a description without the outlets";
    EXPECT_EQ(capture.messages(), QStringList({"Could not load nib named VKBugReporter",
                                               "Could not load nib named VKCrashReporter",
                                               "Could not load nib named VKCrashReporter"}));
}

#include "VKBugReporterTests.moc"

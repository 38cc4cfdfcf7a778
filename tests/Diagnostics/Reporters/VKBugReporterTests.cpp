#include "Diagnostics/VKBugReporter.h"
#include "Foundation/VKMainLoop.h"

#include "ReporterTestSupport.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileDialog>
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

const QString kHyphens(75, QLatin1Char('-'));

class BugReporterTest : public ::testing::Test
{
protected:
    ReporterEnvironment env;
    VKReportServerProcess server{env.tree.makeDir("received")};
    VKBugReporter reporter;

    void SetUp() override
    {
        if (QStringLiteral(VKREPORTD_PATH).isEmpty())
            GTEST_SKIP() << "vkreportd is not built (it needs Qt HTTP Server)";
        ASSERT_NE(server.port(), 0);
        VKReporter::setReportServerBaseURL(server.baseURL());
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
        EXPECT_EQ(reporter.reportType(), c.type) << c.name;
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
    EXPECT_TRUE(reporter.sendButton()->isEnabled());
    EXPECT_FALSE(reporter.sendProgressTextField()->isVisible());
}

TEST_F(BugReporterTest, FormFieldsWithAndWithoutAttachment)
{
    VKTempDir dir;
    const QString file = dir.writeFile("clip notes.txt", "notes\\n");
    const QString folder = dir.makeDir("a folder");
    struct Case
    {
        const char *name;
        QString reporterName;
        QString attachment;
        QString expectedName;
        QString expectedFile; // null: no ATTACHMENT part
    } cases[] = {
        {"nothing entered: (null)", QString(), QString(), "(null)", QString()},
        {"an existing file", "Ada", file, "Ada", "clip notes.txt"},
        {"a folder is not sent", "Ada", folder, "Ada", QString()},
        {"a missing file is not sent", "", dir.filePath("gone.txt"), "", QString()},
    };
    for (const Case &c : cases) {
        reporter.showReportWindow(nullptr);
        reporter.setReporterName(c.reporterName);
        reporter.setReportAttachment(c.attachment);
        reporter.setReportTitle("Crash on export");
        reporter.setReportType("Feature Request");
        reporter.reportDescriptionTextView()->setPlainText("Please add C:\\ paths");
        const qsizetype before = server.reports().size();
        reporter.sendReport(reporter.sendButton());
        EXPECT_EQ(progressText(), "Sending data...") << c.name;
        EXPECT_FALSE(reporter.sendButton()->isEnabled()) << c.name;
        EXPECT_FALSE(reporter.openInMailClientButton()->isEnabled()) << c.name;
        ASSERT_TRUE(vkWaitUntil([&] { return bool(reporter.closeTimer()); }, 15000)) << c.name;
        EXPECT_EQ(progressText(), "Report sent,\nThank you for your feedback!") << c.name;
        ASSERT_EQ(server.reports().size(), before + 1) << c.name;
        const VKStoredReport form = server.report(before);
        // The user's title goes by mail only.
        QStringList parts = {"field DESCRIPTION: Please add C:/ paths",
                             "field EMAIL: (null)",
                             "field NAME: " + c.expectedName,
                             "field TITLE: ReporterHost Feature Request",
                             "field TYPE: Feature Request",
                             "field VERSION: 2.5.1"};
        if (!c.expectedFile.isNull())
            parts.prepend("file ATTACHMENT: " + c.expectedFile);
        EXPECT_EQ(partsOf(form), parts) << c.name;
        EXPECT_EQ(form.files.value("ATTACHMENT"), c.expectedFile.isNull() ? "" : "notes\\n")
            << c.name << ": bytes untouched";
        auto timer = reporter.closeTimer();
        EXPECT_DOUBLE_EQ(timer->timeInterval(), 1.75);
        timer->fire();
        EXPECT_FALSE(reporter.reportWindow()->isVisible()) << c.name;
    }
    EXPECT_EQ(server.log().count(" 200 /orvanta/sendbugreport.php stored "), 4) << server.log();
}

TEST_F(BugReporterTest, RefusedConnectionLetsTheUserTryAgain)
{
    VKReporter::setReportServerBaseURL(QStringLiteral("http://127.0.0.1:%1").arg(refusedPort()));
    VKLogCapture capture;
    reporter.sendReport(nullptr);
    ASSERT_TRUE(vkWaitUntil([&] { return progressText().startsWith("Sending failed"); }, 15000));
    EXPECT_EQ(progressText(),
              "Sending failed, please check your\ninternet connection and try again!");
    EXPECT_EQ(reporter.sendButton()->text(), "Try again");
    EXPECT_TRUE(reporter.sendButton()->isEnabled());
    EXPECT_TRUE(reporter.openInMailClientButton()->isEnabled());
    ASSERT_EQ(capture.messages().size(), 1);
    EXPECT_TRUE(
        capture.messages()[0].startsWith("Could not establish connection because of error "));
    EXPECT_FALSE(reporter.closeTimer());
}

TEST_F(BugReporterTest, MailTextAndLink)
{
    MailCatcher catcher;
    QDesktopServices::setUrlHandler("mailto", &catcher, "open");
    VKBugReporter::setSupportAddress("help@example.com");
    reporter.setReporterName("Ada & Co");
    reporter.setReporterEmailAddress("ada@example.com");
    reporter.setReportType("Bug Report");
    reporter.setReportTitle("Export & crash");
    reporter.reportDescriptionTextView()->setPlainText("Steps: A & B");
    const QString expected =
        kHyphens + "\n" + "This Email was generated by the Orvanta Bug Reporter.\n" + kHyphens +
        "\n\n" + "Reporter:\tAda & Co, ada@example.com\n\n" + "Type:\t\tBug Report\n\n" +
        "Title:\t\tExport & crash\n\n" + "Version:\t\t2.5.1\n\n" + kHyphens + "\n" +
        "Description:\nSteps: A & B" + kHyphens + "\n\n";
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

TEST_F(BugReporterTest, ChooserStartsOnTheDesktopAndTakesTheFirstFile)
{
    const QString desktop = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    VKTempDir dir;
    const QString file = dir.writeFile("take.txt", "x");
    reporter.chooseAttachment(nullptr);
    QFileDialog *dialog = nullptr;
    ASSERT_TRUE(vkWaitUntil([&] {
        dialog = reporter.reportWindow()->findChild<QFileDialog *>();
        return dialog && dialog->isVisible();
    }));
    if (QFileInfo(desktop).isDir()) {
        EXPECT_EQ(dialog->directory().absolutePath(), QDir(desktop).absolutePath());
    }
    EXPECT_EQ(dialog->fileMode(), QFileDialog::ExistingFile);
    EXPECT_TRUE(dialog->testOption(QFileDialog::ReadOnly));
    dialog->setDirectory(dir.path());
    dialog->selectFile(file);
    static_cast<QDialog *>(dialog)->accept();
    EXPECT_EQ(reporter.reportAttachment(), file);
}

TEST(VKBugReporterWindow, MissingDescriptionShowsNothing)
{
    ReporterEnvironment env;
    VKTempDir empty;
    VKInterfaceDescription::setSearchFolder(empty.path());
    VKLogCapture capture;
    VKBugReporter reporter;
    reporter.showReportWindow(nullptr);
    EXPECT_EQ(reporter.reportWindow(), nullptr);
    EXPECT_EQ(capture.messages(), QStringList({"Could not load nib named VKBugReporter"}));
}

#include "VKBugReporterTests.moc"

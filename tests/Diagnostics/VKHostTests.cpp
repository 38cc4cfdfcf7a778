#include "Diagnostics/VKHost.h"
#include "Diagnostics/VKSystemInfo.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKUserDefaults.h"

#include "VKTestSupport.h"

#include <QDir>
#include <QFile>
#include <QIcon>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

const char kAnchor = 0;

// Test components declared like frameworks; the one without identifier has an empty version.
std::shared_ptr<VKBundle> framework(const char *identifier, const char *version, const char *json)
{
    VKBundle::registerFramework(identifier, version, &kAnchor, json);
    for (const auto &bundle : VKBundle::allFrameworks())
        if (bundle->bundleIdentifier() == QString::fromUtf8(identifier))
            return bundle;
    return nullptr;
}

// A copy of the test plug-in under another file name, with an icon in its resource folder.
std::shared_ptr<VKBundle> plugInCopy(const VKTempDir &dir, const QString &fileName)
{
    const QString path = dir.filePath(fileName + ".plugin");
    QFile::copy(vkTestBinaryPath("HostPlugIn.plugin"), path);
    QImage image(16, 16, QImage::Format_ARGB32);
    image.fill(Qt::red);
    QDir().mkpath(dir.filePath(fileName + ".resources"));
    image.save(dir.filePath(fileName + ".resources/HostIcon.png"));
    return VKBundle::bundleWithPath(path);
}

class DefaultsFolder
{
public:
    DefaultsFolder() { VKUserDefaults::setStandardUserDefaultsFolder(m_dir.path()); }
    ~DefaultsFolder() { VKUserDefaults::setStandardUserDefaultsFolder(QString()); }
    QString path() const { return m_dir.path(); }

private:
    VKTempDir m_dir;
};

} // namespace

TEST(VKHost, NamesAndVersionsFromTheDictionary)
{
    VKTempDir dir;
    VKLogCapture log;
    const auto unnamed = framework("", "", "");
    ASSERT_TRUE(unnamed);
    const QString folderName = QFileInfo(unnamed->bundlePath()).fileName();
    const QString noVersion = "SUNoVersionException|This host (" + unnamed->bundlePath() +
                              ") has no CFBundleVersion! This attribute is required.";
    struct Case
    {
        const char *name;
        std::shared_ptr<VKBundle> bundle;
        QString expectedName, expectedVersion, expectedDisplayVersion;
    } cases[] = {
        {"display name first",
         framework("com.vessan.tests.HostShown", "7",
                   R"({"CFBundleDisplayName": "Shown", "CFBundleName": "Plain"})"),
         "Shown", "7", "7"},
        {"then the bundle name",
         framework("com.vessan.tests.HostPlain", "8.1", R"({"CFBundleName": "Plain"})"), "Plain",
         "8.1", "8.1"},
        {"then the file name without extension; version for display",
         plugInCopy(dir, "Host Tool.v2"), "Host Tool.v2", "5", "5"},
        {"empty version raises, empty short version stays", unnamed, folderName, noVersion, ""},
    };
    for (const Case &c : cases) {
        ASSERT_TRUE(c.bundle) << c.name;
        const VKHost host(c.bundle);
        EXPECT_EQ(host.name(), c.expectedName) << c.name;
        const QString version = vkRaisedBy([&] { (void)host.version(); });
        EXPECT_EQ(version == "no exception" ? host.version() : version, c.expectedVersion)
            << c.name;
        EXPECT_EQ(host.displayVersion(), c.expectedDisplayVersion) << c.name;
        EXPECT_EQ(host.description(), "VKHost <" + c.bundle->bundlePath() + ">") << c.name;
    }
}

TEST(VKHost, BundleWithoutIdentifierIsReportedAndHasNoPreferences)
{
    DefaultsFolder prefs;
    const auto unnamed = framework("", "", "");
    ASSERT_TRUE(unnamed);
    VKLogCapture log;
    VKHost host(unnamed);
    ASSERT_EQ(log.messages(),
              QStringList("Sparkle Error: the bundle being updated at " + unnamed->description() +
                          " has no CFBundleIdentifier! This will cause preference read/write to "
                          "not work properly."));
    EXPECT_EQ(log.entries().first().prettyFunctionOutput, "-[VKHost initWithBundle:]");
    log.clear();
    host.setObject("value", "key");
    EXPECT_TRUE(host.objectForUserDefaultsKey("key").isNull());
    EXPECT_EQ(QDir(prefs.path()).entryList(QDir::Files), QStringList()) << "nothing written";
    EXPECT_EQ(log.messages().size(), 1) << "the lost write is logged";

    log.clear();
    VKHost named(framework("com.vessan.tests.HostShown", "7", "{}"));
    EXPECT_EQ(log.messages(), QStringList());
}

TEST(VKHost, PreferencesOfAnotherBundleAndOfTheApplication)
{
    DefaultsFolder prefs;
    VKTempDir dir;
    VKHost plugIn(plugInCopy(dir, "Prefs"));
    VKHost application;
    EXPECT_TRUE(plugIn.boolForKey("Flag")) << "falls back to the dictionary's \"YES\"";
    EXPECT_FALSE(plugIn.boolForUserDefaultsKey("Flag"));

    plugIn.setBool(false, "Flag");
    const QString file = prefs.path() + "/com.vessan.tests.HostPlugIn.json";
    ASSERT_TRUE(QFile::exists(file)) << "another bundle's defaults are written at once";
    EXPECT_EQ(VKUserDefaults(file).objectForKey("Flag"), QVariant(false));
    EXPECT_FALSE(plugIn.boolForKey("Flag")) << "the defaults value wins over the dictionary";
    EXPECT_TRUE(plugIn.boolForInfoDictionaryKey("Flag"));

    application.setObject("in the application", "Where");
    EXPECT_EQ(VKUserDefaults::standardUserDefaults()->objectForKey("Where"),
              QVariant("in the application"));
    EXPECT_TRUE(plugIn.objectForUserDefaultsKey("Where").isNull()) << "domains stay apart";
    EXPECT_EQ(application.objectForKey("CFBundleIdentifier"),
              VKBundle::mainBundle()->bundleIdentifier())
        << "no defaults value: the dictionary's";
}

TEST(VKHost, RunningApplicationAndIcon)
{
    VKTempDir dir;
    VKHost plugIn(plugInCopy(dir, "Iconic"));
    EXPECT_TRUE(plugIn.boolForInfoDictionaryKey("LSUIElement"));
    EXPECT_FALSE(plugIn.isBackgroundApplication()) << "the running application's key counts";
    EXPECT_EQ(plugIn.icon().availableSizes(), QList<QSize>({QSize(16, 16)}))
        << "\"HostIcon.png\" without the \"icns\" type";
    EXPECT_FALSE(plugIn.isRunningOnReadOnlyVolume());
}

TEST(VKHost, SystemVersionString)
{
    struct Case
    {
        const char *name;
        std::optional<long> major, minor, bugFix;
        std::optional<QString> product;
        QString expected;
    } cases[] = {
        {"three parts", 10, 9, 5, QString("ignored"), "10.9.5"},
        {"zeros are parts", 12, 0, 0, std::nullopt, "12.0.0"},
        {"missing bug fix", 10, 10, std::nullopt, QString("10.10"), "10.10"},
        {"missing major", std::nullopt, 1, 2, QString("odd"), "odd"},
        {"nothing at all", std::nullopt, std::nullopt, std::nullopt, std::nullopt, QString()},
    };
    for (const Case &c : cases) {
        const QString text = VKHost::systemVersionString(c.major, c.minor, c.bugFix, c.product);
        EXPECT_TRUE(text == c.expected && text.isNull() == c.expected.isNull()) << c.name;
    }

    VKTempDir dir;
    struct FileCase
    {
        const char *name;
        const char *contents; // null: no file
        QString expected;
    } files[] = {
        {"three numbers", "VERSION_ID=\"10.9.5\"\n", "10.9.5"},
        {"leading zeros read as numbers", "VERSION_ID=10.09.05\n", "10.9.5"},
        {"one number", "VERSION_ID=\"12\"\n", "12"},
        {"two numbers", "VERSION_ID=\"22.04\"\n", "22.04"},
        {"words", "VERSION_ID=rolling.x.y\n", "rolling.x.y"},
        {"no file", nullptr, QString()},
    };
    for (const FileCase &c : files) {
        const QString path = dir.filePath(QString::fromLatin1(c.name));
        if (c.contents)
            dir.writeFile(c.name, c.contents);
        VKSystemInfo::setOSReleasePathForTesting(path);
        EXPECT_EQ(VKHost::systemVersionString(), c.expected) << c.name;
    }
    VKSystemInfo::setOSReleasePathForTesting(QString());
}

TEST(VKHost, SystemProfileOfTheHost)
{
    VKTempDir dir;
    const QVariantList rows = VKHost(plugInCopy(dir, "Profiled")).systemProfile();
    QVariantMap byKey;
    for (const QVariant &row : rows)
        byKey.insert(row.toMap().value("key").toString(), row.toMap().value("displayValue"));
    EXPECT_EQ(byKey.value("appName"), QVariant("Profiled"));
    EXPECT_EQ(byKey.value("appVersion"), QVariant("5"));

    VKLogCapture log;
    VKHost unnamed(framework("", "", ""));
    EXPECT_TRUE(
        vkRaisedBy([&] { (void)unnamed.systemProfile(); }).startsWith("SUNoVersionException|"));
}

// A read-only file system is mounted in a private mount namespace of a child process, which
// answers for the paths it is given.
TEST(VKHost, ReadOnlyVolume)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "mounting needs root";
    const QString unshare = QStandardPaths::findExecutable("unshare");
    if (unshare.isEmpty())
        GTEST_SKIP() << "unshare is not installed";
    VKTempDir dir;
    const QString readOnly = dir.makeDir("ro");
    const QString probe = vkTestBinaryPath("vkdiagnostics_probe");
    const QString script =
        QStringLiteral("mount -t tmpfs -o ro vktest \"$1\" || exit 77; "
                       "for p in \"$1\" \"$1/..\" \"$1/missing\"; do \"$2\" readonly \"$p\"; done");
    QProcess child;
    child.start(unshare,
                {"--mount", "--propagation", "private", "sh", "-c", script, "sh", readOnly, probe});
    ASSERT_TRUE(child.waitForFinished(20000));
    if (child.exitCode() == 77 || child.exitCode() == 1)
        GTEST_SKIP() << "no private read-only mount here: "
                     << child.readAllStandardError().constData();
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_EQ(child.readAllStandardOutput(), QByteArray("1\n0\n0\n"))
        << "the mount, the writable folder above it, a path that does not exist";
}

#include "Diagnostics/VKHost.h"
#include "Diagnostics/VKSystemInfo.h"
#include "Diagnostics/VKSystemProfiler.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKUserDefaults.h"

#include "VKTestSupport.h"

#include <QDir>
#include <QFile>
#include <QIcon>
#include <QImage>

#include <gtest/gtest.h>

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

// The display value of each profile row by key.
QMap<QString, QString> displayed(const QVariantList &rows)
{
    QMap<QString, QString> values;
    for (const QVariant &row : rows)
        values.insert(row.toMap().value("key").toString(),
                      row.toMap().value("displayValue").toString());
    return values;
}

// "key | display key | value | display value" of each row, texts in quotes; a row with other
// entries too is marked.
QStringList texts(const QVariantList &rows)
{
    QStringList list;
    for (const QVariant &r : rows) {
        const QVariantMap row = r.toMap();
        QStringList cells{row.value("key").toString(), row.value("displayKey").toString()};
        for (const QVariant &v : {row.value("value"), row.value("displayValue")})
            cells << (v.metaType().id() == QMetaType::QString ? '"' + v.toString() + '"'
                                                              : v.toString());
        list << cells.join(" | ") + (row.size() == 4 ? "" : " (and more)");
    }
    return list;
}

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

// A bundle without identifier has no domain: its writes are lost, and logged. Another bundle's
// defaults are written at once to a file of its own; the application's go to the standard ones.
TEST(VKHost, PreferencesPerBundle)
{
    VKTempDir dir, prefs;
    VKUserDefaults::setStandardUserDefaultsFolder(prefs.path());
    const auto unnamed = framework("", "", "");
    ASSERT_TRUE(unnamed);
    VKLogCapture log;
    VKHost anonymous(unnamed);
    VKHost plugIn(plugInCopy(dir, "Prefs"));
    VKHost application;
    anonymous.setObject("value", "key");
    EXPECT_TRUE(anonymous.objectForUserDefaultsKey("key").isNull());
    EXPECT_EQ(QDir(prefs.path()).entryList(QDir::Files), QStringList()) << "nothing written";
    ASSERT_EQ(log.messages().size(), 2) << "the missing identifier and the lost write";
    EXPECT_EQ(log.messages().first(),
              "Sparkle Error: the bundle being updated at " + unnamed->description() +
                  " has no CFBundleIdentifier! This will cause preference read/write to "
                  "not work properly.");

    EXPECT_TRUE(plugIn.boolForKey("Flag")) << "falls back to the dictionary's \"YES\"";
    EXPECT_FALSE(plugIn.boolForUserDefaultsKey("Flag"));
    plugIn.setBool(false, "Flag");
    const QString file = prefs.path() + "/com.vessan.tests.HostPlugIn.json";
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
    VKUserDefaults::setStandardUserDefaultsFolder(QString());
}

// The plug-in's own keys, its icon and profile; the running application's keys.
TEST(VKHost, PlugInIconProfileAndTheRunningApplication)
{
    VKTempDir dir;
    VKHost plugIn(plugInCopy(dir, "Iconic"));
    EXPECT_TRUE(plugIn.boolForInfoDictionaryKey("LSUIElement"));
    EXPECT_FALSE(plugIn.isBackgroundApplication()) << "the running application's key counts";
    EXPECT_EQ(plugIn.icon().availableSizes(), QList<QSize>({QSize(16, 16)}))
        << "\"HostIcon.png\" without the \"icns\" type";
    const auto profile = displayed(plugIn.systemProfile());
    EXPECT_EQ(QStringList({profile.value("appName"), profile.value("appVersion")}),
              QStringList({"Iconic", "5"}));
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
        {"nothing at all", std::nullopt, std::nullopt, std::nullopt, std::nullopt, QString()},
    };
    for (const Case &c : cases) {
        const QString text = VKHost::systemVersionString(c.major, c.minor, c.bugFix, c.product);
        EXPECT_TRUE(text == c.expected && text.isNull() == c.expected.isNull()) << c.name;
    }

    // The same file read as a version string and as an OS version: 0 is not cached, a non-zero
    // answer is until the file's path is set again.
    VKTempDir dir;
    struct FileCase
    {
        const char *name;
        const char *contents; // null: no file
        QString expected;
        int osVersion;
    } files[] = {
        {"three numbers", "VERSION_ID=\"10.9.5\"\n", "10.9.5", 109},
        {"leading zeros read as numbers", "VERSION_ID=10.09.05\n", "10.9.5", 0},
        {"two numbers", "VERSION_ID=\"10.10\"\n", "10.10", 0},
        {"words", "VERSION_ID=rolling.x.y\n", "rolling.x.y", 0},
        {"no file", nullptr, QString(), 0},
    };
    for (const FileCase &c : files) {
        const QString path = dir.filePath(QString::fromLatin1(c.name));
        if (c.contents)
            dir.writeFile(c.name, c.contents);
        VKSystemInfo::setOSReleasePathForTesting(path);
        EXPECT_EQ(VKSystemInfo::sharedInfo().osVersion(), c.osVersion) << c.name;
        EXPECT_EQ(VKHost::systemVersionString(), c.expected) << c.name;
        dir.writeFile(c.name, "VERSION_ID=10.4\n");
        EXPECT_EQ(VKSystemInfo::sharedInfo().osVersion(), c.osVersion ? c.osVersion : 104)
            << c.name;
    }
    VKSystemInfo::setOSReleasePathForTesting(QString());
    struct Release
    {
        const char *version;
        int expected;
    } releases[] = {{"10.9.5", 109}, {"10.10.1", 0}, {"10.2", 102}, {"10.1.5", 0}, {"9.10", 0}};
    for (const Release &c : releases)
        EXPECT_EQ(VKSystemInfo::osVersionForProductVersion(c.version), c.expected) << c.version;
}

TEST(VKSystemProfiler, RowsInOrderWithExactTexts)
{
    VKSystemFacts f;
    f.systemVersionString = "12";
    f.cpuType = 7;
    f.cpu64Bit = 1;
    f.cpuSubtype = 3;
    f.model = "MacPro6,1";
    f.cpuCount = 8;
    f.languages = {"en-GB", "fi"};
    f.cpuFrequencyMHz = 2400;
    f.memoryMB = 16384;
    const auto &profiler = VKSystemProfiler::sharedSystemProfiler();
    EXPECT_EQ(
        texts(profiler.systemProfileArray(f, "MyApp", "1.2")),
        QStringList(
            {"osVersion | OS Version | \"12\" | \"12\"", "cputype | CPU Type | 7 | \"Intel\"",
             "cpu64bit | CPU is 64-Bit? | true | \"Yes\"",
             "cpusubtype | CPU Subtype | 3 | \"Intel Core 2\"",
             "model | Mac Model | \"MacPro6,1\" | \"Mac Pro (Late 2013)\"",
             "ncpu | Number of CPUs | 8 | 8", "lang | Preferred Language | \"en-GB\" | \"en-GB\"",
             "appName | Application Name | \"MyApp\" | \"MyApp\"",
             "appVersion | Application Version | \"1.2\" | \"1.2\"",
             "cpuFreqMHz | CPU Speed (GHz) | 2400 | 2.4", "ramMB | Memory (MB) | 16384 | 16384"}));

    struct Case
    {
        const char *name;
        std::optional<qint32> type, is64, subtype;
        QString typeText, subtypeText; // null type: no row
    } cases[] = {
        {"Intel 32-bit", 7, 0, 4, "Intel", "Intel Core"},
        {"PowerPC G5", 18, 1, 100, "PowerPC", "G5"},
        {"PowerPC G4 (10)", 18, 0, 10, "PowerPC", "G4"},
        {"PowerPC G4 (11)", 18, 0, 11, "PowerPC", "G4"},
        {"PowerPC 12", 18, 0, 12, "PowerPC", "Other"},
        {"PowerPC G3", 18, 0, 9, "PowerPC", "G3"},
        {"ARM64", 0x0100000C, 1, 2, "Unknown", "Other"},
        {"type query failed", std::nullopt, 1, 100, QString(), "Other"},
    };
    for (const Case &c : cases) {
        VKSystemFacts f;
        f.cpuType = c.type;
        f.cpu64Bit = c.is64;
        f.cpuSubtype = c.subtype;
        const auto rows = displayed(profiler.systemProfileArray(f, QString(), QString()));
        EXPECT_EQ(rows.value("cputype"), c.typeText) << c.name;
        EXPECT_EQ(rows.value("cpusubtype"), c.subtypeText) << c.name;
    }
    VKSystemFacts unheard;
    unheard.model = "Unheard1,1";
    EXPECT_EQ(texts(profiler.systemProfileArray(unheard, QString(), QString())),
              QStringList{"model | Mac Model | \"Unheard1,1\" | \"Unheard1,1\""})
        << "failed sources and null names leave rows out";
}

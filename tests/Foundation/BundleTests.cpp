#include "Foundation/VKBundle.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKPropertyList.h"
#include "Foundation/VKVersion.h"

#include "VKTestProcess.h"
#include "VKTestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

QString plugInPath()
{
    return vkTestBinaryPath("TestPlugIn.plugin");
}

QStringList identifiers(const QList<std::shared_ptr<VKBundle>> &bundles)
{
    QStringList list;
    for (const auto &bundle : bundles)
        list << bundle->bundleIdentifier();
    return list;
}

// What the probe program printed, when it ran to a successful end.
QByteArray runProbe(const QString &mode)
{
    const VKProgramRun probe = vkRunProgram(vkTestBinaryPath("vkfoundation_probe"), {mode});
    return probe.status == 0 ? probe.output : QByteArray();
}

} // namespace

TEST(Bundle, MainBundleWithoutInfoPlistComesFromTheApplication)
{
    const auto main = VKBundle::mainBundle();
    EXPECT_EQ(main, VKBundle::mainBundle()) << "one object for the process";
    EXPECT_EQ(main->kind(), VKBundle::Kind::Main);
    EXPECT_EQ(main->bundlePath(), QCoreApplication::applicationDirPath());
    EXPECT_EQ(main->executablePath(), QCoreApplication::applicationFilePath());
    const QVariantMap info = main->infoDictionary();
    EXPECT_EQ(info.value("CFBundleName").toString(), QCoreApplication::applicationName());
    EXPECT_EQ(info.value("CFBundleExecutable").toString(), "test_Foundation");
    EXPECT_EQ(main->bundleIdentifier(), info.value("CFBundleIdentifier").toString());
    EXPECT_EQ(VKBundle::bundleWithIdentifier(main->bundleIdentifier()), main);
    EXPECT_EQ(main->resourcePrefix(), ":/");
    EXPECT_EQ(main->resourcePath(), QDir::cleanPath(QCoreApplication::applicationDirPath() +
                                                    "/../share/test_Foundation"));
    EXPECT_EQ(VKBundle::allBundles().value(0), main);
}

TEST(Bundle, TheLibraryDeclaresItselfAsTheFirstFramework)
{
    const auto frameworks = VKBundle::allFrameworks();
    ASSERT_FALSE(frameworks.isEmpty());
    const auto library = frameworks.first();
    EXPECT_EQ(library->bundleIdentifier(), "VessanUtilities");
    EXPECT_EQ(library->kind(), VKBundle::Kind::Framework);
    EXPECT_EQ(library->objectForInfoDictionaryKey("CFBundleShortVersionString").toString(),
              VKLibraryVersion());
    EXPECT_TRUE(QFileInfo(library->executablePath()).fileName().startsWith("libVessanUtilities.so"))
        << library->executablePath().toStdString();
    EXPECT_EQ(VKBundle::bundleWithIdentifier("VessanUtilities"), library);
}

TEST(Bundle, PlugInMetadataIsReadBeforeItsCodeIsLoaded)
{
    VKError error;
    const auto bundle = VKBundle::bundleWithPath(plugInPath(), &error);
    ASSERT_TRUE(bundle) << error.description().toStdString();
    EXPECT_EQ(bundle->kind(), VKBundle::Kind::PlugIn);
    EXPECT_EQ(bundle->bundleIdentifier(), "com.vessan.tests.TestPlugIn");
    EXPECT_EQ(bundle->objectForInfoDictionaryKey("CFBundleVersion").toString(), "3");
    EXPECT_EQ(bundle->objectForInfoDictionaryKey("VKExtensions").toMap().value("TestRole").toMap(),
              (QVariantMap{{"VKClassName", "VKTestPlugInClass"}}));
    EXPECT_EQ(bundle->objectForInfoDictionaryKey("CFBundleExecutable").toString(),
              "TestPlugIn.plugin");
    EXPECT_EQ(bundle->resourcePrefix(), ":/com.vessan.tests.TestPlugIn/");

    // Not loaded yet: the class it registers is unknown and it is not among the loaded.
    EXPECT_FALSE(bundle->isLoaded());
    EXPECT_FALSE(VKClassRegistry::classNamed("VKTestPlugInClass"));
    EXPECT_FALSE(identifiers(VKBundle::allBundles()).contains("com.vessan.tests.TestPlugIn"));
    EXPECT_EQ(VKBundle::bundleWithPath(QFileInfo(plugInPath()).path() + "/./TestPlugIn.plugin"),
              bundle)
        << "the same file is the same bundle";

    ASSERT_TRUE(bundle->load(&error)) << error.description().toStdString();
    EXPECT_TRUE(bundle->isLoaded());
    EXPECT_TRUE(VKClassRegistry::classNamed("VKTestPlugInClass"));
    EXPECT_TRUE(bundle->principalObject());
    EXPECT_TRUE(bundle->load());
    EXPECT_EQ(VKBundle::loadPlugInAtPath(plugInPath()), bundle);
    const QStringList loaded = identifiers(VKBundle::allBundles());
    EXPECT_EQ(loaded.count("com.vessan.tests.TestPlugIn"), 1) << "loading twice adds it once";
    EXPECT_EQ(loaded.indexOf("com.vessan.tests.TestPlugIn"), 1) << "after the main bundle";
    EXPECT_EQ(VKBundle::bundleWithIdentifier("com.vessan.tests.TestPlugIn"), bundle);
}

TEST(Bundle, PathsThatAreNoPlugIn)
{
    VKTempDir temp;
    // clang-format off
    const struct { const char *name; QString path; qint64 code; } cases[] = {
        {"missing file", temp.filePath("Missing.plugin"), VKFileReadNoSuchFileError},
        {"folder", temp.makeDir("Folder.plugin"), VKFileReadNoSuchFileError},
        {"text file", temp.writeFile("Notes.plugin", "not a library"), VKExecutableNotLoadableError},
        {"library without plug-in metadata", vkTestBinaryPath("libvktest_framework.so"), VKExecutableNotLoadableError},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VKError error;
        EXPECT_FALSE(VKBundle::bundleWithPath(c.path, &error));
        EXPECT_EQ(error.code(), c.code);
        EXPECT_TRUE(error.localizedDescription().contains(c.path));
    }
}

TEST(Bundle, ResourcesComeFromTheResourceFolder)
{
    VKTempDir temp;
    const QString copy = temp.filePath("Grade.plugin");
    ASSERT_TRUE(QFile::copy(plugInPath(), copy));
    const QString icon = temp.writeFile("Grade.resources/Images/icon.png", "png");
    const QString notes = temp.writeFile("Grade.resources/b.txt", "b");
    const QString readme = temp.writeFile("Grade.resources/a.txt", "a");
    const auto bundle = VKBundle::bundleWithPath(copy);
    ASSERT_TRUE(bundle);
    EXPECT_EQ(bundle->resourcePath(), temp.filePath("Grade.resources"));
    // clang-format off
    const struct { const char *name; QString resource, extension, subdirectory, expected; } cases[] = {
        {"name and extension", "icon", "png", "Images", icon}, {"extension with a dot", "icon", ".png", "Images", icon},
        {"extension in the name", "icon.png", "", "Images", icon}, {"wrong folder", "icon", "png", "", QString()},
        {"missing", "none", "txt", "", QString()}, {"a folder is no resource", "Images", "", "", QString()},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(bundle->pathForResource(c.resource, c.extension, c.subdirectory), c.expected)
            << c.name;
    EXPECT_EQ(bundle->pathsForResourcesOfType("txt"), (QStringList{readme, notes}));
    EXPECT_EQ(bundle->pathsForResourcesOfType("", "Images"), QStringList{icon});
}

TEST(Bundle, EmbeddedInfoPlistIsCompletedFromTheApplication)
{
    // The property list's own keys win; what it lacks comes from the application.
    const QString folder = QCoreApplication::applicationDirPath();
    // clang-format off
    const QJsonObject expected{
        {"info", QJsonObject{{"CFBundleName", "Probe Display Name"}, {"CFBundleVersion", "77"},
                             {"LSUIElement", true}, {"CFBundleShortVersionString", "5.0.1"},
                             {"CFBundleIdentifier", "example.vessan.vkfoundation_probe"},
                             {"CFBundleExecutable", "vkfoundation_probe"}}},
        {"path", folder}, {"resource", ":/Info.plist"}, {"marker", 12},
        {"frameworks", QJsonArray{QJsonArray{"VessanUtilities", VKLibraryVersion()},
                                  QJsonArray{"com.vessan.tests.Framework", "1.2"}}},
        {"lookup", folder + " (com.vessan.tests.Framework)"},
        {"frameworkRoles", QJsonObject{{"FrameworkRole", QJsonObject{{"VKClassName", "Nothing"}}}}}};
    // clang-format on
    EXPECT_EQ(QJsonDocument::fromJson(runProbe("bundle")).object(), expected);
}

TEST(ApplicationLifecycle, NotificationsComeOnceInOrder)
{
    const QStringList lines =
        QString::fromUtf8(runProbe("lifecycle")).split('\n', Qt::SkipEmptyParts);
    EXPECT_EQ(lines,
              (QStringList{"VKApplicationWillFinishLaunchingNotification", "attach 1",
                           "attach again 1", "launched 0",
                           "VKApplicationDidFinishLaunchingNotification", "timer, launched 1",
                           "VKApplicationWillTerminateNotification", "exec returned"}));
}

TEST(Logger, JournalIdentifierIsTheMainBundles)
{
    VKLogEntry entry;
    entry.level = VKLogLevel::Info;
    entry.message = "50% done\nnext line";
    const QList<QByteArray> fields = VKJournalLogSink().fields(entry);
    EXPECT_TRUE(fields.contains("SYSLOG_IDENTIFIER=" +
                                VKBundle::mainBundle()->bundleIdentifier().toUtf8()));
    EXPECT_TRUE(fields.contains("PRIORITY=6"));
    EXPECT_TRUE(fields.contains("MESSAGE=50% done\nnext line"));
    EXPECT_TRUE(VKJournalLogSink("com.vessan.Other")
                    .fields(entry)
                    .contains("SYSLOG_IDENTIFIER=com.vessan.Other"));
}

TEST(Logger, FileSinkWritesOneRunLog)
{
    VKTempDir temp;
    const QString folder = temp.filePath("Logs/Vessan");
    auto sink = std::make_shared<VKFileLogSink>(folder, "Grade");
    const QString name = QFileInfo(sink->filePath()).fileName();
    EXPECT_TRUE(name.startsWith("Grade_")) << name.toStdString();
    EXPECT_TRUE(name.endsWith(QString("_%1.vqnLog").arg(QCoreApplication::applicationPid())))
        << name.toStdString();
    EXPECT_FALSE(QFile::exists(sink->filePath())) << "made at the first entry";

    VKLogCapture capture; // keeps the test's own output quiet
    VKLogger::shared().addSink(sink);
    VKLogger::error({"VKTest", "-[VKTest run]", nullptr}, "first %@", QString("entry"));
    VKLogger::info({"VKTest", "-[VKTest run]", nullptr}, "second");
    VKLogger::shared().removeSink(sink);
    QFile file(sink->filePath());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].endsWith("error VessanUtilities -[VKTest run] VKTest 0x0: first entry"))
        << lines[0].toStdString();
    EXPECT_TRUE(lines[1].endsWith("info VessanUtilities -[VKTest run] VKTest 0x0: second"));
    EXPECT_TRUE(sink->errorString().isEmpty());

    // A folder that cannot be made: the sink says why and drops entries.
    temp.writeFile("blocked", "a file where the folder should be");
    VKFileLogSink blocked(temp.filePath("blocked/Logs"), "Grade");
    testing::internal::CaptureStderr();
    blocked.write(VKLogEntry{});
    blocked.write(VKLogEntry{});
    const std::string warning = testing::internal::GetCapturedStderr();
    EXPECT_FALSE(blocked.errorString().isEmpty());
    EXPECT_EQ(QString::fromStdString(warning).count("cannot write the run log"), 1);
    EXPECT_FALSE(QFile::exists(blocked.filePath()));
}

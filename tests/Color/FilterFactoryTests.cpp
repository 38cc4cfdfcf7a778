#include "Color/VKAbstractCompoundFilterProvider.h"
#include "Color/VKFilter.h"
#include "Color/VKFilterFactory.h"

#include "VKTestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <gtest/gtest.h>

namespace {

QString builtPlugin(const QString &relative)
{
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../") +
                           relative);
}

// Lays out <tmp>/bin/vkfilterprobe and <tmp>/Filters with the given files, runs the probe from
// there and answers its report.
QJsonObject runProbe(const VKTempDir &dir, const QStringList &arguments)
{
    dir.makeDir("bin");
    const QString probe = dir.filePath("bin/vkfilterprobe");
    QFile::link(vkTestBinaryPath("vkfilterprobe"), probe);
    QProcess process;
    process.start(probe, arguments);
    if (!process.waitForFinished(60000) || process.exitCode() != 0) {
        ADD_FAILURE() << "probe failed: " << process.readAllStandardError().toStdString();
        return {};
    }
    return QJsonDocument::fromJson(process.readAllStandardOutput()).object();
}

QStringList strings(const QJsonValue &value)
{
    QStringList list;
    for (const QJsonValue &v : value.toArray())
        list.append(v.toString());
    return list;
}

TEST(VKFilterFactory, LoadsTheFiltersFolderOfTheExecutable)
{
    const QByteArray junk("this is no shared object\n");
    const struct
    {
        const char *name;
        QMap<QString, QString> files; // in Filters: name to a built plug-in, or "" for junk text
        QStringList singleNames;
        QString failedName; // the plug-in reported as not loaded, or none
    } cases[] = {
        {"a plug-in and a text file",
         {{"Grade.plugin", "Filters/Grade.plugin"}, {"notes.txt", ""}},
         {"Grade"},
         {}},
        {"a plug-in that does not provide its filter",
         {{"NotProvided.plugin", "FilterPlugins/NotProvided.plugin"}},
         {"NotProvided"},
         "NotProvided"},
        {"a file that fails to load", {{"Broken.plugin", ""}}, {"Broken"}, "Broken"},
        {"an empty folder", {}, {}, {}},
    };
    for (const auto &c : cases) {
        VKTempDir dir;
        dir.makeDir("Filters");
        for (auto it = c.files.cbegin(); it != c.files.cend(); ++it) {
            if (it.value().isEmpty())
                dir.writeFile("Filters/" + it.key(), junk);
            else
                ASSERT_TRUE(
                    QFile::copy(builtPlugin(it.value()), dir.filePath("Filters/" + it.key())))
                    << c.name;
        }
        const QJsonObject report = runProbe(dir, {});
        const QString folder = dir.filePath("bin") + "/../Filters";
        EXPECT_EQ(report["folder"].toString(), folder) << c.name;
        EXPECT_EQ(strings(report["singleFilterNames"]), c.singleNames) << c.name;
        EXPECT_EQ(strings(report["filterNames"]),
                  c.singleNames + QStringList({"Grade", "Unbuildable"}))
            << c.name;
        const QJsonValue error = report["pluginLoadError"];
        if (c.failedName.isEmpty()) {
            EXPECT_TRUE(error.isNull()) << c.name;
            EXPECT_EQ(strings(report["log"]), QStringList()) << c.name;
            continue;
        }
        const QString reason = "Failed loading Filters: (\n    \"Could not load Vessan filter " +
                               c.failedName + " from " + folder + "\"\n)";
        EXPECT_EQ(error["domain"].toString(), "Vessan Error Domain") << c.name;
        EXPECT_EQ(error["code"].toInt(-1), 0) << c.name;
        EXPECT_EQ(error["reason"].toString(), reason) << c.name;
        const QStringList log = strings(report["log"]);
        // The kept error is handed out by the providers' load too, so creation logs it twice.
        ASSERT_EQ(log.size(), 2) << c.name;
        EXPECT_TRUE(
            log[0].startsWith("VFFilterFactory init failed in loadImagePlugins with error:\n"))
            << c.name;
        EXPECT_TRUE(
            log[1].startsWith("VFFilterFactory init failed in loadCompoundPlugins with error:\n"))
            << c.name;
        EXPECT_TRUE(log[0].contains(reason)) << c.name;
    }
}

// A second load after a failure only clears the error; with no error kept it is a load, and a
// missing folder is still no error.
TEST(VKFilterFactory, ASecondLoadLeavesNoErrorBehind)
{
    for (const bool broken : {false, true}) {
        VKTempDir dir;
        if (broken)
            dir.writeFile("Filters/Broken.plugin", "junk");
        const QJsonObject report = runProbe(dir, {"--again"});
        EXPECT_EQ(report["pluginLoadError"].isNull(), !broken);
        EXPECT_EQ(strings(report["singleFilterNames"]),
                  broken ? QStringList{"Broken"} : QStringList());
        EXPECT_EQ(QJsonArray({report["againAnswered"], report["againError"], report["againKept"]}),
                  QJsonArray({true, QJsonValue::Null, QJsonValue::Null}));
    }
}

TEST(VKFilterFactory, NamesAreServedByProvidersThenByTheFramework)
{
    VKTempDir dir;
    dir.makeDir("Filters");
    ASSERT_TRUE(
        QFile::copy(builtPlugin("Filters/Grade.plugin"), dir.filePath("Filters/Grade.plugin")));
    const QJsonObject report =
        runProbe(dir, {"Grade", "Unbuildable", "gegl:exposure", "NoSuchFilter"});
    // "Grade" is the provider's filter, not the plug-in's.
    EXPECT_EQ(report["made"].toObject(), QJsonObject({{"Grade", "gegl:nop"},
                                                      {"Unbuildable", QJsonValue::Null},
                                                      {"gegl:exposure", "gegl:exposure"},
                                                      {"NoSuchFilter", QJsonValue::Null}}));
    EXPECT_EQ(strings(report["log"]),
              QStringList({"filter provider VKProbeFilterProvider should provide filter "
                           "Unbuildable but can't",
                           "VFFilterFactory can't create filter NoSuchFilter, not loaded"}));
}

TEST(VKFilterFactory, InThisProcessThePluginIsLoadedAndDefaultsAreSet)
{
    VKFilterFactory *factory = VKFilterFactory::sharedFactory();
    EXPECT_EQ(factory, VKFilterFactory::sharedFactory());
    EXPECT_EQ(factory->singleFilterNames(), QStringList{"Grade"});
    EXPECT_TRUE(factory->pluginLoadError().isNull());
    const auto grade = VKFilterFactory::filterWithName("Grade");
    ASSERT_TRUE(grade);
    EXPECT_TRUE(grade->valueForKey("inputSlope").isValid()) << "setDefaults was sent";

    // A name whose file is missing is logged; a known name is not looked for.
    VKTempDir dir;
    VKLogCapture capture;
    factory->loadFilters({"Ghost", "Grade"}, dir.path(), {"Grade"});
    EXPECT_EQ(capture.messages(), QStringList{"in " + dir.path() + " missing filterName Ghost"});
}

} // namespace

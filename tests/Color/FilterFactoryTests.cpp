// The filter factory: plug-in folders and names, each in a probe process of its own since
// plug-ins load once per process, and the plug-in of this process.
#include "Color/VKFilter.h"
#include "Color/VKFilterFactory.h"

#include "VKTestProcess.h"
#include "VKTestSupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

// Lays out <tmp>/bin/vkfilterprobe beside <tmp>/Filters, runs the probe from there and answers
// its report.
QJsonObject runProbe(const VKTempDir &dir, const QStringList &arguments)
{
    const QString probe = dir.makeDir("bin") + "/vkfilterprobe";
    QFile::link(vkTestBinaryPath("vkfilterprobe"), probe);
    const VKProgramRun run = vkRunProgram(probe, arguments);
    EXPECT_EQ(run.status, 0) << run.errors.toStdString();
    return QJsonDocument::fromJson(run.output).object();
}

QStringList strings(const QJsonValue &value)
{
    return value.toVariant().toStringList();
}

// Each folder is loaded, loaded a second time (after a failure that only clears the error;
// otherwise it is a load), and asked for the same names: "Grade" is the provider's filter, not
// the plug-in's; the provider cannot make "Unbuildable"; nobody has "NoSuchFilter".
TEST(VKFilterFactory, LoadsTheFiltersFolderOfTheExecutableAndServesNames)
{
    const struct
    {
        const char *name;
        QStringList files; // in Filters: Grade.plugin is the built plug-in, the others junk text
        QStringList singleNames;
        QString failedName; // the plug-in reported as not loaded, or none
    } cases[] = {
        {"a plug-in and a text file", {"Grade.plugin", "notes.txt"}, {"Grade"}, {}},
        {"a file that fails to load", {"Broken.plugin"}, {"Broken"}, "Broken"},
        {"no folder", {}, {}, {}},
    };
    const QJsonObject made{{"Grade", "gegl:nop"},
                           {"Unbuildable", QJsonValue::Null},
                           {"gegl:exposure", "gegl:exposure"},
                           {"NoSuchFilter", QJsonValue::Null}};
    // The names are asked in sorted order.
    const QStringList namesLog{
        "VFFilterFactory can't create filter NoSuchFilter, not loaded",
        "filter provider VKProbeFilterProvider should provide filter Unbuildable but can't"};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VKTempDir dir;
        for (const QString &file : c.files) {
            if (file != "Grade.plugin")
                dir.writeFile("Filters/" + file, "this is no shared object\n");
            else
                ASSERT_TRUE(QFile::copy(VKFilterFactory::filtersFolderPath() + '/' + file,
                                        dir.makeDir("Filters") + '/' + file));
        }
        const QJsonObject report = runProbe(dir, QStringList{"--again"} + made.keys());
        const QString folder = dir.filePath("bin") + "/../Filters";
        EXPECT_EQ(report["folder"].toString(), folder);
        EXPECT_EQ(strings(report["singleFilterNames"]), c.singleNames);
        EXPECT_EQ(strings(report["filterNames"]),
                  c.singleNames + QStringList({"Grade", "Unbuildable"}));
        EXPECT_EQ(report["made"].toObject(), made);
        EXPECT_EQ(QJsonArray({report["againAnswered"], report["againError"], report["againKept"]}),
                  QJsonArray({true, QJsonValue::Null, QJsonValue::Null}));
        const QJsonValue error = report["pluginLoadError"];
        const QStringList log = strings(report["log"]);
        if (c.failedName.isEmpty()) {
            EXPECT_TRUE(error.isNull());
            EXPECT_EQ(log, namesLog);
            continue;
        }
        const QString reason = "Failed loading Filters: (\n    \"Could not load Vessan filter " +
                               c.failedName + " from " + folder + "\"\n)";
        EXPECT_EQ(QJsonArray({error["domain"], error["code"], error["reason"]}),
                  QJsonArray({"Vessan Error Domain", 0, reason}));
        // The kept error is handed out by the providers' load too, so creation logs it twice.
        ASSERT_EQ(log.size(), 4);
        EXPECT_TRUE(log[0].contains(reason)) << log[0];
        EXPECT_EQ(QStringList({log[0].section('\n', 0, 0), log[1].section('\n', 0, 0)}) +
                      log.mid(2),
                  QStringList({"VFFilterFactory init failed in loadImagePlugins with error:",
                               "VFFilterFactory init failed in loadCompoundPlugins with error:"}) +
                      namesLog);
    }
}

TEST(VKFilterFactory, InThisProcessThePluginIsLoadedAndDefaultsAreSet)
{
    const auto grade = VKFilterFactory::filterWithName("Grade");
    ASSERT_TRUE(grade);
    EXPECT_TRUE(grade->valueForKey("inputSlope").isValid()) << "setDefaults was sent";

    // A name whose file is missing is logged; a known name is not looked for.
    VKTempDir dir;
    VKLogCapture capture;
    VKFilterFactory::sharedFactory()->loadFilters({"Ghost", "Grade"}, dir.path(), {"Grade"});
    EXPECT_EQ(capture.messages(), QStringList{"in " + dir.path() + " missing filterName Ghost"});
}

} // namespace

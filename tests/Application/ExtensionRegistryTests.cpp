// The extension registry: roles resolved across the main bundle, a framework and plug-ins (each
// case a fresh process, since the registry is read once), and one bundle's declarations read
// in process.
#include "Application/VKExtensionRegistry.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKClassRegistry.h"

#include "RegistryTestService.h"
#include "VKTestSupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <gtest/gtest.h>

namespace {

QString plugIn(const QString &name)
{
    return vkTestBinaryPath(name + ".plugin");
}

// Runs the probe with the plug-ins loaded first; its JSON report.
QJsonObject runRegistryProbe(const QStringList &plugIns)
{
    QStringList arguments;
    for (const QString &name : plugIns)
        arguments << plugIn(name);
    QProcess process;
    process.start(vkTestBinaryPath("vkextension_probe"), arguments);
    if (!process.waitForFinished(20000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        ADD_FAILURE() << "probe failed: " << process.readAllStandardOutput().toStdString()
                      << process.readAllStandardError().toStdString();
        return {};
    }
    return QJsonDocument::fromJson(process.readAllStandardOutput()).object();
}

QString text(const QJsonValue &value)
{
    return value.isNull() || value.isUndefined() ? QStringLiteral("-") : value.toString();
}

// "class name|class<base|origin of a new object|fresh|the declaration's Note" of one role.
QString roleLine(const QJsonObject &report, const QString &role)
{
    const QJsonObject r = report["roles"].toObject()[role].toObject();
    return text(r["className"]) + u'|' + text(r["class"]) + u'|' + text(r["origin"]) + u'|' +
           (r["fresh"].toBool() ? "fresh" : "none") + u'|' + text(r["info"]["Note"]);
}

QString keys(const QJsonValue &value)
{
    return QStringList(value.toObject().keys()).join(u',');
}

const QString duplicate = "NSInternalInconsistencyException|Duplicate extension with for role %1 "
                          "defined, while not overridden by main bundle";
const QString notADictionary = "NSInternalInconsistencyException|extensions value in info plist "
                               "must be of type dictionary";

} // namespace

TEST(ExtensionRegistry, ResolvesRolesAcrossComponentsOrRaisesAtCreation)
{
    const QString main =
        "VKRegistryMainService|VKRegistryMainService<VKRegistryTestService|main|fresh|main";
    const QString framework = "VKRegistryFrameworkService|VKRegistryFrameworkService<"
                              "VKRegistryTestService|framework|fresh|framework";
    const QString plugIn = "VKRegistryGoodPlugInService|VKRegistryGoodPlugInService<"
                           "VKRegistryTestService|GoodPlugIn|fresh|-";
    const struct
    {
        const char *name;
        QStringList plugIns;
        QString outcome; // what was raised, or the roles the other components keep
        QHash<QString, QString> roles;
    } cases[] = {
        {"main bundle overrides the framework",
         {},
         "FrameworkRole",
         {{"SharedRole", main},
          {"MainRole", "VKRegistryMainService|VKRegistryMainService<VKRegistryTestService|main|"
                       "fresh|-"},
          {"FrameworkRole", framework},
          {"PlugInRole", "-|-|-|none|-"},
          {"MissingRole", "VKRegistryNotLinkedService|-|-|none|-"},
          {"NumberRole", "-|-|-|none|-"},
          {"UnknownRole", "-|-|-|none|-"}}},
        {"loaded plug-in adds its role, main still overrides",
         {"GoodPlugIn"},
         "FrameworkRole,PlugInRole",
         {{"SharedRole", main}, {"PlugInRole", plugIn}, {"FrameworkRole", framework}}},
        {"two plug-ins claim a role",
         {"GoodPlugIn", "DuplicatePlugIn"},
         duplicate.arg("PlugInRole"),
         {}},
        {"plug-in and framework claim a role",
         {"DuplicatePlugIn"},
         duplicate.arg("FrameworkRole"),
         {}},
        {"extensions are an array", {"ArrayPlugIn"}, notADictionary, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QJsonObject report = runRegistryProbe(c.plugIns);
        if (c.outcome.contains(u'|')) {
            EXPECT_EQ(report["exception"].toString(), c.outcome);
            EXPECT_EQ(report["again"].toString(), c.outcome.section(u'|', 1))
                << "a failed creation leaves no registry behind";
            continue;
        }
        ASSERT_FALSE(report.contains("exception")) << report["exception"].toString();
        EXPECT_TRUE(report["same"].toBool());
        EXPECT_TRUE(report["loaded"].toBool());
        // The main bundle's roles never reach the other components' table.
        EXPECT_EQ(keys(report["main"]), "MainRole,MissingRole,NumberRole,SharedRole");
        EXPECT_EQ(keys(report["minor"]), c.outcome);
        for (auto it = c.roles.cbegin(); it != c.roles.cend(); ++it)
            EXPECT_EQ(roleLine(report, it.key()), it.value()) << it.key();
    }
}

TEST(ExtensionRegistry, ChecksOneBundlesDeclarationsWithoutLoadingIt)
{
    const struct
    {
        const char *name;
        std::shared_ptr<VKBundle> bundle;
        QString outcome; // the roles, or what was raised
    } cases[] = {
        {"null bundle", nullptr, "NSInvalidArgumentException|bundle must not be nil"},
        {"no extensions", VKBundle::mainBundle(), "none"},
        {"roles", VKBundle::bundleWithPath(plugIn("DuplicatePlugIn")),
         "FrameworkRole,PlugInRole,SharedRole"},
        {"array", VKBundle::bundleWithPath(plugIn("ArrayPlugIn")), notADictionary},
        {"text value", VKBundle::bundleWithPath(plugIn("NonDictionaryPlugIn")),
         "NSInternalInconsistencyException|extension value must be of type dictionary"},
    };
    auto &registry = VKExtensionRegistry::sharedRegistry();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QString outcome;
        const QString raised = vkRaisedBy([&] {
            const auto roles = registry.loadExtensionInfoFromBundle(c.bundle);
            outcome = roles ? QStringList(roles->keys()).join(u',') : QStringLiteral("none");
        });
        EXPECT_EQ(raised == "no exception" ? outcome : raised, c.outcome);
        if (c.bundle && c.bundle->kind() == VKBundle::Kind::PlugIn) {
            EXPECT_FALSE(c.bundle->isLoaded()) << "reading never loads the code";
        }
    }

    // The class a role names is there once the code is loaded.
    VKError error;
    const auto bundle = VKBundle::bundleWithPath(plugIn("GoodPlugIn"), &error);
    ASSERT_TRUE(bundle) << error.localizedDescription();
    EXPECT_EQ(registry.loadExtensionInfoFromBundle(bundle)
                  ->value("PlugInRole")
                  .toMap()
                  .value("VKClassName")
                  .toString(),
              "VKRegistryGoodPlugInService");
    ASSERT_TRUE(bundle->load(&error)) << error.localizedDescription();
    const auto service =
        VKClassRegistry::createInstance<VKRegistryTestService>("VKRegistryGoodPlugInService");
    ASSERT_TRUE(service);
    EXPECT_EQ(service->origin(), "GoodPlugIn");
}

TEST(ExtensionRegistry, UnknownRolesAnswerNothingAndANullRoleRaises)
{
    EXPECT_TRUE(VKExtensionRegistry::classNameForRole("NoSuchRole").isNull());
    EXPECT_FALSE(VKExtensionRegistry::classForRole("NoSuchRole"));
    EXPECT_FALSE(VKExtensionRegistry::instanceForRole<VKRegistryTestService>("NoSuchRole"));
    EXPECT_FALSE(VKExtensionRegistry::instanceForRole<VKRegistryTestService>(""));
    EXPECT_EQ(vkRaisedBy([] { VKExtensionRegistry::instanceForRole<VKRegistryTestService>({}); }),
              "NSInvalidArgumentException|role must not be nil");
    EXPECT_TRUE(VKExtensionRegistry::sharedRegistry().instancesForRoles().isEmpty());
}

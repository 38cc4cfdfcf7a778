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

// Runs the probe in registry mode with the plug-ins loaded first; its JSON report.
QJsonObject runRegistryProbe(const QStringList &plugIns)
{
    QStringList arguments{"registry"};
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

// "class name|class<base|origin of a new object|fresh" of one role in a probe report.
QString roleLine(const QJsonObject &report, const QString &role)
{
    const QJsonObject r = report["roles"].toObject()[role].toObject();
    return text(r["className"]) + u'|' + text(r["class"]) + u'|' + text(r["origin"]) + u'|' +
           (r["fresh"].toBool() ? "fresh" : "none");
}

const QString duplicate = "NSInternalInconsistencyException|Duplicate extension with for role %1 "
                          "defined, while not overridden by main bundle";

} // namespace

// Every case is a fresh process: the registry is read once, when first used.
TEST(ExtensionRegistry, ResolvesRolesAcrossComponentsOrRaisesAtCreation)
{
    const QString main =
        "VKRegistryMainService|VKRegistryMainService<VKRegistryTestService|main|fresh";
    const QString framework = "VKRegistryFrameworkService|VKRegistryFrameworkService<"
                              "VKRegistryTestService|framework|fresh";
    const QString plugIn = "VKRegistryGoodPlugInService|VKRegistryGoodPlugInService<"
                           "VKRegistryTestService|GoodPlugIn|fresh";
    struct Case
    {
        const char *name;
        QStringList plugIns;
        QString exception; // empty: the registry is made
        QHash<QString, QString> roles;
    };
    const QList<Case> cases{
        {"main bundle overrides the framework",
         {},
         {},
         {{"SharedRole", main},
          {"MainRole", main},
          {"FrameworkRole", framework},
          {"PlugInRole", "-|-|-|none"},
          {"MissingRole", "VKRegistryNotLinkedService|-|-|none"},
          {"NumberRole", "-|-|-|none"},
          {"UnknownRole", "-|-|-|none"}}},
        {"loaded plug-in adds its role, main still overrides",
         {"GoodPlugIn"},
         {},
         {{"SharedRole", main}, {"PlugInRole", plugIn}, {"FrameworkRole", framework}}},
        {"two plug-ins claim a role",
         {"GoodPlugIn", "DuplicatePlugIn"},
         duplicate.arg("PlugInRole"),
         {}},
        {"plug-in and framework claim a role",
         {"DuplicatePlugIn"},
         duplicate.arg("FrameworkRole"),
         {}},
        {"extensions are an array",
         {"ArrayPlugIn"},
         "NSInternalInconsistencyException|extensions value in info plist must be of type "
         "dictionary",
         {}},
        {"an extension is text",
         {"NonDictionaryPlugIn"},
         "NSInternalInconsistencyException|extension value must be of type dictionary",
         {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const QJsonObject report = runRegistryProbe(c.plugIns);
        if (!c.exception.isEmpty()) {
            EXPECT_EQ(report["exception"].toString(), c.exception);
            EXPECT_EQ(report["again"].toString(), c.exception.section(u'|', 1))
                << "a failed creation leaves no registry behind";
            continue;
        }
        ASSERT_FALSE(report.contains("exception")) << report["exception"].toString();
        EXPECT_TRUE(report["same"].toBool());
        EXPECT_TRUE(report["loaded"].toBool());
        for (auto it = c.roles.cbegin(); it != c.roles.cend(); ++it)
            EXPECT_EQ(roleLine(report, it.key()), it.value()) << it.key();
    }
}

TEST(ExtensionRegistry, KeepsTheDeclarationsAsTheyStand)
{
    const QJsonObject report = runRegistryProbe({"GoodPlugIn"});
    const QJsonObject main = report["main"].toObject();
    EXPECT_EQ(QStringList(main.keys()),
              QStringList({"MainRole", "MissingRole", "NumberRole", "SharedRole"}));
    // The main bundle's roles never reach the other components' table.
    const QJsonObject minor = report["minor"].toObject();
    EXPECT_EQ(QStringList(minor.keys()), QStringList({"FrameworkRole", "PlugInRole"}));
    const QJsonObject roles = report["roles"].toObject();
    EXPECT_EQ(roles["SharedRole"]["info"]["Note"].toString(), "main");
    EXPECT_EQ(roles["FrameworkRole"]["info"]["Note"].toString(), "framework");
    EXPECT_EQ(roles["PlugInRole"]["info"]["Order"].toInt(), 2);
    EXPECT_TRUE(roles["UnknownRole"]["info"].isNull());
}

TEST(ExtensionRegistry, ReadsAPlugInsRolesBeforeItsCodeIsLoaded)
{
    VKError error;
    const auto bundle = VKBundle::bundleWithPath(plugIn("GoodPlugIn"), &error);
    ASSERT_TRUE(bundle) << error.localizedDescription();
    auto &registry = VKExtensionRegistry::sharedRegistry();
    const auto roles = registry.loadExtensionInfoFromBundle(bundle);
    ASSERT_TRUE(roles.has_value());
    EXPECT_EQ(roles->value("PlugInRole").toMap().value("VKClassName").toString(),
              "VKRegistryGoodPlugInService");
    if (!bundle->isLoaded()) {
        EXPECT_FALSE(VKClassRegistry::classNamed("VKRegistryGoodPlugInService"));
    }

    ASSERT_TRUE(bundle->load(&error)) << error.localizedDescription();
    const auto service =
        VKClassRegistry::createInstance<VKRegistryTestService>("VKRegistryGoodPlugInService");
    ASSERT_TRUE(service);
    EXPECT_EQ(service->origin(), "GoodPlugIn");
}

TEST(ExtensionRegistry, ChecksOneBundlesDeclarations)
{
    struct Case
    {
        const char *name;
        std::shared_ptr<VKBundle> bundle;
        QString outcome; // the roles, or what was raised
    };
    const QList<Case> cases{
        {"null bundle", nullptr, "NSInvalidArgumentException|bundle must not be nil"},
        {"no extensions", VKBundle::mainBundle(), "none"},
        {"roles", VKBundle::bundleWithPath(plugIn("DuplicatePlugIn")),
         "FrameworkRole,PlugInRole,SharedRole"},
        {"array", VKBundle::bundleWithPath(plugIn("ArrayPlugIn")),
         "NSInternalInconsistencyException|extensions value in info plist must be of type "
         "dictionary"},
        {"text value", VKBundle::bundleWithPath(plugIn("NonDictionaryPlugIn")),
         "NSInternalInconsistencyException|extension value must be of type dictionary"},
    };
    auto &registry = VKExtensionRegistry::sharedRegistry();
    for (const Case &c : cases) {
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
    EXPECT_EQ(&VKExtensionRegistry::sharedRegistry(), &VKExtensionRegistry::sharedRegistry());
}

// The extension registry: roles resolved across the main bundle, a framework and plug-ins by a
// real tool on the application frame (each case a fresh process, since the registry is read
// once), and one bundle's declarations read in process.
#include "Application/VKExtensionRegistry.h"
#include "Foundation/VKBundle.h"

#include "RegistryTestService.h"
#include "VKTestSupport.h"

#include <gtest/gtest.h>

namespace {

QString plugIn(const QString &name)
{
    return vkTestBinaryPath(name + ".plugin");
}

const QString notADictionary = "NSInternalInconsistencyException|extensions value in info plist "
                               "must be of type dictionary";

} // namespace

TEST(ExtensionRegistry, AToolResolvesRolesAcrossComponentsOrRaisesAtCreation)
{
    // The main bundle's roles never reach the other components' table ("minor").
    const auto resolved = [](const QString &minor, const QString &plugInRole) {
        return "main: MainRole,MissingRole,NumberRole,SharedRole\nminor: " + minor +
               "\nSharedRole: VKRegistryMainService|VKRegistryMainService|main|fresh|main\n"
               "MainRole: VKRegistryMainService|VKRegistryMainService|main|fresh|-\n"
               "FrameworkRole: VKRegistryFrameworkService|VKRegistryFrameworkService|framework|"
               "fresh|framework\nPlugInRole: " +
               plugInRole +
               "\nMissingRole: VKRegistryNotLinkedService|-|-|-|-\n"
               "NumberRole: -|-|-|-|-\nUnknownRole: -|-|-|-|-\n";
    };
    // A failed creation leaves no registry behind: the next use raises again.
    const auto raised = [](const QString &exception) {
        return exception + "\nagain: " + exception.section(u'|', 1) + u'\n';
    };
    const QString duplicate = "NSInternalInconsistencyException|Duplicate extension with for role "
                              "%1 defined, while not overridden by main bundle";
    const QString usage = "usage: probe\n\nOPTIONS\n\t-h, --help\n\t\tPrint this text.\n\n"
                          "\t-x, --exit <code>\n\t\tExit code.\n\n\n(100% honest)\n";
    // clang-format off
    const struct { const char *name; QStringList arguments; QString printed; int exitCode; } cases[] = {
        {"main bundle overrides the framework", {"--help", "-x", "7"},
         usage + resolved("FrameworkRole", "-|-|-|-|-"), 7},
        {"loaded plug-in adds its role, main still overrides", {plugIn("GoodPlugIn")},
         resolved("FrameworkRole,PlugInRole", "VKRegistryGoodPlugInService|"
                  "VKRegistryGoodPlugInService|GoodPlugIn|fresh|-"), 0},
        {"two plug-ins claim a role", {plugIn("GoodPlugIn"), plugIn("DuplicatePlugIn")},
         raised(duplicate.arg("PlugInRole")), 0},
        {"plug-in and framework claim a role", {plugIn("DuplicatePlugIn")}, raised(duplicate.arg("FrameworkRole")), 0},
        {"extensions are an array", {plugIn("ArrayPlugIn")}, raised(notADictionary), 0},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        // Launch is announced before the tool runs and finishes on the wait's first turn.
        EXPECT_EQ(vkRunTestBinary("vkextension_probe", c.arguments),
                  "notification VKApplicationWillFinishLaunchingNotification\n" + c.printed +
                      "notification VKApplicationDidFinishLaunchingNotification\nfinishing\n"
                      "notification VKApplicationWillTerminateNotification\nexit " +
                      QString::number(c.exitCode));
    }
}

TEST(ExtensionRegistry, ChecksOneBundlesDeclarationsWithoutLoadingIt)
{
    // The roles, or what was raised.
    // clang-format off
    const struct { const char *name; std::shared_ptr<VKBundle> bundle; QString outcome; } cases[] = {
        {"null bundle", nullptr, "NSInvalidArgumentException|bundle must not be nil"},
        {"no extensions", VKBundle::mainBundle(), "none"},
        {"roles", VKBundle::bundleWithPath(plugIn("DuplicatePlugIn")), "FrameworkRole,PlugInRole,SharedRole"},
        {"array", VKBundle::bundleWithPath(plugIn("ArrayPlugIn")), notADictionary},
        {"text value", VKBundle::bundleWithPath(plugIn("NonDictionaryPlugIn")),
         "NSInternalInconsistencyException|extension value must be of type dictionary"},
    };
    // clang-format on
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
    // An empty role is a role like any other; a null one is refused.
    EXPECT_FALSE(VKExtensionRegistry::instanceForRole<VKRegistryTestService>(""));
    EXPECT_EQ(vkRaisedBy([] { VKExtensionRegistry::instanceForRole<VKRegistryTestService>({}); }),
              "NSInvalidArgumentException|role must not be nil");
}

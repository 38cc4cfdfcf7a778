// The extension registry: roles resolved across the main bundle, a framework and plug-ins by a real
// tool on the frame (a fresh process each, as the registry is read once); refusals in process.
#include "Application/VKExtensionRegistry.h"
#include "Application/VKResponder.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

TEST(ExtensionRegistry, AToolResolvesRolesAcrossComponentsOrRaisesAtCreation)
{
    // The main bundle's roles never reach the other components' table ("minor").
    const auto resolved = [](const QString &minor, const QString &plugInRole) {
        return "main: MainRole,MissingRole,NumberRole,SharedRole\nminor: " + minor +
               "\nSharedRole: VKRegistryMainService|main|fresh|main\n"
               "MainRole: VKRegistryMainService|main|fresh|-\n"
               "FrameworkRole: VKRegistryFrameworkService|framework|fresh|framework\n"
               "PlugInRole: " +
               plugInRole +
               "\nMissingRole: VKRegistryNotLinkedService (not loaded)|-|-|-\n"
               "NumberRole: -|-|-|-\nUnknownRole: -|-|-|-\n";
    };
    // A failed creation leaves no registry behind: the next use raises again.
    const auto raised = [](const QString &exception) {
        return exception + "\nagain: " + exception + u'\n';
    };
    const QString duplicate = "NSInternalInconsistencyException|Duplicate extension with for role "
                              "%1 defined, while not overridden by main bundle";
    const QString usage =
        "usage: probe\n\nOPTIONS\n\t-x, --exit <code>\n\t\tExit code.\n\n\n(100% honest)\n";
    // clang-format off
    const struct { const char *name; QStringList arguments; QString printed; int exitCode; } cases[] = {
        {"main bundle overrides the framework", {"-x", "7"}, resolved("FrameworkRole", "-|-|-|-"), 7},
        {"loaded plug-in adds its role, main still overrides", {vkTestBinaryPath("GoodPlugIn.plugin")},
         resolved("FrameworkRole,PlugInRole", "VKRegistryGoodPlugInService|GoodPlugIn|fresh|-"), 0},
        {"two plug-ins claim a role", {vkTestBinaryPath("GoodPlugIn.plugin"), vkTestBinaryPath("DuplicatePlugIn.plugin")},
         raised(duplicate.arg("PlugInRole")), 0},
        {"plug-in and framework claim a role", {vkTestBinaryPath("DuplicatePlugIn.plugin")}, raised(duplicate.arg("FrameworkRole")), 0},
        {"extensions are an array", {vkTestBinaryPath("ArrayPlugIn.plugin")},
         raised("NSInternalInconsistencyException|extensions value in info plist must be of type dictionary"), 0},
        {"an extension is no dictionary", {vkTestBinaryPath("NonDictionaryPlugIn.plugin")},
         raised("NSInternalInconsistencyException|extension value must be of type dictionary"), 0},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        // Launch is announced before the tool runs and finishes on the wait's first turn.
        EXPECT_EQ(vkRunTestBinary("vkextension_probe", c.arguments),
                  "notification VKApplicationWillFinishLaunchingNotification\n" + usage +
                      c.printed +
                      "notification VKApplicationDidFinishLaunchingNotification\nfinishing\n"
                      "notification VKApplicationWillTerminateNotification\nexit " +
                      QString::number(c.exitCode));
    }
}

TEST(ExtensionRegistry, RefusesANullBundleAndANullRole)
{
    auto &registry = VKExtensionRegistry::sharedRegistry();
    EXPECT_EQ(vkRaisedBy([&] { registry.loadExtensionInfoFromBundle(nullptr); }),
              "NSInvalidArgumentException|bundle must not be nil");
    // An empty role is a role like any other.
    EXPECT_FALSE(VKExtensionRegistry::instanceForRole<VKResponder>(""));
    EXPECT_EQ(vkRaisedBy([] { VKExtensionRegistry::instanceForRole<VKResponder>({}); }),
              "NSInvalidArgumentException|role must not be nil");
}

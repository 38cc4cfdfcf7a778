// A component of the running program with an identifier, a path, an information dictionary and
// resources: the application itself (the main bundle), a shared library that declared itself at
// load time (a framework) or a Qt plug-in loaded at run time (a loaded bundle).
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <memory>

class QObject;

// Keys of information dictionaries.
VK_EXPORT extern const QString VKBundleIdentifierKey;   // "CFBundleIdentifier"
VK_EXPORT extern const QString VKBundleNameKey;         // "CFBundleName"
VK_EXPORT extern const QString VKBundleVersionKey;      // "CFBundleVersion"
VK_EXPORT extern const QString VKBundleShortVersionKey; // "CFBundleShortVersionString"
VK_EXPORT extern const QString VKBundleExecutableKey;   // "CFBundleExecutable"

// Error codes (domain VQErrorDomainVessanUtilities); a missing file is VKFileReadNoSuchFileError.
enum VKBundleErrorCode : qint64 {
    VKExecutableNotLoadableError = 3584, // the file is no plug-in
    VKExecutableLoadError = 3587,        // the plug-in's code did not load
};

// Bundles live for the process: every lookup of the same component answers the same object, and
// a loaded plug-in is never unloaded (classes it registered would dangle). Thread-safe.
class VK_EXPORT VKBundle
{
public:
    enum class Kind { Main, Framework, PlugIn };

    ~VKBundle();
    VKBundle(const VKBundle &) = delete;
    VKBundle &operator=(const VKBundle &) = delete;

    // The application. Its dictionary is the property list the executable embeds as the Qt
    // resource ":/Info.plist", with the keys it lacks taken from the application object:
    // "CFBundleName" (application name), "CFBundleShortVersionString" and "CFBundleVersion"
    // (application version), "CFBundleIdentifier" (organisation domain reversed, then the
    // name: "vessan.com" and "Grade" give "com.vessan.Grade"; the name alone without a domain)
    // and "CFBundleExecutable". Its path is the executable's folder. It is read once the
    // application object exists; before that every call reads it afresh.
    static std::shared_ptr<VKBundle> mainBundle();
    // The main bundle, then the loaded plug-ins in load order.
    static QList<std::shared_ptr<VKBundle>> allBundles();
    // The declared frameworks in load order (this library, "VessanUtilities", comes before the
    // libraries that link it).
    static QList<std::shared_ptr<VKBundle>> allFrameworks();
    // The main bundle, a framework or a plug-in bundle known by that identifier; null if none.
    static std::shared_ptr<VKBundle> bundleWithIdentifier(const QString &identifier);

    // The plug-in at `path`, its dictionary read from the plug-in's embedded metadata without
    // loading its code. Null (and `error`) when the file is missing or no Qt plug-in. The same
    // object for the same file.
    static std::shared_ptr<VKBundle> bundleWithPath(const QString &path, VKError *error = nullptr);
    // bundleWithPath() then load().
    static std::shared_ptr<VKBundle> loadPlugInAtPath(const QString &path,
                                                      VKError *error = nullptr);

    // Loads a plug-in's code (once; true again afterwards) and adds it to allBundles(). Main
    // bundles and frameworks are loaded already.
    bool load(VKError *error = nullptr);
    bool isLoaded() const;
    // The plug-in's root object (Q_PLUGIN_METADATA's class), or null; owned by Qt.
    QObject *principalObject() const;

    Kind kind() const;
    QString bundleIdentifier() const;
    // The executable's folder (main bundle), the folder of the library (framework) or the
    // plug-in file itself.
    QString bundlePath() const;
    // The executable, the library or the plug-in file.
    QString executablePath() const;
    QVariantMap infoDictionary() const;
    // The entry of the information dictionary, or a null QVariant.
    QVariant objectForInfoDictionaryKey(const QString &key) const;

    // Resources are looked up in the bundle's Qt resources (resourcePrefix()) first, then in its
    // resource folder on disk (resourcePath()).
    // ":/" for the main bundle, ":/<identifier>/" otherwise.
    QString resourcePrefix() const;
    // The main bundle's is "<executable folder>/../share/<executable name>"; a framework's is
    // its dictionary's "VKResourcePath" or "<library folder>/../share/<identifier>"; a plug-in's
    // is "<plug-in file without extension>.resources". The folder need not exist.
    QString resourcePath() const;
    // The first resource "name[.extension]" (in `subdirectory` when given), as a path QFile
    // opens; null when there is none.
    QString pathForResource(const QString &name, const QString &extension = {},
                            const QString &subdirectory = {}) const;
    // Every resource with that extension (any when empty) in `subdirectory`, Qt resources first,
    // each list sorted by name.
    QStringList pathsForResourcesOfType(const QString &extension,
                                        const QString &subdirectory = {}) const;

    // "<path> (<identifier>)", for logs.
    QString description() const;

    // Called by VK_DECLARE_FRAMEWORK from a library's static initialisers; `address` is any
    // address inside the library, `infoJson` a JSON object of further dictionary keys.
    static bool registerFramework(const char *identifier, const char *version, const void *address,
                                  const char *infoJson);

private:
    struct Private;
    explicit VKBundle(std::unique_ptr<Private> d);
    std::unique_ptr<Private> d;
};

// Declares the library it is compiled into as a framework, once, in any source of it:
//   VK_DECLARE_FRAMEWORK("com.example.Grading", "2.1")
//   VK_DECLARE_FRAMEWORK("com.example.Grading", "2.1", R"({"VKExtensions": {...}})")
#define VK_DECLARE_FRAMEWORK(Identifier, Version, ...)                                             \
    namespace {                                                                                    \
    const char vkFrameworkAnchor = 0;                                                              \
    [[maybe_unused]] const bool vkFrameworkDeclared =                                              \
        VKBundle::registerFramework(Identifier, Version, &vkFrameworkAnchor, "" __VA_ARGS__);      \
    }

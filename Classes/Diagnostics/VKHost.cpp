#include "Diagnostics/VKHost.h"

#include "Diagnostics/VKSystemInfo.h"
#include "Diagnostics/VKSystemProfiler.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKException.h"
#include "Foundation/VKLenientNumber.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKUserDefaults.h"

#include <QFile>
#include <QFileInfo>
#include <QIcon>
#include <QMimeDatabase>

#include <sys/statvfs.h>

const QString VKHostNoVersionException = QStringLiteral("SUNoVersionException");

namespace {

const QString kDisplayNameKey = QStringLiteral("CFBundleDisplayName");
const QString kIconFileKey = QStringLiteral("CFBundleIconFile");
const QString kUIElementKey = QStringLiteral("LSUIElement");

VKLogContext logContext(const VKHost *host, const char *operation)
{
    return {QStringLiteral("VKHost"), QString::fromLatin1(operation), host};
}

// Booleans of information dictionaries and defaults may be numbers or text ("YES", "1").
bool boolValue(const QVariant &value)
{
    if (!value.isValid() || value.isNull())
        return false;
    if (value.typeId() == QMetaType::QString)
        return VKLenientNumber::boolValue(value.toString());
    return value.toBool();
}

// "name.ext" without its last extension; a leading dot is no extension.
QString withoutExtension(const QString &fileName)
{
    const qsizetype dot = fileName.lastIndexOf(u'.');
    return dot > 0 ? fileName.left(dot) : fileName;
}

std::optional<long> versionPart(const QStringList &parts, qsizetype index)
{
    if (index >= parts.size())
        return std::nullopt;
    bool ok = false;
    const long value = parts[index].toLong(&ok);
    return ok ? std::optional<long>(value) : std::nullopt;
}

} // namespace

struct VKHost::Private
{
    std::shared_ptr<VKBundle> bundle;
    bool isMain = false;

    // The defaults this host reads and writes; null for a bundle without usable identifier.
    std::shared_ptr<VKUserDefaults> defaults() const
    {
        if (isMain)
            return VKUserDefaults::standardUserDefaults();
        const QString identifier = bundle->bundleIdentifier();
        return identifier.isEmpty() ? nullptr : VKUserDefaults::defaultsForDomain(identifier);
    }
};

VKHost::VKHost(std::shared_ptr<VKBundle> bundle) : d(std::make_unique<Private>())
{
    const std::shared_ptr<VKBundle> main = VKBundle::mainBundle();
    d->bundle = bundle ? std::move(bundle) : main;
    d->isMain = d->bundle == main;
    if (d->bundle->bundleIdentifier().isEmpty())
        VKLogger::error(logContext(this, "-[VKHost initWithBundle:]"),
                        "Sparkle Error: the bundle being updated at %@ has no CFBundleIdentifier! "
                        "This will cause preference read/write to not work properly.",
                        d->bundle->description());
}

VKHost::~VKHost() = default;

std::shared_ptr<VKBundle> VKHost::bundle() const
{
    return d->bundle;
}

QString VKHost::bundlePath() const
{
    return d->bundle->bundlePath();
}

QString VKHost::name() const
{
    for (const QString &key : {kDisplayNameKey, VKBundleNameKey}) {
        const QVariant value = d->bundle->objectForInfoDictionaryKey(key);
        if (!value.isNull())
            return value.toString();
    }
    return withoutExtension(QFileInfo(bundlePath()).fileName());
}

QString VKHost::version() const
{
    const QString version = d->bundle->objectForInfoDictionaryKey(VKBundleVersionKey).toString();
    if (version.isEmpty())
        VKException::raise(VKHostNoVersionException,
                           "This host (%@) has no CFBundleVersion! This attribute is required.",
                           bundlePath());
    return version;
}

QString VKHost::displayVersion() const
{
    const QVariant value = d->bundle->objectForInfoDictionaryKey(VKBundleShortVersionKey);
    return value.isNull() ? version() : value.toString();
}

QIcon VKHost::icon() const
{
    const QString file = d->bundle->objectForInfoDictionaryKey(kIconFileKey).toString();
    if (!file.isEmpty()) {
        QString path = d->bundle->pathForResource(file, QStringLiteral("icns"));
        if (path.isEmpty())
            path = d->bundle->pathForResource(file);
        if (!path.isEmpty()) {
            QIcon icon(path);
            if (!icon.availableSizes().isEmpty() || !icon.pixmap(32).isNull())
                return icon;
        }
    }
    if (d->isMain)
        return QIcon::fromTheme(QStringLiteral("application-x-executable"));
    const QMimeType type =
        QMimeDatabase().mimeTypeForFile(QStringLiteral("x.bundle"), QMimeDatabase::MatchExtension);
    return QIcon::fromTheme(type.iconName(), QIcon::fromTheme(type.genericIconName()));
}

bool VKHost::isPathOnReadOnlyVolume(const QString &path)
{
    struct statvfs info
    {
    };
    if (path.isEmpty() || statvfs(QFile::encodeName(path).constData(), &info) != 0)
        return false;
    return (info.f_flag & ST_RDONLY) != 0;
}

bool VKHost::isRunningOnReadOnlyVolume() const
{
    return isPathOnReadOnlyVolume(bundlePath());
}

bool VKHost::isBackgroundApplication() const
{
    return boolValue(VKBundle::mainBundle()->objectForInfoDictionaryKey(kUIElementKey));
}

QVariantList VKHost::systemProfile() const
{
    return VKSystemProfiler::sharedSystemProfiler().systemProfileArrayForHost(*this);
}

QVariant VKHost::objectForInfoDictionaryKey(const QString &key) const
{
    return d->bundle->objectForInfoDictionaryKey(key);
}

bool VKHost::boolForInfoDictionaryKey(const QString &key) const
{
    return boolValue(objectForInfoDictionaryKey(key));
}

QVariant VKHost::objectForUserDefaultsKey(const QString &key) const
{
    const auto defaults = d->defaults();
    return defaults ? defaults->objectForKey(key) : QVariant();
}

bool VKHost::boolForUserDefaultsKey(const QString &key) const
{
    const auto defaults = d->defaults();
    return defaults && defaults->boolForKey(key);
}

void VKHost::setObject(const QVariant &value, const QString &key)
{
    const auto defaults = d->defaults();
    if (!defaults) {
        VKLogger::error(logContext(this, "-[VKHost setObject:forUserDefaultsKey:]"),
                        "No preferences for %@: the bundle has no identifier; %@ is not written",
                        bundlePath(), key);
        return;
    }
    defaults->setObject(value, key);
    if (!d->isMain && !defaults->synchronize())
        VKLogger::error(logContext(this, "-[VKHost setObject:forUserDefaultsKey:]"),
                        "Could not write %@ to %@", key, defaults->filePath());
}

void VKHost::setBool(bool value, const QString &key)
{
    setObject(value, key);
}

QVariant VKHost::objectForKey(const QString &key) const
{
    const QVariant value = objectForUserDefaultsKey(key);
    return value.isNull() ? objectForInfoDictionaryKey(key) : value;
}

bool VKHost::boolForKey(const QString &key) const
{
    return boolValue(objectForKey(key));
}

QString VKHost::systemVersionString(std::optional<long> major, std::optional<long> minor,
                                    std::optional<long> bugFix,
                                    const std::optional<QString> &productVersion)
{
    if (major && minor && bugFix)
        return QStringLiteral("%1.%2.%3").arg(*major).arg(*minor).arg(*bugFix);
    return productVersion.value_or(QString());
}

QString VKHost::systemVersionString()
{
    const std::optional<QString> product = VKSystemInfo::productVersion();
    const QStringList parts = product ? product->split(u'.') : QStringList();
    return systemVersionString(versionPart(parts, 0), versionPart(parts, 1), versionPart(parts, 2),
                               product);
}

QString VKHost::description() const
{
    return QStringLiteral("VKHost <%1>").arg(bundlePath());
}

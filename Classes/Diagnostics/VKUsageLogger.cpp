#include "Diagnostics/VKUsageLogger.h"

#include "Foundation/VKBundle.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKUserDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QUuid>

#include <systemd/sd-journal.h>

#include <mutex>

// One mutex serialises the counts file's read-modify-write and the making of the identifier;
// nothing else is called while it is held except the file system and the user defaults.

const QString VKUsageLoggerDidLogUsageNotification =
    QStringLiteral("VKUsageLoggerDidLogUsageNotification");
const QString VKUsageLoggerUserIdentifierKey = QStringLiteral("VKUsageLoggerUserIdentifier");

namespace {

VKLogContext logContext(const VKUsageLogger *logger, const char *operation)
{
    return {QStringLiteral("VKUsageLogger"),
            QStringLiteral("-[VKUsageLogger %1]").arg(QLatin1String(operation)), logger};
}

QString bundleIdentifier()
{
    const auto bundle = VKBundle::mainBundle();
    const QString identifier = bundle ? bundle->bundleIdentifier() : QString();
    return identifier.isEmpty() ? VKUserDefaults::applicationIdentifier() : identifier;
}

QHash<QString, qint64> readCounts(const QString &path)
{
    QHash<QString, qint64> counts;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return counts;
    const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
    for (auto it = object.begin(); it != object.end(); ++it)
        counts.insert(it.key(), it.value().toInteger());
    return counts;
}

} // namespace

struct VKUsageLogger::Private
{
    std::mutex mutex;
};

VKUsageLogger::VKUsageLogger() : d(std::make_unique<Private>()) {}

VKUsageLogger::~VKUsageLogger() = default;

VKUsageLogger &VKUsageLogger::sharedUsageLogger()
{
    static auto *logger = new VKUsageLogger;
    return *logger;
}

QString VKUsageLogger::countsFilePath()
{
    return VKSearchPaths::stateDirectory() + QStringLiteral("/Vessan/Usage/") + bundleIdentifier() +
           QStringLiteral(".json");
}

QHash<QString, qint64> VKUsageLogger::counts()
{
    return readCounts(countsFilePath());
}

void VKUsageLogger::logUsageForKey(const QString &key)
{
    const QString path = countsFilePath();
    {
        std::lock_guard lock(d->mutex);
        QHash<QString, qint64> counts = readCounts(path);
        counts[key] += 1;
        QJsonObject object;
        for (auto it = counts.cbegin(); it != counts.cend(); ++it)
            object.insert(it.key(), it.value());
        QDir().mkpath(QFileInfo(path).absolutePath());
        QSaveFile file(path);
        if (!file.open(QIODevice::WriteOnly) ||
            file.write(QJsonDocument(object).toJson(QJsonDocument::Indented)) < 0 ||
            !file.commit()) {
            VKLogger::error(logContext(this, "logUsageForKey:"),
                            "Could not write usage counts to %@: %@", path, file.errorString());
        }
    }
    const QByteArray identifier = bundleIdentifier().toUtf8();
    const QByteArray keyText = key.toUtf8();
    sd_journal_send("MESSAGE=Usage: %s", keyText.constData(), "PRIORITY=6", "SYSLOG_IDENTIFIER=%s",
                    identifier.constData(), "VK_USAGE_KEY=%s", keyText.constData(), nullptr);
    VKNotificationCenter::defaultCenter().postNotificationName(
        VKUsageLoggerDidLogUsageNotification, this, {{QStringLiteral("key"), key}});
}

QString VKUsageLogger::userIdentifier()
{
    std::lock_guard lock(d->mutex);
    const auto defaults = VKUserDefaults::standardUserDefaults();
    QString identifier = defaults->stringForKey(VKUsageLoggerUserIdentifierKey);
    if (identifier.isEmpty()) {
        identifier = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        defaults->setObject(identifier, VKUsageLoggerUserIdentifierKey);
        defaults->synchronize();
    }
    return identifier;
}

#include "Foundation/VKUserDefaults.h"

#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKNumber.h"
#include "Foundation/VKNotificationCenter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>

#include <cmath>
#include <limits>
#include <mutex>

const QString VKUserDefaultsDidChangeNotification =
    QStringLiteral("VKUserDefaultsDidChangeNotification");

namespace {

// The store is a JSON object: readable by people and keeps numbers, booleans, lists and
// dictionaries apart, which the ini format does not.
bool readJson(QIODevice &device, QSettings::SettingsMap &map)
{
    const QByteArray data = device.readAll();
    if (data.trimmed().isEmpty())
        return true;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        const auto *file = qobject_cast<QFile *>(&device);
        const QString path = file ? file->fileName() : QString();
        // Keep what cannot be read: the next write replaces the file.
        const QString kept = path + QStringLiteral(".unreadable");
        if (!path.isEmpty() && !QFile::exists(kept))
            QFile::copy(path, kept);
        VKLogger::error({QStringLiteral("VKUserDefaults"),
                         QStringLiteral("-[VKUserDefaults synchronize]"), nullptr},
                        "Cannot read the user defaults in %@ (%@); a copy was kept as %@", path,
                        error.error != QJsonParseError::NoError ? error.errorString()
                                                                : QStringLiteral("not an object"),
                        kept);
        return false;
    }
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it)
        map.insert(it.key(), it.value().toVariant());
    return true;
}

bool writeJson(QIODevice &device, const QSettings::SettingsMap &map)
{
    QJsonObject object;
    for (auto it = map.begin(); it != map.end(); ++it)
        object.insert(it.key(), QJsonValue::fromVariant(it.value()));
    return device.write(QJsonDocument(object).toJson(QJsonDocument::Indented)) >= 0;
}

QSettings::Format jsonFormat()
{
    static const QSettings::Format format =
        QSettings::registerFormat(QStringLiteral("json"), readJson, writeJson);
    return format;
}

bool isStorable(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::QString:
    case QMetaType::QByteArray:
    case QMetaType::QDateTime:
    case QMetaType::QStringList:
        return true;
    case QMetaType::QVariantList:
        for (const QVariant &element : value.toList())
            if (!isStorable(element))
                return false;
        return true;
    case QMetaType::QVariantMap:
        for (const QVariant &element : value.toMap())
            if (!isStorable(element))
                return false;
        return true;
    case QMetaType::QVariantHash:
        for (const QVariant &element : value.toHash())
            if (!isStorable(element))
                return false;
        return true;
    default:
        return false;
    }
}

// The leading number of a text, read the lenient way (" 12.5kg" is 12.5, "abc" is 0).
double leadingDouble(const QString &text)
{
    static const QRegularExpression number(
        QStringLiteral(R"(^\s*([+-]?(?:\d+\.?\d*|\.\d+)(?:[eE][+-]?\d+)?))"));
    const QRegularExpressionMatch match = number.match(text);
    return match.hasMatch() ? match.captured(1).toDouble() : 0.0;
}

qint64 leadingInteger(const QString &text)
{
    static const QRegularExpression integer(QStringLiteral(R"(^\s*([+-]?\d+))"));
    const QRegularExpressionMatch match = integer.match(text);
    if (!match.hasMatch())
        return 0;
    bool ok = false;
    const qint64 value = match.captured(1).toLongLong(&ok);
    if (ok)
        return value;
    return match.captured(1).startsWith(QLatin1Char('-')) ? std::numeric_limits<qint64>::min()
                                                          : std::numeric_limits<qint64>::max();
}

// "YES", "true", "1", " +07" are true: the first character after blanks, a sign and zeros
// decides.
bool leadingBool(const QString &text)
{
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    if (i < text.size() && (text.at(i) == QLatin1Char('+') || text.at(i) == QLatin1Char('-')))
        ++i;
    while (i < text.size() && text.at(i) == QLatin1Char('0'))
        ++i;
    if (i >= text.size())
        return false;
    const QChar c = text.at(i);
    return c == QLatin1Char('Y') || c == QLatin1Char('y') || c == QLatin1Char('T') ||
           c == QLatin1Char('t') || (c >= QLatin1Char('1') && c <= QLatin1Char('9'));
}

struct Standard
{
    std::mutex mutex;
    std::shared_ptr<VKUserDefaults> instance;
    QString folder;
};

Standard &standard()
{
    static Standard *shared = new Standard;
    return *shared;
}

} // namespace

struct VKUserDefaults::Private
{
    mutable std::mutex mutex;
    QSettings settings;
    QVariantMap registered;

    explicit Private(const QString &path) : settings(path, jsonFormat()) {}
};

VKUserDefaults::VKUserDefaults(const QString &filePath) : d(std::make_unique<Private>(filePath)) {}

VKUserDefaults::~VKUserDefaults()
{
    std::lock_guard lock(d->mutex);
    d->settings.sync();
}

std::shared_ptr<VKUserDefaults> VKUserDefaults::standardUserDefaults()
{
    Standard &s = standard();
    std::lock_guard lock(s.mutex);
    if (!s.instance) {
        QString folder = s.folder;
        if (folder.isEmpty())
            folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
        QString application = QCoreApplication::applicationName();
        if (application.isEmpty())
            application = QStringLiteral("VessanUtilities");
        const QString organisation = QCoreApplication::organizationName();
        QString path = folder;
        if (!organisation.isEmpty())
            path += QLatin1Char('/') + organisation;
        path += QLatin1Char('/') + application + QStringLiteral(".json");
        s.instance = std::make_shared<VKUserDefaults>(QDir::cleanPath(path));
    }
    return s.instance;
}

void VKUserDefaults::resetStandardUserDefaults()
{
    std::shared_ptr<VKUserDefaults> previous;
    {
        Standard &s = standard();
        std::lock_guard lock(s.mutex);
        previous = std::move(s.instance);
        s.instance.reset();
    }
    if (previous)
        previous->synchronize();
}

void VKUserDefaults::setStandardUserDefaultsFolder(const QString &folder)
{
    {
        Standard &s = standard();
        std::lock_guard lock(s.mutex);
        s.folder = folder;
    }
    resetStandardUserDefaults();
}

QString VKUserDefaults::filePath() const
{
    std::lock_guard lock(d->mutex);
    return d->settings.fileName();
}

void VKUserDefaults::registerDefaults(const QVariantMap &defaults)
{
    std::lock_guard lock(d->mutex);
    for (auto it = defaults.begin(); it != defaults.end(); ++it)
        d->registered.insert(it.key(), it.value());
}

QVariantMap VKUserDefaults::registeredDefaults() const
{
    std::lock_guard lock(d->mutex);
    return d->registered;
}

QVariant VKUserDefaults::objectForKey(const QString &key) const
{
    std::lock_guard lock(d->mutex);
    QVariant value = d->settings.value(key);
    if (value.isValid())
        return value;
    return d->registered.value(key);
}

QString VKUserDefaults::stringForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString)
        return value.toString();
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    if (VKNumber::isNumber(value))
        return value.toString();
    return QString();
}

QVariantList VKUserDefaults::arrayForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList)
        return value.toList();
    return {};
}

QStringList VKUserDefaults::stringArrayForKey(const QString &key) const
{
    const QVariantList list = arrayForKey(key);
    QStringList strings;
    for (const QVariant &element : list) {
        if (element.typeId() != QMetaType::QString)
            return {};
        strings.append(element.toString());
    }
    return strings;
}

QVariantMap VKUserDefaults::dictionaryForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QVariantMap || value.typeId() == QMetaType::QVariantHash)
        return value.toMap();
    return {};
}

bool VKUserDefaults::boolForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString)
        return leadingBool(value.toString());
    if (VKNumber::isNumber(value))
        return value.toDouble() != 0.0;
    return false;
}

qint64 VKUserDefaults::integerForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString)
        return leadingInteger(value.toString());
    if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float) {
        const double number = value.toDouble();
        if (!std::isfinite(number))
            return 0;
        if (number >= 9223372036854775807.0)
            return std::numeric_limits<qint64>::max();
        if (number <= -9223372036854775808.0)
            return std::numeric_limits<qint64>::min();
        return static_cast<qint64>(number);
    }
    if (VKNumber::isNumber(value))
        return value.toLongLong();
    return 0;
}

double VKUserDefaults::doubleForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString)
        return leadingDouble(value.toString());
    if (VKNumber::isNumber(value))
        return value.toDouble();
    return 0.0;
}

void VKUserDefaults::setObject(const QVariant &value, const QString &key)
{
    if (key.isEmpty())
        VKException::raise(VKInvalidArgumentException,
                           "-[VKUserDefaults setObject:forKey:]: key must not be nil or empty");
    if (!value.isValid()) {
        removeObjectForKey(key);
        return;
    }
    if (!isStorable(value))
        VKException::raise(VKInvalidArgumentException,
                           "Attempt to insert non-property list object %@ for key %@",
                           QString::fromUtf8(value.typeName()), key);
    // Store what reading the file back will give, so that a value reads the same before and
    // after the next synchronisation.
    const QVariant stored = QJsonValue::fromVariant(value).toVariant();
    {
        std::lock_guard lock(d->mutex);
        d->settings.setValue(key, stored);
    }
    VKNotificationCenter::defaultCenter().postNotificationName(VKUserDefaultsDidChangeNotification,
                                                               this);
}

void VKUserDefaults::setBool(bool value, const QString &key)
{
    setObject(value, key);
}

void VKUserDefaults::setInteger(qint64 value, const QString &key)
{
    setObject(value, key);
}

void VKUserDefaults::setDouble(double value, const QString &key)
{
    setObject(value, key);
}

void VKUserDefaults::removeObjectForKey(const QString &key)
{
    // QSettings reads an empty key as "everything".
    if (key.isEmpty())
        return;
    {
        std::lock_guard lock(d->mutex);
        d->settings.remove(key);
    }
    VKNotificationCenter::defaultCenter().postNotificationName(VKUserDefaultsDidChangeNotification,
                                                               this);
}

bool VKUserDefaults::synchronize()
{
    std::lock_guard lock(d->mutex);
    d->settings.sync();
    return d->settings.status() == QSettings::NoError;
}

QVariantMap VKUserDefaults::dictionaryRepresentation() const
{
    std::lock_guard lock(d->mutex);
    QVariantMap result = d->registered;
    for (const QString &key : d->settings.allKeys())
        result.insert(key, d->settings.value(key));
    return result;
}

// The defaults store.
//
// State of one store (struct Store, shared with deferred saves and the exit flush through weak
// references, so that a flush never outlives it):
//   values   what the file held when last read or written, with `pending` applied on top
//   pending  changes not yet in the file (a null QVariant marks a removal)
//   stamp    identity of the file as last read or written (inode, size, times); a different
//            stamp means another process replaced it, and the next read merges it in
// Locks: Store::mutex guards a store's state and is held while its file is read or written;
// across processes the file "<file>.lock" (QLockFile) is held while one merges and writes.
// Order: the registry mutex is never taken while a store's mutex is held. Notifications are
// posted with no lock held.
// Invariants: a write reads the file again under the lock and applies `pending` to it, so
// changes of other processes to other keys survive; the file is replaced atomically
// (QSaveFile), never rewritten in place; `pending` is cleared only once the file holds it.
#include "Foundation/VKUserDefaults.h"

#include "Foundation/VKException.h"
#include "Foundation/VKLenientNumber.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKMainLoop.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKNumber.h"
#include "Foundation/VKSearchPaths.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QLockFile>
#include <QPointer>
#include <QSaveFile>

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <vector>

const QString VKUserDefaultsDidChangeNotification =
    QStringLiteral("VKUserDefaultsDidChangeNotification");

namespace {

constexpr int kLockWaitMs = 10000;    // longest wait for another process's write
constexpr int kStaleLockMs = 30000;   // a lock older than this is broken (writes take ms)
constexpr double kDeferredSave = 1.0; // seconds from a change to its write on the main loop

// Tags of the values JSON cannot tell apart by itself: {"$real": 2.0}, {"$date": "..."},
// {"$data": "<base64>"}, {"$uint": "<digits>"}. A dictionary key that starts with "$" is
// written with one more "$", so a dictionary never reads as a tag.
const QString kRealTag = QStringLiteral("$real");
const QString kDateTag = QStringLiteral("$date");
const QString kDataTag = QStringLiteral("$data");
const QString kUnsignedTag = QStringLiteral("$uint");

VKLogContext logContext(const char *operation, const void *object)
{
    return {QStringLiteral("VKUserDefaults"), QString::fromLatin1(operation), object};
}

QString escapeKey(const QString &key)
{
    return key.startsWith(u'$') ? u'$' + key : key;
}

QString unescapeKey(const QString &key)
{
    return key.startsWith(QLatin1String("$$")) ? key.mid(1) : key;
}

QJsonValue encode(const QVariant &value);

QJsonObject encodeMap(const QVariantMap &map)
{
    QJsonObject object;
    for (auto it = map.begin(); it != map.end(); ++it)
        object.insert(escapeKey(it.key()), encode(it.value()));
    return object;
}

// `value` is in the stored form (see normalized()).
QJsonValue encode(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::LongLong:
        return value.toLongLong();
    case QMetaType::ULongLong:
        return QJsonObject{{kUnsignedTag, QString::number(value.toULongLong())}};
    case QMetaType::Double: {
        const double number = value.toDouble();
        if (std::isnan(number))
            return QJsonObject{{kRealTag, QStringLiteral("nan")}};
        if (std::isinf(number))
            return QJsonObject{
                {kRealTag, number > 0 ? QStringLiteral("inf") : QStringLiteral("-inf")}};
        if (number == 0 && std::signbit(number))
            return QJsonObject{{kRealTag, QStringLiteral("-0")}};
        return QJsonObject{{kRealTag, number}};
    }
    case QMetaType::QString:
        return value.toString();
    case QMetaType::QByteArray:
        return QJsonObject{{kDataTag, QString::fromLatin1(value.toByteArray().toBase64())}};
    case QMetaType::QDateTime:
        return QJsonObject{{kDateTag, value.toDateTime().toString(Qt::ISODateWithMs)}};
    case QMetaType::QVariantList: {
        QJsonArray array;
        for (const QVariant &element : value.toList())
            array.append(encode(element));
        return array;
    }
    case QMetaType::QVariantMap:
        return encodeMap(value.toMap());
    default:
        return QJsonValue();
    }
}

QVariant decode(const QJsonValue &value);

QVariantMap decodeMap(const QJsonObject &object)
{
    QVariantMap map;
    for (auto it = object.begin(); it != object.end(); ++it)
        map.insert(unescapeKey(it.key()), decode(it.value()));
    return map;
}

// The value of a one-key tag object, or a null QVariant when it is no well-formed tag.
QVariant decodeTag(const QString &tag, const QJsonValue &content)
{
    if (tag == kRealTag) {
        if (content.isDouble())
            return content.toDouble();
        static const QHash<QString, double> special{
            {QStringLiteral("nan"), std::numeric_limits<double>::quiet_NaN()},
            {QStringLiteral("inf"), std::numeric_limits<double>::infinity()},
            {QStringLiteral("-inf"), -std::numeric_limits<double>::infinity()},
            {QStringLiteral("-0"), -0.0}};
        const auto it = special.find(content.toString());
        return it != special.end() ? QVariant(*it) : QVariant();
    }
    if (tag == kDateTag) {
        const QDateTime date = QDateTime::fromString(content.toString(), Qt::ISODateWithMs);
        return date.isValid() ? QVariant(date.toUTC()) : QVariant();
    }
    if (tag == kDataTag && content.isString()) {
        const auto result = QByteArray::fromBase64Encoding(content.toString().toLatin1(),
                                                           QByteArray::AbortOnBase64DecodingErrors);
        return result ? QVariant(*result) : QVariant();
    }
    if (tag == kUnsignedTag) {
        bool ok = false;
        const qulonglong number = content.toString().toULongLong(&ok);
        return ok ? QVariant(number) : QVariant();
    }
    return {};
}

QVariant decode(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return value.toBool();
    case QJsonValue::Double: {
        // The parser keeps a number written without fraction or exponent as an integer.
        const QVariant number = value.toVariant();
        return number.typeId() == QMetaType::LongLong ? number : QVariant(value.toDouble());
    }
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Array: {
        QVariantList list;
        for (const QJsonValue &element : value.toArray())
            list.append(decode(element));
        return list;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        if (object.size() == 1) {
            const QVariant tagged = decodeTag(object.begin().key(), object.begin().value());
            if (tagged.isValid())
                return tagged;
        }
        return decodeMap(object);
    }
    default:
        return {};
    }
}

// The form a value is stored and read back in, or a null QVariant when it cannot be stored.
QVariant normalized(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::SChar:
    case QMetaType::Char:
        return value.toLongLong();
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar: {
        const qulonglong number = value.toULongLong();
        if (number > qulonglong(std::numeric_limits<qlonglong>::max()))
            return number;
        return qlonglong(number);
    }
    case QMetaType::Float:
    case QMetaType::Double:
        return value.toDouble();
    case QMetaType::QString:
        return value.toString();
    case QMetaType::QByteArray:
        return value.toByteArray();
    case QMetaType::QDateTime: {
        const QDateTime date = value.toDateTime().toUTC();
        if (!date.isValid() || date.date().year() < 1 || date.date().year() > 9999)
            return {};
        return date;
    }
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        QVariantList list;
        for (const QVariant &element : value.toList()) {
            list.append(normalized(element));
            if (!list.last().isValid())
                return {};
        }
        return list;
    }
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        QVariantMap map;
        // QVariant::toMap() converts a hash too.
        const QVariantMap source = value.toMap();
        for (auto it = source.begin(); it != source.end(); ++it) {
            const QVariant element = normalized(it.value());
            if (!element.isValid())
                return {};
            map.insert(it.key(), element);
        }
        return map;
    }
    default:
        return {};
    }
}

// What tells one version of a file from the next: QSaveFile replaces the file, so its inode
// changes with each write; the times and size catch an inode used again.
struct FileStamp
{
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    qint64 modified = 0;
    qint64 changed = 0;

    static FileStamp of(const QString &path)
    {
        struct stat info;
        if (::stat(QFile::encodeName(path).constData(), &info) != 0)
            return {};
        return {true,
                info.st_dev,
                info.st_ino,
                info.st_size,
                qint64(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec,
                qint64(info.st_ctim.tv_sec) * 1000000000 + info.st_ctim.tv_nsec};
    }
    bool operator==(const FileStamp &) const = default;
};

struct Store
{
    explicit Store(QString filePath) : path(std::move(filePath)) {}

    const QString path;
    std::mutex mutex;
    QVariantMap values;
    QMap<QString, QVariant> pending;
    QVariantMap registered;
    FileStamp stamp;
    bool loaded = false;
    bool saveScheduled = false;

    // Reads the file; false (after reporting it once per version of the file) when it exists
    // but holds no JSON object. A missing file is an empty store.
    bool readFile(QVariantMap &out) const
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            if (!file.exists())
                return true;
            VKLogger::error(logContext("-[VKUserDefaults synchronize]", this),
                            "Cannot read the user defaults in %@ (%@)", path, file.errorString());
            return false;
        }
        const QByteArray data = file.readAll();
        if (data.trimmed().isEmpty())
            return true;
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(data, &error);
        if (error.error != QJsonParseError::NoError || !document.isObject()) {
            // Keep what cannot be read: the next write replaces the file.
            const QString kept = path + QStringLiteral(".unreadable");
            if (!QFile::exists(kept))
                QFile::copy(path, kept);
            VKLogger::error(logContext("-[VKUserDefaults synchronize]", this),
                            "Cannot read the user defaults in %@ (%@); a copy was kept as %@", path,
                            error.error != QJsonParseError::NoError
                                ? error.errorString()
                                : QStringLiteral("not an object"),
                            kept);
            return false;
        }
        out = decodeMap(document.object());
        return true;
    }

    QVariantMap withPending(QVariantMap base) const
    {
        for (auto it = pending.begin(); it != pending.end(); ++it) {
            if (it.value().isValid())
                base.insert(it.key(), it.value());
            else
                base.remove(it.key());
        }
        return base;
    }

    // Takes in what another process wrote since the last look; answers whether the values
    // changed. Caller holds `mutex`.
    bool refresh()
    {
        const FileStamp now = FileStamp::of(path);
        if (loaded && now == stamp)
            return false;
        const bool first = !loaded;
        loaded = true;
        stamp = now;
        QVariantMap disk;
        if (!readFile(disk))
            return false; // keep what we have; the next write replaces the file
        QVariantMap merged = withPending(disk);
        if (merged == values)
            return false;
        values = std::move(merged);
        return !first;
    }

    // Removes what a writer killed between creating and renaming its temporary file left:
    // QSaveFile names it "<file>.XXXXXX". Caller holds the lock file.
    void removeAbandonedTemporaries() const
    {
        const QFileInfo info(path);
        const QString prefix = info.fileName() + u'.';
        const QDir folder = info.dir();
        for (const QString &name :
             folder.entryList({prefix + QStringLiteral("??????")}, QDir::Files | QDir::Hidden)) {
            const QStringView suffix = QStringView(name).mid(prefix.size());
            if (std::all_of(suffix.begin(), suffix.end(),
                            [](QChar c) { return c.isLetterOrNumber() && c.unicode() < 128; }))
                QFile::remove(folder.filePath(name));
        }
    }

    // Merges `pending` into the file under the lock file. Caller holds `mutex`.
    bool write(QString *problem)
    {
        const QFileInfo info(path);
        if (!QDir().mkpath(info.absolutePath())) {
            *problem = QStringLiteral("cannot create the folder %1").arg(info.absolutePath());
            return false;
        }
        QLockFile lock(path + QStringLiteral(".lock"));
        lock.setStaleLockTime(kStaleLockMs);
        if (!lock.tryLock(kLockWaitMs)) {
            *problem = lock.error() == QLockFile::LockFailedError
                           ? QStringLiteral("another process holds %1.lock").arg(path)
                           : QStringLiteral("cannot create %1.lock").arg(path);
            return false;
        }
        removeAbandonedTemporaries();
        // Over the file as it is now; over what we hold when it is unchanged since we read it
        // (that is its content with `pending` applied) or cannot be read.
        QVariantMap base = values;
        if (!loaded || FileStamp::of(path) != stamp) {
            QVariantMap disk;
            if (readFile(disk))
                base = std::move(disk);
        }
        const QVariantMap merged = withPending(base);
        QSaveFile file(path);
        const QByteArray data = QJsonDocument(encodeMap(merged)).toJson(QJsonDocument::Indented);
        if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
            *problem = file.errorString();
            return false;
        }
        values = merged;
        pending.clear();
        stamp = FileStamp::of(path);
        loaded = true;
        return true;
    }

    // Writes what is pending; answers whether the file holds it. Reports a failure.
    bool save(bool *changed)
    {
        std::lock_guard lock(mutex);
        const QVariantMap previous = values;
        QString problem;
        bool ok = true;
        if (pending.isEmpty()) {
            refresh();
        } else if (!write(&problem)) {
            VKLogger::error(logContext("-[VKUserDefaults synchronize]", this),
                            "Cannot write the user defaults to %@: %@", path, problem);
            ok = false;
        }
        if (changed)
            *changed = values != previous;
        return ok;
    }
};

// Every live store, for the flush on aboutToQuit and at exit.
struct Registry
{
    std::mutex mutex;
    std::vector<std::weak_ptr<Store>> stores;
    QPointer<QCoreApplication> connectedApplication;
};

Registry &registry()
{
    static Registry *shared = new Registry; // outlives the exit flush
    return *shared;
}

void flushAll()
{
    std::vector<std::shared_ptr<Store>> live;
    {
        Registry &r = registry();
        std::lock_guard lock(r.mutex);
        for (const auto &weak : r.stores)
            if (auto store = weak.lock())
                live.push_back(std::move(store));
    }
    for (const auto &store : live)
        store->save(nullptr);
}

// Makes sure the application object we run under flushes on aboutToQuit.
void connectApplication()
{
    QCoreApplication *application = QCoreApplication::instance();
    if (!application)
        return;
    Registry &r = registry();
    std::lock_guard lock(r.mutex);
    if (r.connectedApplication == application)
        return;
    r.connectedApplication = application;
    QObject::connect(application, &QCoreApplication::aboutToQuit, application, flushAll,
                     Qt::DirectConnection);
}

void enrol(const std::shared_ptr<Store> &store)
{
    static std::once_flag exitHandler;
    std::call_once(exitHandler, [] { std::atexit(flushAll); });
    {
        Registry &r = registry();
        std::lock_guard lock(r.mutex);
        std::erase_if(r.stores, [](const std::weak_ptr<Store> &weak) { return weak.expired(); });
        r.stores.push_back(store);
    }
    connectApplication();
}

struct Shared
{
    std::mutex mutex;
    QString folder;
    std::shared_ptr<VKUserDefaults> standard;
    QHash<QString, std::shared_ptr<VKUserDefaults>> domains;
};

Shared &shared()
{
    static Shared *instance = new Shared;
    return *instance;
}

bool isUsableIdentifier(const QString &identifier)
{
    return !identifier.isEmpty() && identifier != QLatin1String(".") &&
           identifier != QLatin1String("..") && !identifier.contains(u'/') &&
           !identifier.contains(QChar(0));
}

} // namespace

struct VKUserDefaults::Private
{
    std::shared_ptr<Store> store;

    void postDidChange(VKUserDefaults *sender) const
    {
        VKNotificationCenter::defaultCenter().postNotificationName(
            VKUserDefaultsDidChangeNotification, sender);
    }

    // Runs `body` on the store under its lock after taking in changes made elsewhere, and posts
    // the change notification afterwards if that brought something new.
    template <typename Body>
    auto read(const VKUserDefaults *owner, Body body) const
    {
        bool changed = false;
        auto result = [&] {
            std::lock_guard lock(store->mutex);
            changed = store->refresh();
            return body(*store);
        }();
        if (changed)
            postDidChange(const_cast<VKUserDefaults *>(owner));
        return result;
    }

    void scheduleSave()
    {
        {
            std::lock_guard lock(store->mutex);
            if (store->saveScheduled || !QCoreApplication::instance())
                return;
            store->saveScheduled = true;
        }
        connectApplication();
        const std::weak_ptr<Store> weak = store;
        try {
            VKMainLoopTimer::scheduledTimer(kDeferredSave, [weak](VKMainLoopTimer &) {
                if (const auto store = weak.lock()) {
                    {
                        std::lock_guard lock(store->mutex);
                        store->saveScheduled = false;
                    }
                    store->save(nullptr);
                }
            });
        } catch (const VKException &) {
            // The application object went away meanwhile: the exit flush writes instead.
            std::lock_guard lock(store->mutex);
            store->saveScheduled = false;
        }
    }
};

VKUserDefaults::VKUserDefaults(const QString &filePath) : d(std::make_unique<Private>())
{
    d->store = std::make_shared<Store>(QDir::cleanPath(filePath));
    enrol(d->store);
}

VKUserDefaults::~VKUserDefaults()
{
    d->store->save(nullptr);
}

QString VKUserDefaults::standardUserDefaultsFolder()
{
    Shared &s = shared();
    std::lock_guard lock(s.mutex);
    if (!s.folder.isEmpty())
        return s.folder;
    return VKSearchPaths::libraryDirectory(VKSearchPathDomain::User) +
           QStringLiteral("/Preferences");
}

QString VKUserDefaults::applicationIdentifier()
{
    QString name = QCoreApplication::applicationName();
    if (name.isEmpty())
        name = QStringLiteral("VessanUtilities");
    const QString domain = QCoreApplication::organizationDomain();
    if (domain.isEmpty())
        return name;
    QStringList parts = domain.split(u'.', Qt::SkipEmptyParts);
    std::reverse(parts.begin(), parts.end());
    parts.append(name);
    return parts.join(u'.');
}

std::shared_ptr<VKUserDefaults> VKUserDefaults::standardUserDefaults()
{
    const QString path =
        standardUserDefaultsFolder() + u'/' + applicationIdentifier() + QStringLiteral(".json");
    Shared &s = shared();
    std::lock_guard lock(s.mutex);
    if (!s.standard)
        s.standard = std::make_shared<VKUserDefaults>(path);
    return s.standard;
}

std::shared_ptr<VKUserDefaults> VKUserDefaults::defaultsForDomain(const QString &identifier)
{
    if (!isUsableIdentifier(identifier))
        return nullptr;
    if (identifier == applicationIdentifier())
        return standardUserDefaults();
    const QString path = standardUserDefaultsFolder() + u'/' + identifier + QStringLiteral(".json");
    Shared &s = shared();
    std::lock_guard lock(s.mutex);
    auto &entry = s.domains[identifier];
    if (!entry)
        entry = std::make_shared<VKUserDefaults>(path);
    return entry;
}

void VKUserDefaults::resetStandardUserDefaults()
{
    std::shared_ptr<VKUserDefaults> standard;
    QHash<QString, std::shared_ptr<VKUserDefaults>> domains;
    {
        Shared &s = shared();
        std::lock_guard lock(s.mutex);
        standard = std::move(s.standard);
        s.standard.reset();
        domains.swap(s.domains);
    }
    if (standard)
        standard->synchronize();
    for (const auto &defaults : std::as_const(domains))
        defaults->synchronize();
}

void VKUserDefaults::setStandardUserDefaultsFolder(const QString &folder)
{
    {
        Shared &s = shared();
        std::lock_guard lock(s.mutex);
        s.folder = folder;
    }
    resetStandardUserDefaults();
}

QString VKUserDefaults::filePath() const
{
    return d->store->path;
}

void VKUserDefaults::registerDefaults(const QVariantMap &defaults)
{
    std::lock_guard lock(d->store->mutex);
    for (auto it = defaults.begin(); it != defaults.end(); ++it)
        d->store->registered.insert(it.key(), it.value());
}

QVariantMap VKUserDefaults::registeredDefaults() const
{
    std::lock_guard lock(d->store->mutex);
    return d->store->registered;
}

QVariant VKUserDefaults::objectForKey(const QString &key) const
{
    return d->read(this, [&](const Store &store) {
        const auto it = store.values.find(key);
        return it != store.values.end() ? *it : store.registered.value(key);
    });
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

QByteArray VKUserDefaults::dataForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    return value.typeId() == QMetaType::QByteArray ? value.toByteArray() : QByteArray();
}

bool VKUserDefaults::boolForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString)
        return VKLenientNumber::boolValue(value.toString());
    if (VKNumber::isNumber(value))
        return value.toDouble() != 0.0;
    return false;
}

qint64 VKUserDefaults::integerForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString)
        return VKLenientNumber::longLongValue(value.toString());
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
        return VKLenientNumber::doubleValue(value.toString());
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
    // Kept in the form reading the file back gives, so that a value reads the same before and
    // after the next write.
    const QVariant stored = normalized(value);
    if (!stored.isValid())
        VKException::raise(VKInvalidArgumentException,
                           "Attempt to insert non-property list object %@ for key %@",
                           QString::fromUtf8(value.typeName()), key);
    {
        std::lock_guard lock(d->store->mutex);
        d->store->refresh();
        d->store->pending.insert(key, stored);
        d->store->values.insert(key, stored);
    }
    d->scheduleSave();
    d->postDidChange(this);
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
    if (key.isEmpty())
        return;
    {
        std::lock_guard lock(d->store->mutex);
        d->store->refresh();
        d->store->pending.insert(key, QVariant());
        d->store->values.remove(key);
    }
    d->scheduleSave();
    d->postDidChange(this);
}

bool VKUserDefaults::synchronize()
{
    bool changed = false;
    const bool ok = d->store->save(&changed);
    // Our own pending changes were announced when made; this covers other processes' ones.
    if (changed)
        d->postDidChange(this);
    return ok;
}

QVariantMap VKUserDefaults::dictionaryRepresentation() const
{
    return d->read(this, [](const Store &store) {
        QVariantMap result = store.registered;
        for (auto it = store.values.begin(); it != store.values.end(); ++it)
            result.insert(it.key(), it.value());
        return result;
    });
}

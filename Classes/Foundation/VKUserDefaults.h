// The user's defaults: a persistent key-value store (on QSettings, one JSON file per host
// application) with a registration domain of fallback values and a change notification.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <memory>

// Posted by a defaults object (as sender) after a value was written or removed, on the thread
// that changed it. Its value is its own name.
VK_EXPORT extern const QString VKUserDefaultsDidChangeNotification;

class VK_EXPORT VKUserDefaults
{
public:
    // A store kept in the given file (created on the first write).
    explicit VKUserDefaults(const QString &filePath);
    ~VKUserDefaults();
    VKUserDefaults(const VKUserDefaults &) = delete;
    VKUserDefaults &operator=(const VKUserDefaults &) = delete;

    // The host's defaults, in "<folder>/<organisation>/<application>.json" with the
    // organisation and application names of the application object; the folder is the user's
    // configuration folder unless setStandardUserDefaultsFolder() chose another.
    static std::shared_ptr<VKUserDefaults> standardUserDefaults();
    // Drops the shared instance (after synchronizing it); the next call makes a new one.
    static void resetStandardUserDefaults();
    // Moves the standard store into `folder` (empty: back to the configuration folder) and
    // resets the shared instance. For tests and portable installations.
    static void setStandardUserDefaultsFolder(const QString &folder);

    QString filePath() const;

    // Fallback values that apply only where nothing is stored; merges into earlier ones.
    void registerDefaults(const QVariantMap &defaults);
    QVariantMap registeredDefaults() const;

    // The stored value, else the registered one, else a null QVariant.
    QVariant objectForKey(const QString &key) const;
    // A string, or a number as text; null otherwise.
    QString stringForKey(const QString &key) const;
    // A list; empty when the value is missing or no list.
    QVariantList arrayForKey(const QString &key) const;
    // A list of strings only; empty otherwise.
    QStringList stringArrayForKey(const QString &key) const;
    QVariantMap dictionaryForKey(const QString &key) const;
    // Numbers and booleans convert; text is read leniently ("YES", "true", "12abc" is 12).
    bool boolForKey(const QString &key) const;
    qint64 integerForKey(const QString &key) const;
    double doubleForKey(const QString &key) const;

    // Values must be booleans, numbers, strings, dates, data or lists and dictionaries of
    // those (dates and data are kept as text); anything else throws VKInvalidArgumentException.
    // A null value removes the key.
    void setObject(const QVariant &value, const QString &key);
    void setBool(bool value, const QString &key);
    void setInteger(qint64 value, const QString &key);
    void setDouble(double value, const QString &key);
    void removeObjectForKey(const QString &key);

    // Writes pending changes and reads changes made elsewhere; answers whether it succeeded.
    bool synchronize();
    // Registered values overlaid with the stored ones.
    QVariantMap dictionaryRepresentation() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

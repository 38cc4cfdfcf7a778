// The user's defaults: a persistent key-value store, one JSON file per application identifier,
// with a registration domain of fallback values and a change notification. Several processes
// may share a file: writes are atomic, serialised by a lock file, and merge with what others
// wrote; changes made elsewhere are picked up on the next read.
//
// Where the files live: "<user Library>/Preferences/<identifier>.json", that is
// "$XDG_STATE_HOME/Vessan/Preferences/<identifier>.json" (VKSearchPaths::libraryDirectory of the
// user domain), beside the other per-user "Library" folders. The standard defaults use the
// application's identifier: the organisation domain of the application object reversed, then
// its name ("com.example.Tool" for "example.com" and "Tool"); the name alone without a domain.
// setStandardUserDefaultsFolder() moves the folder (tests, portable installations).
//
// When pending changes reach the disk: on synchronize(), shortly after a change when the main
// loop runs, on QCoreApplication::aboutToQuit, when the object goes and at process exit.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <memory>

// Posted by a defaults object (as sender) after a value was written or removed, on the thread
// that changed it, and after a read or synchronize() found values changed by another process, on
// that thread. Its value is its own name.
VK_EXPORT extern const QString VKUserDefaultsDidChangeNotification;

class VK_EXPORT VKUserDefaults
{
public:
    // A store kept in the given file (created on the first write, with its folder).
    explicit VKUserDefaults(const QString &filePath);
    // Writes pending changes.
    ~VKUserDefaults();
    VKUserDefaults(const VKUserDefaults &) = delete;
    VKUserDefaults &operator=(const VKUserDefaults &) = delete;

    // The application's defaults, in "<folder>/<identifier>.json" (see above). Lives for the
    // process unless reset.
    static std::shared_ptr<VKUserDefaults> standardUserDefaults();
    // The defaults of another application or component, by its bundle identifier, in the same
    // folder ("<folder>/<identifier>.json"); the standard defaults for the application's own
    // identifier. One shared object per identifier. Null for an identifier that cannot name a
    // file (empty, ".", "..", or holding "/" or a NUL character).
    static std::shared_ptr<VKUserDefaults> defaultsForDomain(const QString &identifier);
    // Writes and drops the shared objects; the next calls make new ones.
    static void resetStandardUserDefaults();
    // Moves the folder of the standard and named-domain defaults to `folder` (empty: back to the
    // default folder) and resets the shared objects.
    static void setStandardUserDefaultsFolder(const QString &folder);
    // The folder in use and the application's identifier, as described above.
    static QString standardUserDefaultsFolder();
    static QString applicationIdentifier();

    QString filePath() const;

    // Fallback values that apply only where nothing is stored; merges into earlier ones. They
    // are never written.
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
    // Data; empty when the value is missing or no data.
    QByteArray dataForKey(const QString &key) const;
    // Numbers and booleans convert; text is read leniently (VKLenientNumber: "YES", "true",
    // "12abc" is 12).
    bool boolForKey(const QString &key) const;
    qint64 integerForKey(const QString &key) const;
    double doubleForKey(const QString &key) const;

    // Values must be booleans, numbers, strings, dates, data or lists and dictionaries of those;
    // anything else throws VKInvalidArgumentException. Keys are any non-empty text ("/"
    // included). A null value removes the key. What reads back is what the file gives back:
    // every integer as qlonglong (an unsigned one above its range as qulonglong), every real as
    // double, dates in UTC to the millisecond, data with every byte, string lists as lists.
    void setObject(const QVariant &value, const QString &key);
    void setBool(bool value, const QString &key);
    void setInteger(qint64 value, const QString &key);
    void setDouble(double value, const QString &key);
    void removeObjectForKey(const QString &key);

    // Merges pending changes into the file (under the lock, over what other processes wrote
    // since) and reads changes made elsewhere. Answers whether the file now holds every change;
    // after a failure the changes stay pending and the next call tries again.
    bool synchronize();
    // Registered values overlaid with the stored ones.
    QVariantMap dictionaryRepresentation() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

// Names of the keyed-archive layout shared by the archiver and the unarchiver (not installed).
#pragma once

#include <QByteArray>
#include <QString>

namespace VKKeyedArchive {

inline constexpr char archiverKey[] = "$archiver";
inline constexpr char versionKey[] = "$version";
inline constexpr char topKey[] = "$top";
inline constexpr char objectsKey[] = "$objects";
inline constexpr char nullEntry[] = "$null";
inline constexpr char classKey[] = "$class";
inline constexpr char classNameKey[] = "$classname";
inline constexpr char classesKey[] = "$classes";

// The built-in classes of values.
inline constexpr char arrayClass[] = "VKArray";
inline constexpr char setClass[] = "VKSet";
inline constexpr char dictionaryClass[] = "VKDictionary";
inline constexpr char dateClass[] = "VKDate";
inline constexpr char objectsMember[] = "VK.objects";
inline constexpr char keysMember[] = "VK.keys";
inline constexpr char timeMember[] = "VK.time";

// Caller keys that begin with "$" get one more "$", so they never meet the layout's own keys.
inline QByteArray storedKey(const QString &key)
{
    QByteArray bytes = key.toUtf8();
    if (bytes.startsWith('$'))
        bytes.prepend('$');
    return bytes;
}

} // namespace VKKeyedArchive

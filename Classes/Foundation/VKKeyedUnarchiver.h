// Reads a keyed archive written by VKKeyedArchiver back into objects: each object is made when a
// key that references it is first read (through a decode hook or VKClassRegistry) and is made
// once, however often it is referenced. Hostile archives fail with an error, never a crash.
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <memory>

class VKCoding;

class VK_EXPORT VKKeyedUnarchiver
{
public:
    // Asked first for every object to make, with its class name and the class names the
    // archive lists for it (the class, then its bases). An object it answers is used; a null
    // answer falls back to VKClassRegistry (so the hook may load the plug-in of a class and
    // answer null).
    using DecodeHook = std::function<std::shared_ptr<VKCoding>(const QString &className,
                                                               const QStringList &classes)>;

    // Objects nested deeper than this (an object being read while reading another, ...) fail
    // the decoding rather than the stack.
    static constexpr int maximumDepth = 1000;

    // Reads the archive's tables; a failure shows in error() and every decode answers nothing.
    explicit VKKeyedUnarchiver(const QByteArray &data);
    ~VKKeyedUnarchiver();
    VKKeyedUnarchiver(const VKKeyedUnarchiver &) = delete;
    VKKeyedUnarchiver &operator=(const VKKeyedUnarchiver &) = delete;

    // The object under "root", or null (and `error`) when the archive cannot be read or the
    // root is not an object.
    [[nodiscard]] static std::shared_ptr<VKCoding>
    unarchivedObjectWithData(const QByteArray &data, VKError *error = nullptr,
                             const DecodeHook &hook = {});
    // The same, failing when the root object is not a T.
    template <typename T>
    [[nodiscard]] static std::shared_ptr<T> unarchivedObjectOfClass(const QByteArray &data,
                                                                    VKError *error = nullptr,
                                                                    const DecodeHook &hook = {})
    {
        VKKeyedUnarchiver coder(data);
        coder.setDecodeHook(hook);
        std::shared_ptr<T> object = coder.template decodeObjectOfClass<T>(rootKey());
        if (object && !coder.finishDecoding(error))
            return nullptr;
        if (!object)
            VKError::fill(error, coder.hasFailed() ? coder.error() : coder.missingRootError());
        return object;
    }

    void setDecodeHook(DecodeHook hook);

    // Reads of the object being decoded (at first the top level). A missing key answers
    // nothing (false, 0, null) without failing; a value of the wrong type fails the decoding.
    // After a failure every read answers nothing.
    bool containsValueForKey(const QString &key) const;
    bool decodeBool(const QString &key);
    qint64 decodeInteger(const QString &key);
    // Fails when the stored integer does not fit.
    qint32 decodeInt32(const QString &key);
    // Integers are read as doubles too.
    double decodeDouble(const QString &key);
    QString decodeString(const QString &key);
    QByteArray decodeData(const QString &key);
    std::shared_ptr<VKCoding> decodeObject(const QString &key);
    // Fails when the object is not a T.
    template <typename T>
    std::shared_ptr<T> decodeObjectOfClass(const QString &key)
    {
        std::shared_ptr<VKCoding> object = decodeObject(key);
        std::shared_ptr<T> typed = std::dynamic_pointer_cast<T>(object);
        if (object && !typed)
            failWithWrongClass(key, object);
        return typed;
    }
    // Any value (see VKKeyedArchiver::encodeValue); sets come back as lists, objects as
    // VKCoding::variantWithObject values, nil as a null QVariant.
    QVariant decodeValue(const QString &key);
    // The members of a set (or of a list) written under `key`.
    QVariantList decodeSet(const QString &key);

    // Fails the whole decoding; the first failure is kept.
    void failWithError(const VKError &error);
    bool hasFailed() const;
    VKError error() const;
    // True when nothing failed; fills `error` otherwise.
    bool finishDecoding(VKError *error = nullptr) const;

private:
    static QString rootKey();
    VKError missingRootError() const;
    void failWithWrongClass(const QString &key, const std::shared_ptr<VKCoding> &object);

    struct Private;
    std::unique_ptr<Private> d;
};

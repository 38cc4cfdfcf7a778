// One-way display transformers that bind sizes, copy speeds, durations and dates to text
// fields. None of them can reverse, and each produces a QString.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKValueTransformer.h"

#include <QMetaType>
#include <QString>
#include <QVariant>

// A number (a byte count) to its size text ("1.5 MB"); anything else to a null variant.
class VK_EXPORT VKByteCountToHumanReadableStringValueTransformer : public VKValueTransformer
{
public:
    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QString className() const override;
};

// A number (bytes per second) to its speed text ("12.5 MB/s"); anything else to a null variant.
class VK_EXPORT VKBytesPerSecondToHumanReadableStringValueTransformer : public VKValueTransformer
{
public:
    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QString className() const override;
};

// A number of seconds, taken as a 32-bit float, to its duration text ("3 min 05 s"); anything
// else to a null variant.
class VK_EXPORT VKTimeIntervalToHumanReadableStringValueTransformer : public VKValueTransformer
{
public:
    QMetaType transformedValueClass() const override;
    bool allowsReverseTransformation() const override;
    QVariant transformedValue(const QVariant &value) const override;
    QString className() const override;
};

// A date (QDateTime) to its text relative to today ("Yesterday, 09:12"). It is a class of its
// own, not a VKValueTransformer, with the same operations; so it cannot go into the
// transformer registry. A null variant gives a null variant; any other kind of value throws
// VKInvalidArgumentException with the reason "Value is not of kind NSDate".
class VK_EXPORT VKDateToHumanReadableStringValueTransformer
{
public:
    QMetaType transformedValueClass() const;
    bool allowsReverseTransformation() const;
    QVariant transformedValue(const QVariant &value) const;
    QString className() const;
};

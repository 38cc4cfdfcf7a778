#include "Files/VKHumanReadableValueTransformers.h"

#include "Files/VKFileSize.h"
#include "Foundation/VKNumber.h"
#include "Foundation/VKException.h"
#include "Foundation/VKHumanReadable.h"

#include <QDateTime>

namespace {

const QMetaType kStringType = QMetaType::fromType<QString>();

} // namespace

QMetaType VKByteCountToHumanReadableStringValueTransformer::transformedValueClass() const
{
    return kStringType;
}

bool VKByteCountToHumanReadableStringValueTransformer::allowsReverseTransformation() const
{
    return false;
}

QVariant
VKByteCountToHumanReadableStringValueTransformer::transformedValue(const QVariant &value) const
{
    if (!VKNumber::isNumber(value))
        return {};
    return VKFileSize::humanReadableFileSizeStringFromByteCount(VKFileSize::byteCountValue(value));
}

QString VKByteCountToHumanReadableStringValueTransformer::className() const
{
    return QStringLiteral("VKByteCountToHumanReadableStringValueTransformer");
}

QMetaType VKBytesPerSecondToHumanReadableStringValueTransformer::transformedValueClass() const
{
    return kStringType;
}

bool VKBytesPerSecondToHumanReadableStringValueTransformer::allowsReverseTransformation() const
{
    return false;
}

QVariant
VKBytesPerSecondToHumanReadableStringValueTransformer::transformedValue(const QVariant &value) const
{
    if (!VKNumber::isNumber(value))
        return {};
    return VKFileSize::humanReadableCopySpeedStringFromBytesPerSecond(
        VKFileSize::byteCountValue(value));
}

QString VKBytesPerSecondToHumanReadableStringValueTransformer::className() const
{
    return QStringLiteral("VKBytesPerSecondToHumanReadableStringValueTransformer");
}

QMetaType VKTimeIntervalToHumanReadableStringValueTransformer::transformedValueClass() const
{
    return kStringType;
}

bool VKTimeIntervalToHumanReadableStringValueTransformer::allowsReverseTransformation() const
{
    return false;
}

QVariant
VKTimeIntervalToHumanReadableStringValueTransformer::transformedValue(const QVariant &value) const
{
    if (!VKNumber::isNumber(value))
        return {};
    // Durations are shown at the precision of a float, whatever the number held.
    const float seconds = value.toFloat();
    return VKHumanReadable::humanReadableStringForDuration(seconds);
}

QString VKTimeIntervalToHumanReadableStringValueTransformer::className() const
{
    return QStringLiteral("VKTimeIntervalToHumanReadableStringValueTransformer");
}

QMetaType VKDateToHumanReadableStringValueTransformer::transformedValueClass() const
{
    return kStringType;
}

bool VKDateToHumanReadableStringValueTransformer::allowsReverseTransformation() const
{
    return false;
}

QVariant VKDateToHumanReadableStringValueTransformer::transformedValue(const QVariant &value) const
{
    if (!value.isValid() || value.metaType().id() == QMetaType::Nullptr)
        return {};
    if (value.metaType().id() != QMetaType::QDateTime)
        VKException::raise(VKInvalidArgumentException, "Value is not of kind NSDate");
    return VKHumanReadable::humanReadableString(value.toDateTime());
}

QString VKDateToHumanReadableStringValueTransformer::className() const
{
    return QStringLiteral("VKDateToHumanReadableStringValueTransformer");
}

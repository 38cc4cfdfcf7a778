#include "Interface/VKDisplayValueTransformers.h"

#include "Foundation/VKLenientNumber.h"
#include "Foundation/VKException.h"
#include "Foundation/VKFormat.h"
#include "Foundation/VKNumber.h"
#include "Interface/VKOrderedSet.h"

#include <QColor>
#include <QFile>
#include <QFileInfo>
#include <QIcon>

#include <cmath>
#include <limits>

namespace {

bool isFloatingPoint(const QVariant &value)
{
    const int id = value.metaType().id();
    return id == QMetaType::Double || id == QMetaType::Float;
}

// A floating-point value cut toward zero and saturated to the integer type; NaN is 0.
template <typename Int>
Int saturatedInteger(double value)
{
    if (std::isnan(value))
        return 0;
    if (value <= double(std::numeric_limits<Int>::min()))
        return std::numeric_limits<Int>::min();
    if (value >= double(std::numeric_limits<Int>::max()))
        return std::numeric_limits<Int>::max();
    return static_cast<Int>(value);
}

// A number's signed 64-bit value: unsigned integers wrap as a C conversion does.
qint64 int64Value(const QVariant &number)
{
    if (isFloatingPoint(number))
        return saturatedInteger<qint64>(number.toDouble());
    if (number.metaType().id() == QMetaType::ULongLong ||
        number.metaType().id() == QMetaType::ULong)
        return static_cast<qint64>(number.toULongLong());
    return number.toLongLong();
}

// A number's 32-bit value: integers keep their low 32 bits.
qint32 int32Value(const QVariant &number)
{
    if (isFloatingPoint(number))
        return saturatedInteger<qint32>(number.toDouble());
    return static_cast<qint32>(static_cast<quint32>(int64Value(number)));
}

// A text's boolean value: after white space, an optional sign and leading zeros, "Y", "y",
// "T", "t" or a digit 1-9 is true; anything else is false.
bool textBoolValue(const QString &text)
{
    qsizetype i = 0;
    while (i < text.size() &&
           (text.at(i) == u'\t' || text.at(i).category() == QChar::Separator_Space))
        ++i;
    if (i < text.size() && (text.at(i) == u'+' || text.at(i) == u'-'))
        ++i;
    while (i < text.size() && text.at(i) == u'0')
        ++i;
    if (i == text.size())
        return false;
    const QChar c = text.at(i);
    return c == u'Y' || c == u'y' || c == u'T' || c == u't' || (c >= u'1' && c <= u'9');
}

// The boolean value of a model value; no value (or one without a boolean value) is false.
bool boolValue(const QVariant &value)
{
    if (VKNumber::isNumber(value))
        return isFloatingPoint(value) ? value.toDouble() != 0.0 : int64Value(value) != 0;
    if (value.metaType().id() == QMetaType::QString)
        return textBoolValue(value.toString());
    return false;
}

// Colours as the platform names them: black, and dark grey at a third of white.
QColor blackColor()
{
    return QColor::fromRgbF(0.0f, 0.0f, 0.0f, 1.0f);
}

QColor darkGrayColor()
{
    return QColor::fromRgbF(1.0f / 3.0f, 1.0f / 3.0f, 1.0f / 3.0f, 1.0f);
}

QVariant colorVariant(const QColor &color)
{
    return QVariant::fromValue(color);
}

QVariant flag(const QVariant &value, bool (*test)(qint32))
{
    if (!VKNumber::isNumber(value))
        return {};
    return QVariant(test(int32Value(value)));
}

QVariant formatted(const QVariant &value, const char *format)
{
    if (!VKNumber::isNumber(value))
        return {};
    return vkFormat(QString::fromLatin1(format), double(value.toFloat()));
}

// Whatever it is, asked for its float value.
QVariant floatValueOf(const QVariant &value)
{
    if (value.metaType().id() == QMetaType::QString)
        return QVariant(VKLenientNumber::floatValue(value.toString()));
    return QVariant(value.toFloat());
}

[[noreturn]] void cannotReverse(const QString &className)
{
    VKException::raise(VKInvalidArgumentException, "%@ does not support reverse transformation",
                       className);
}

QString imageResourcePath(const QString &name)
{
    if (name.isEmpty())
        return {};
    static const char *const folders[] = {":/", ":/images/"};
    static const char *const extensions[] = {".png", ".svg", ".jpg", ".ico"};
    const bool hasExtension = !QFileInfo(name).suffix().isEmpty();
    for (const char *folder : folders) {
        const QString base = QString::fromLatin1(folder) + name;
        if (QFile::exists(base) && QFileInfo(base).isFile())
            return base;
        if (hasExtension)
            continue;
        for (const char *extension : extensions) {
            const QString path = base + QString::fromLatin1(extension);
            if (QFile::exists(path))
                return path;
        }
    }
    return {};
}

const QMetaType kColorType = QMetaType::fromType<QColor>();
const QMetaType kBoolType = QMetaType::fromType<bool>();
const QMetaType kFloatType = QMetaType::fromType<float>();
const QMetaType kStringType = QMetaType::fromType<QString>();

} // namespace

void VKRegisterDisplayValueTransformers()
{
    const auto add = [](std::shared_ptr<VKValueTransformer> t) {
        const QString name = t->className();
        VKValueTransformer::setValueTransformer(std::move(t), name);
    };
    add(std::make_shared<VDEnabledStateToTextColorValueTransformer>());
    add(std::make_shared<VDDisabledStateToTextColorValueTransformer>());
    add(std::make_shared<VDEnabledStateToRedTextColorValueTransformer>());
    add(std::make_shared<VKGreaterThanZeroValueTransformer>());
    add(std::make_shared<VKGreaterThanOneValueTransformer>());
    add(std::make_shared<VKGreaterThanTwoValueTransformer>());
    add(std::make_shared<VKIsValidPortNumberValueTransformer>());
    add(std::make_shared<VKOrderedSetToArrayValueTransformer>());
    add(std::make_shared<VKImageNameToImageValueTransformer>());
    add(std::make_shared<VDMultiplyByTwoValueTransformer>());
    add(std::make_shared<VKThreeDigitsFloat>());
    add(std::make_shared<VKPlusMinusThreeDigitsFloat>());
    add(std::make_shared<VKInteger>());
    add(std::make_shared<VKPlusMinusInteger>());
}

// Defines the operations every one-way transformer answers alike.
#define VK_ONE_WAY(Class, Produces)                                                                \
    QMetaType Class::transformedValueClass() const                                                 \
    {                                                                                              \
        return Produces;                                                                           \
    }                                                                                              \
    bool Class::allowsReverseTransformation() const                                                \
    {                                                                                              \
        return false;                                                                              \
    }                                                                                              \
    QVariant Class::reverseTransformedValue(const QVariant &) const                                \
    {                                                                                              \
        cannotReverse(className());                                                                \
    }                                                                                              \
    QString Class::className() const                                                               \
    {                                                                                              \
        return QStringLiteral(#Class);                                                             \
    }

#define VK_TWO_WAY(Class, Produces)                                                                \
    QMetaType Class::transformedValueClass() const                                                 \
    {                                                                                              \
        return Produces;                                                                           \
    }                                                                                              \
    bool Class::allowsReverseTransformation() const                                                \
    {                                                                                              \
        return true;                                                                               \
    }                                                                                              \
    QString Class::className() const                                                               \
    {                                                                                              \
        return QStringLiteral(#Class);                                                             \
    }

// State to colour

VK_ONE_WAY(VDEnabledStateToTextColorValueTransformer, kColorType)

QVariant VDEnabledStateToTextColorValueTransformer::transformedValue(const QVariant &value) const
{
    return colorVariant(boolValue(value) ? blackColor() : darkGrayColor());
}

VK_ONE_WAY(VDDisabledStateToTextColorValueTransformer, kColorType)

QVariant VDDisabledStateToTextColorValueTransformer::transformedValue(const QVariant &value) const
{
    return colorVariant(boolValue(value) ? darkGrayColor() : blackColor());
}

VK_ONE_WAY(VDEnabledStateToRedTextColorValueTransformer, kColorType)

QVariant VDEnabledStateToRedTextColorValueTransformer::transformedValue(const QVariant &value) const
{
    // A device-RGB colour; QColor's RGB is sRGB, which is what a device-RGB red shows as here.
    return colorVariant(boolValue(value) ? QColor::fromRgbF(0.8f, 0.0f, 0.0f, 1.0f) : blackColor());
}

// Threshold flags

VK_ONE_WAY(VKGreaterThanZeroValueTransformer, kBoolType)

QVariant VKGreaterThanZeroValueTransformer::transformedValue(const QVariant &value) const
{
    return flag(value, [](qint32 v) { return v >= 1; });
}

VK_ONE_WAY(VKGreaterThanOneValueTransformer, kBoolType)

QVariant VKGreaterThanOneValueTransformer::transformedValue(const QVariant &value) const
{
    return flag(value, [](qint32 v) { return v >= 2; });
}

VK_ONE_WAY(VKGreaterThanTwoValueTransformer, kBoolType)

QVariant VKGreaterThanTwoValueTransformer::transformedValue(const QVariant &value) const
{
    return flag(value, [](qint32 v) { return v >= 3; });
}

VK_ONE_WAY(VKLessThanZeroValueTransformer, kBoolType)

QVariant VKLessThanZeroValueTransformer::transformedValue(const QVariant &value) const
{
    return flag(value, [](qint32 v) { return v < 0; });
}

VK_ONE_WAY(VKLessThanOneValueTransformer, kBoolType)

QVariant VKLessThanOneValueTransformer::transformedValue(const QVariant &value) const
{
    return flag(value, [](qint32 v) { return v < 1; });
}

VK_ONE_WAY(VKLessThanTwoValueTransformer, kBoolType)

QVariant VKLessThanTwoValueTransformer::transformedValue(const QVariant &value) const
{
    return flag(value, [](qint32 v) { return v < 2; });
}

// Port numbers

VK_ONE_WAY(VKIsValidPortNumberValueTransformer, kBoolType)

QVariant VKIsValidPortNumberValueTransformer::transformedValue(const QVariant &value) const
{
    if (!VKNumber::isNumber(value))
        return QVariant(false);
    const qint64 port = int64Value(value);
    return QVariant(port > 1023 && port < 65536);
}

// Ordered set to array

VK_TWO_WAY(VKOrderedSetToArrayValueTransformer, QMetaType::fromType<QVariantList>())

QVariant VKOrderedSetToArrayValueTransformer::transformedValue(const QVariant &value) const
{
    if (value.metaType() != QMetaType::fromType<VKOrderedSet>())
        return {};
    return QVariant(value.value<VKOrderedSet>().array());
}

QVariant VKOrderedSetToArrayValueTransformer::reverseTransformedValue(const QVariant &value) const
{
    const int id = value.metaType().id();
    if (id != QMetaType::QVariantList && id != QMetaType::QStringList)
        return {};
    return QVariant::fromValue(VKOrderedSet::orderedSetWithArray(value.toList()));
}

// Image names

VK_ONE_WAY(VKImageNameToImageValueTransformer, QMetaType::fromType<QIcon>())

QVariant VKImageNameToImageValueTransformer::transformedValue(const QVariant &value) const
{
    if (value.metaType().id() != QMetaType::QString)
        return {};
    const QString path = imageResourcePath(value.toString());
    if (path.isEmpty())
        return {};
    return QVariant::fromValue(QIcon(path));
}

// Doubling scale

VK_TWO_WAY(VDMultiplyByTwoValueTransformer, kFloatType)

QVariant VDMultiplyByTwoValueTransformer::transformedValue(const QVariant &value) const
{
    if (!VKNumber::isNumber(value))
        return {};
    return QVariant(value.toFloat() * 2.0f);
}

QVariant VDMultiplyByTwoValueTransformer::reverseTransformedValue(const QVariant &value) const
{
    if (!VKNumber::isNumber(value))
        return {};
    return QVariant(value.toFloat() / 2.0f);
}

// Number formats

VK_TWO_WAY(VKThreeDigitsFloat, kStringType)

QVariant VKThreeDigitsFloat::transformedValue(const QVariant &value) const
{
    return formatted(value, "%.3f");
}

QVariant VKThreeDigitsFloat::reverseTransformedValue(const QVariant &value) const
{
    return floatValueOf(value);
}

VK_TWO_WAY(VKPlusMinusThreeDigitsFloat, kStringType)

QVariant VKPlusMinusThreeDigitsFloat::transformedValue(const QVariant &value) const
{
    return formatted(value, "%+.3f");
}

QVariant VKPlusMinusThreeDigitsFloat::reverseTransformedValue(const QVariant &value) const
{
    return floatValueOf(value);
}

VK_TWO_WAY(VKInteger, kStringType)

QVariant VKInteger::transformedValue(const QVariant &value) const
{
    return formatted(value, "%.0f");
}

QVariant VKInteger::reverseTransformedValue(const QVariant &value) const
{
    return floatValueOf(value);
}

VK_TWO_WAY(VKPlusMinusInteger, kStringType)

QVariant VKPlusMinusInteger::transformedValue(const QVariant &value) const
{
    return formatted(value, "%+.0f");
}

QVariant VKPlusMinusInteger::reverseTransformedValue(const QVariant &value) const
{
    return floatValueOf(value);
}

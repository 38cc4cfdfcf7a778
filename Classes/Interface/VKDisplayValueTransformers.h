// Display transformers for binding controls to model values: state to text colour, threshold
// flags, a port-number test, number formats, a doubling scale, ordered sets to arrays and image
// names to images. Colours are QColor, images QIcon, ordered sets VKOrderedSet.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKValueTransformer.h"

// Registers one shared instance of each transformer derived from VKValueTransformer under its
// class name. The three "less than" flags are not transformers of that kind and are left out.
VK_EXPORT void VKRegisterDisplayValueTransformers();

// Declares the four operations and the class name of a display transformer.
#define VK_DISPLAY_TRANSFORMER_OPERATIONS(Override)                                                \
    QMetaType transformedValueClass() const Override;                                              \
    bool allowsReverseTransformation() const Override;                                             \
    QVariant transformedValue(const QVariant &value) const Override;                               \
    QVariant reverseTransformedValue(const QVariant &value) const Override;                        \
    QString className() const Override;

// State (the boolean value of the input; no value is false) to a text colour. Not reversible.

// True: black; false: dark grey (a third of white).
class VK_EXPORT VDEnabledStateToTextColorValueTransformer : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// True: dark grey; false: black.
class VK_EXPORT VDDisabledStateToTextColorValueTransformer : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// True: red 0.8, green 0, blue 0, alpha 1; false: black.
class VK_EXPORT VDEnabledStateToRedTextColorValueTransformer : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// Threshold flags on the input's 32-bit integer value (fractions cut toward zero, so 1.9 is 1;
// integers wider than 32 bits keep their low 32 bits; floating-point values beyond the range
// saturate and NaN is 0). A bool for a number, a null variant for anything else.

// At least 1.
class VK_EXPORT VKGreaterThanZeroValueTransformer : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// At least 2.
class VK_EXPORT VKGreaterThanOneValueTransformer : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// At least 3.
class VK_EXPORT VKGreaterThanTwoValueTransformer : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// The "less than" flags are plain classes, not VKValueTransformer, with the same operations;
// their reverse throws as a transformer's does when it cannot reverse.

// Below 0.
class VK_EXPORT VKLessThanZeroValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS()
};

// Below 1.
class VK_EXPORT VKLessThanOneValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS()
};

// Below 2.
class VK_EXPORT VKLessThanTwoValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS()
};

// A number whose signed 64-bit value is 1024..65535: true; any other number or value: false
// (never a null variant).
class VK_EXPORT VKIsValidPortNumberValueTransformer : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// A VKOrderedSet to its elements as a QVariantList, and a list back to an ordered set (later
// duplicates dropped). Other values give a null variant.
class VK_EXPORT VKOrderedSetToArrayValueTransformer : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// A name to the QIcon of that image in the application's resources (":/<name>" or
// ":/images/<name>", trying ".png", ".svg", ".jpg" and ".ico" when the name has no extension);
// a null variant when there is none or the value is not a string.
class VK_EXPORT VKImageNameToImageValueTransformer : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// A number's single-precision value times 2, and divided by 2 in reverse, as a float.
class VK_EXPORT VDMultiplyByTwoValueTransformer : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// Number formats: a number's single-precision value, widened to double, printed as the C
// library does (exact halves round to even). The reverse reads the float value of whatever it
// gets (a text's leading number, 0 when it has none) and answers it as a float.

// "%.3f".
class VK_EXPORT VKThreeDigitsFloat : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// "%+.3f".
class VK_EXPORT VKPlusMinusThreeDigitsFloat : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// "%.0f".
class VK_EXPORT VKInteger : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

// "%+.0f".
class VK_EXPORT VKPlusMinusInteger : public VKValueTransformer
{
public:
    VK_DISPLAY_TRANSFORMER_OPERATIONS(override)
};

#undef VK_DISPLAY_TRANSFORMER_OPERATIONS

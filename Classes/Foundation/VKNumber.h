// What counts as a number among dynamic values: the integer types of every width, bool and the
// floating-point types, as number objects of the platform hold them. Strings of digits are not
// numbers.
#pragma once

#include "Foundation/VKExport.h"

#include <QVariant>

class VK_EXPORT VKNumber
{
public:
    static bool isNumber(const QVariant &value);
};

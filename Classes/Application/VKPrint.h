// Prints one formatted line on standard output, for command-line tools.
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKFormat.h"

#include <QList>
#include <QString>

// Formats the message (printf conversions plus "%@"), doubles every "%%" of the finished
// message to "%%%%", and prints it followed by a line break in UTF-8. A null format prints
// "nil". The doubling is kept for tools whose output is parsed by scripts that expect it.
VK_EXPORT void VKPrintArguments(const QString &format, const QList<VKFormatArgument> &arguments);

template <typename... Args>
void VKPrint(const QString &format, const Args &...arguments)
{
    VKPrintArguments(format, QList<VKFormatArgument>{VKFormatArgument(arguments)...});
}

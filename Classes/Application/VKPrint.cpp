#include "Application/VKPrint.h"

#include <cstdio>

void VKPrintArguments(const QString &format, const QList<VKFormatArgument> &arguments)
{
    if (format.isNull()) {
        std::printf("nil\n");
        return;
    }
    QString message = VKFormat::format(format, arguments);
    message.replace(QStringLiteral("%%"), QStringLiteral("%%%%"));
    std::printf("%s\n", message.toUtf8().constData());
}

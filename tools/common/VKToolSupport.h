// Small pieces the command-line tools share: writing UTF-8 text to a stream and ending a run.
#pragma once

#include "Application/VKApplication.h"

#include <QString>

#include <cstdio>

// Writes `text` as UTF-8, unchanged (no format processing, no added line break).
inline void vkToolWrite(FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
}

// Flushes standard output, then sets the exit code and marks the run finished, in that order.
inline void vkToolFinish(VKApplication &application, int exitCode)
{
    std::fflush(stdout);
    application.setExitCode(exitCode);
    application.setFinished(true);
}

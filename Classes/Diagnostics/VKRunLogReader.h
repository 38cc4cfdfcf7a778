// Finds the application's own run logs ("<application>*.vqnLog") in the "Logs/Vessan" folders.
#pragma once

#include "Diagnostics/VKLogReader.h"

class VK_EXPORT VKRunLogReader : public VKLogReader
{
public:
    using VKLogReader::VKLogReader;

    // Each "Library" folder + "Logs/Vessan".
    QStringList searchPaths() const override;
    QString filePathExtension() const override; // "vqnLog"
    QString userDefaultsKey() const override;   // "SentRunLogFilePaths"
};

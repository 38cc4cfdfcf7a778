// Finds the system's crash and hang reports of one application in the "Logs/DiagnosticReports"
// folders, and can strip the list of loaded binary images from their text.
#pragma once

#include "Diagnostics/VKLogReader.h"

// The user-defaults key of the sent crash reports ("SentCrashLogFilePaths").
VK_EXPORT extern const QString kVKSentCrashLogFilePaths;

class VK_EXPORT VKCrashLogReader : public VKLogReader
{
public:
    VKCrashLogReader(const QString &applicationName, const QDateTime &earliestReportDate,
                     bool stripBinaryImagesDescription = false);

    bool stripBinaryImagesDescription() const;
    void setStripBinaryImagesDescription(bool strip);

    // Each "Library" folder + "Logs/DiagnosticReports".
    QStringList searchPaths() const override;
    QString userDefaultsKey() const override;
    // The newest unsent report, stripped when stripBinaryImagesDescription() is set.
    QString recentLogString() const override;

    // Removes each section that starts with "Binary Images Description:" or, failing that,
    // "Binary Images:" (any case) up to and including the next blank line. A section with no
    // blank line after it throws VKException VKRangeException. Null in, null out.
    static QString stripBinaryImages(const QString &text);

private:
    bool m_strip;
};

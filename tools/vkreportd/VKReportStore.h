// Stores the parts of one uploaded report as a folder of its own under the server's folder:
// one file per field, attachments under safe names, zip archives unpacked beside them. Every
// upload is treated as hostile: names are reduced to safe base names, archives are unpacked
// with limits, and a report is written into a temporary folder that is renamed into place
// only when complete, so that a refused or failed report leaves nothing behind.
#pragma once

#include "VKMultipartReader.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

class VKReportStore
{
public:
    enum Status {
        Stored,
        TooLarge, // an archive broke a limit: nothing stored
        Failed,   // the disk refused: nothing stored
    };

    struct Result
    {
        Status status = Failed;
        QString error;      // why it was not stored
        QString folderName; // "<yyyyMMdd-HHmmss>-<n>" under the server's folder
        int fieldCount = 0;
        int fileCount = 0;
        int archiveCount = 0;
        qint64 byteCount = 0; // of the fields and attachments as received
        QStringList notes;    // what was left undone, such as an archive that could not be read
    };

    // The name of the manifest in each report folder.
    static constexpr char manifestName[] = "_parts.tsv";

    explicit VKReportStore(const QString &folder, const VKUploadLimits &limits = {});

    // Writes the report received at `receivedAt` (its UTC time names the folder).
    [[nodiscard]] Result store(const QList<VKMultipartPart> &parts, const QDateTime &receivedAt);

    // A name that is safe as one file name in a folder: the last path component of `name`
    // (after "/" or "\"), letters, digits and " ._-+,()@" kept, anything else turned into "_",
    // no leading dot or blank, at most 200 UTF-8 bytes; "unnamed" when nothing is left.
    static QString safeBaseName(const QByteArray &name);

private:
    QString m_folder;
    VKUploadLimits m_limits;
};

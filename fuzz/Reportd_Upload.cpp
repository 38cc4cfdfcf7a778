// Feeds arbitrary bytes to the report server's upload reader as a request body, and stores
// whatever it accepts (archives included) under a throw-away folder with small limits.
#include "VKMultipartReader.h"
#include "VKReportStore.h"

#include <QDateTime>
#include <QDir>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir folder;
    VKUploadLimits limits;
    limits.maxBodyBytes = 1 << 20;
    limits.maxUnpackedBytes = 1 << 20;
    limits.maxArchiveEntries = 64;
    const QByteArray body(reinterpret_cast<const char *>(data), qsizetype(size));
    const auto form = VKMultipartReader::read(body, "0xKh3mLbOuNdArY", limits);
    if (form.status != VKMultipartReader::Ok || form.parts.isEmpty())
        return 0;
    const auto stored =
        VKReportStore(folder.path(), limits).store(form.parts, QDateTime::currentDateTimeUtc());
    if (stored.status == VKReportStore::Stored) {
        // Every stored name must stay inside the report's folder.
        QDir report(QDir(folder.path()).filePath(stored.folderName));
        for (const QString &name : report.entryList(QDir::AllEntries | QDir::NoDotAndDotDot |
                                                    QDir::Hidden | QDir::System)) {
            if (name.contains(u'/') || name.startsWith(u'.'))
                __builtin_trap();
        }
        report.removeRecursively();
    }
    // A refused report leaves nothing beside the finished ones.
    if (!QDir(folder.path())
             .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)
             .isEmpty())
        __builtin_trap();
    return 0;
}

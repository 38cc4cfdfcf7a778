#include "Diagnostics/VKJournalSearch.h"

#include <QFile>
#include <QMutex>

#include <systemd/sd-journal.h>

#include <memory>

namespace {

QMutex &directoryMutex()
{
    static QMutex mutex;
    return mutex;
}

QString &directory()
{
    static QString folder;
    return folder;
}

struct JournalCloser
{
    void operator()(sd_journal *journal) const { sd_journal_close(journal); }
};

} // namespace

void VKJournalSearch::setJournalDirectory(const QString &folder)
{
    QMutexLocker locker(&directoryMutex());
    directory() = folder;
}

QString VKJournalSearch::journalDirectory()
{
    QMutexLocker locker(&directoryMutex());
    return directory();
}

std::optional<QStringList> VKJournalSearch::messages(const QString &identifier, qint64 afterSeconds)
{
    const QString folder = journalDirectory();
    sd_journal *raw = nullptr;
    const int opened =
        folder.isEmpty()
            ? sd_journal_open(&raw, SD_JOURNAL_LOCAL_ONLY)
            : sd_journal_open_directory(&raw, QFile::encodeName(folder).constData(), 0);
    if (opened < 0 || !raw)
        return std::nullopt;
    std::unique_ptr<sd_journal, JournalCloser> journal(raw);

    const QByteArray match = "SYSLOG_IDENTIFIER=" + identifier.toUtf8();
    if (sd_journal_add_match(raw, match.constData(), size_t(match.size())) < 0)
        return std::nullopt;
    // Entries of the chosen second itself are not after it: start at the next whole second.
    const quint64 startMicroseconds = afterSeconds < 0 ? 0 : quint64(afterSeconds + 1) * 1000000u;
    if (sd_journal_seek_realtime_usec(raw, startMicroseconds) < 0)
        return std::nullopt;

    QStringList found;
    for (;;) {
        const int step = sd_journal_next(raw);
        if (step < 0)
            return std::nullopt;
        if (step == 0)
            break;
        uint64_t when = 0;
        if (sd_journal_get_realtime_usec(raw, &when) < 0 || qint64(when / 1000000u) <= afterSeconds)
            continue; // entries are ordered by sequence, not by clock: check each one
        const void *data = nullptr;
        size_t length = 0;
        if (sd_journal_get_data(raw, "MESSAGE", &data, &length) < 0)
            continue;
        const QByteArray field(static_cast<const char *>(data), qsizetype(length));
        found.append(QString::fromUtf8(field.mid(int(sizeof("MESSAGE=")) - 1)));
    }
    return found;
}

// Searches the systemd journal for an application's own messages: entries whose
// SYSLOG_IDENTIFIER is the application's identifier (what VKJournalLogSink writes) and whose
// time lies after a given second.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>

#include <optional>

class VK_EXPORT VKJournalSearch
{
public:
    // The MESSAGE texts (UTF-8) of entries with SYSLOG_IDENTIFIER `identifier` whose wall-clock
    // time, in whole seconds since 1970, is greater than `afterSeconds`, oldest first. Nothing
    // when the journal cannot be opened or read.
    static std::optional<QStringList> messages(const QString &identifier, qint64 afterSeconds);

    // Where the journal is read: a folder of journal files (empty, the default: the local
    // machine's journal). Tests point it at files they made.
    static void setJournalDirectory(const QString &folder);
    static QString journalDirectory();

private:
    VKJournalSearch() = delete;
};

// Shared parts of the reporter tests: a private folder tree for the user's files, the report
// server run as a process, and a journal writer.
#pragma once

#include "Diagnostics/VKCrashReporter.h"
#include "Diagnostics/VKInterfaceDescription.h"
#include "Diagnostics/VKJournalSearch.h"
#include "Diagnostics/VKUsageLogger.h"
#include "Diagnostics/VKUserCard.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKUserDefaults.h"

#include "VKReportServerProcess.h"
#include "VKTestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>

#include <gtest/gtest.h>

// A stored report as one comparable list, a line per part in the order sent: a field with its
// text, an attachment with the file name sent, an archive with its entries ("name=bytes", or
// only the names for the archives in `namesOnly`).
inline QStringList partsOf(const VKStoredReport &report, const QStringList &namesOnly = {})
{
    QStringList lines;
    for (const QString &part : report.parts) {
        const QString kind = part.section(u' ', 0, 0), name = part.section(u' ', 1);
        QStringList values;
        if (kind == QLatin1String("field"))
            values << QString::fromUtf8(report.fields.value(name));
        else if (kind == QLatin1String("file"))
            values << report.fileNames.value(name);
        const auto entries = kind == QLatin1String("archive") ? report.archives.value(name)
                                                              : QMap<QString, QByteArray>();
        for (auto it = entries.cbegin(); it != entries.cend(); ++it)
            values << (namesOnly.contains(name) ? it.key()
                                                : it.key() + u'=' + QString::fromUtf8(it.value()));
        lines << part + QStringLiteral(": ") + values.join(QStringLiteral("; "));
    }
    return lines;
}

// A port on 127.0.0.1 that nobody listens on: connections to it are refused at once.
inline quint16 refusedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    const quint16 port = probe.serverPort();
    probe.close();
    return port;
}

// Writes journal files from export-format entries with systemd-journal-remote; an empty answer
// means the program is missing (the caller skips).
inline QString systemdJournalRemote()
{
    return QStandardPaths::findExecutable("systemd-journal-remote",
                                          {"/lib/systemd", "/usr/lib/systemd"});
}

// Entries: seconds since the epoch, identifier, message.
inline bool writeJournal(const QString &folder,
                         const QList<std::tuple<qint64, QString, QString>> &entries)
{
    QByteArray text;
    int monotonic = 1;
    for (const auto &[seconds, identifier, message] : entries) {
        text += "__REALTIME_TIMESTAMP=" + QByteArray::number(seconds * 1000000 + 500000) + "\n";
        text += "__MONOTONIC_TIMESTAMP=" + QByteArray::number(monotonic++) + "\n";
        text += "_BOOT_ID=0123456789abcdef0123456789abcdef\n";
        text += "SYSLOG_IDENTIFIER=" + identifier.toUtf8() + "\n";
        text += "MESSAGE=" + message.toUtf8() + "\n\n";
    }
    QDir().mkpath(folder);
    QProcess process;
    process.start(
        systemdJournalRemote(),
        {QStringLiteral("-o"), folder + QStringLiteral("/test.journal"), QStringLiteral("-")});
    process.write(text);
    process.closeWriteChannel();
    return process.waitForFinished(20000) && process.exitCode() == 0;
}

// Every folder of the user's files inside a temporary tree, the defaults in its Library, an
// empty journal, a quick hardware profile and the report server unset.
class ReporterEnvironment
{
public:
    VKTempDir tree;
    VKSearchPaths::TestingRoot root{tree.path()};

    ReporterEnvironment()
    {
        QDir().mkpath(VKSearchPaths::temporaryDirectory());
        VKUserDefaults::setStandardUserDefaultsFolder(library() + QStringLiteral("/Preferences"));
        VKJournalSearch::setJournalDirectory(tree.makeDir(QStringLiteral("journal")));
        VKCrashReporter::setSystemProfilerCommand(
            QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("printf '<list/>'")});
        m_usageToken = VKNotificationCenter::defaultCenter().addObserver(
            this, VKUsageLoggerDidLogUsageNotification, {}, [this](const VKNotification &n) {
                usageEvents.append(n.userInfo().value(QStringLiteral("key")).toString());
            });
    }
    ~ReporterEnvironment()
    {
        VKNotificationCenter::defaultCenter().removeObservation(m_usageToken);
        VKUserDefaults::setStandardUserDefaultsFolder(QString());
        VKJournalSearch::setJournalDirectory(QString());
        VKInterfaceDescription::setSearchFolder(QString());
        VKReporter::setReportServerBaseURL(QString());
        VKUserCard::setPasswordFileForTesting(QString());
    }
    static QString library() { return VKSearchPaths::libraryDirectory(VKSearchPathDomain::User); }
    static std::shared_ptr<VKUserDefaults> defaults()
    {
        return VKUserDefaults::standardUserDefaults();
    }

    QStringList usageEvents;

private:
    VKNotificationToken m_usageToken = 0;
};

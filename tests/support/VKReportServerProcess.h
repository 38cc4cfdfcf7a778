// vkreportd as a child process on 127.0.0.1 for the tests that post reports to it, and the
// reports it stored, read back through each report folder's _parts.tsv. The including target
// defines VKREPORTD_PATH.
#pragma once

#include <QDir>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QStringList>

// One stored report: its parts in the order they came, as "field NAME", "file NAME" and
// "archive NAME"; the plain fields' bytes; each attachment's file name as sent and bytes; and the
// entries (name to bytes) each zip attachment was unpacked into.
struct VKStoredReport
{
    QStringList parts;
    QMap<QString, QByteArray> fields;
    QMap<QString, QString> fileNames;
    QMap<QString, QByteArray> files;
    QMap<QString, QMap<QString, QByteArray>> archives;
};

class VKReportServerProcess
{
public:
    // Starts vkreportd on a free port, storing into `folder`, with `extra` options.
    explicit VKReportServerProcess(const QString &folder, const QStringList &extra = {})
        : m_folder(folder)
    {
        m_process.start(QStringLiteral(VKREPORTD_PATH),
                        QStringList{QStringLiteral("--port"), QStringLiteral("0"),
                                    QStringLiteral("--dir"), folder} +
                            extra);
        QByteArray line;
        while (m_process.waitForStarted(10000) && !line.contains('\n') &&
               m_process.waitForReadyRead(10000))
            line += m_process.readLine();
        const auto match =
            QRegularExpression(QStringLiteral(" port (\\d+),")).match(QString::fromUtf8(line));
        if (match.hasMatch())
            m_port = match.captured(1).toUShort();
    }
    ~VKReportServerProcess() { stop(); }

    quint16 port() const { return m_port; }
    QString baseURL() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_port); }
    QString folder() const { return m_folder; }

    // Everything printed after the listening line so far.
    QString log()
    {
        m_process.waitForReadyRead(100);
        m_log += QString::fromUtf8(m_process.readAllStandardOutput());
        return m_log;
    }
    // Ends the server with SIGTERM and answers its exit status (-1 if it did not exit).
    int stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
        m_process.terminate();
        m_process.waitForFinished(10000);
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }

    // The report folders so far, oldest first.
    QStringList reports() const
    {
        return QDir(m_folder).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    }
    VKStoredReport report(qsizetype index) const
    {
        VKStoredReport report;
        const QDir folder(m_folder + u'/' + reports().value(index));
        for (const QByteArray &line :
             read(folder.filePath(QStringLiteral("_parts.tsv"))).split('\n')) {
            const QStringList cells = QString::fromUtf8(line).split(u'\t');
            if (cells.size() < 4)
                continue;
            const QString &kind = cells[0];
            const QString &name = cells[1];
            report.parts << kind + u' ' + name;
            if (kind == QLatin1String("field")) {
                report.fields.insert(name, read(folder.filePath(cells[2])));
            } else if (kind == QLatin1String("file")) {
                report.fileNames.insert(name, cells.value(4));
                report.files.insert(name, read(folder.filePath(cells[2])));
            } else if (kind == QLatin1String("archive")) {
                QMap<QString, QByteArray> &entries = report.archives[name];
                const QDir unpacked(folder.filePath(cells[2]));
                for (const QString &entry : unpacked.entryList(QDir::Files | QDir::Hidden))
                    entries.insert(entry, read(unpacked.filePath(entry)));
            }
        }
        return report;
    }

    static QByteArray read(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private:
    QString m_folder;
    QProcess m_process;
    quint16 m_port = 0;
    QString m_log;
};

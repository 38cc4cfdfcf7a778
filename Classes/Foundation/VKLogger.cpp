#include "Foundation/VKLogger.h"

#include "Foundation/VKBundle.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/uio.h>
#include <systemd/sd-journal.h>

#include <cstdio>
#include <vector>

QString VKLogLevelName(VKLogLevel level)
{
    return level == VKLogLevel::Error ? QStringLiteral("error") : QStringLiteral("info");
}

QVariantMap VKLogEntry::context() const
{
    return {{QStringLiteral("class"), className},
            {QStringLiteral("prettyFunctionOutput"), prettyFunctionOutput},
            {QStringLiteral("pointer"), pointer}};
}

QString VKLogEntry::line() const
{
    return VKLogLevelName(level) + u' ' + module + u' ' + prettyFunctionOutput + u' ' + className +
           u' ' + pointer + QStringLiteral(": ") + message;
}

VKLogSink::~VKLogSink() = default;

void VKStandardErrorLogSink::write(const VKLogEntry &entry)
{
    const QByteArray text =
        (entry.timestamp.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")) + u' ' +
         entry.line() + u'\n')
            .toUtf8();
    std::lock_guard lock(m_mutex);
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stderr);
    std::fflush(stderr);
}

void VKCapturingLogSink::write(const VKLogEntry &entry)
{
    std::lock_guard lock(m_mutex);
    m_entries.append(entry);
}

QList<VKLogEntry> VKCapturingLogSink::entries() const
{
    std::lock_guard lock(m_mutex);
    return m_entries;
}

QStringList VKCapturingLogSink::messages() const
{
    std::lock_guard lock(m_mutex);
    QStringList list;
    list.reserve(m_entries.size());
    for (const VKLogEntry &e : m_entries)
        list.append(e.message);
    return list;
}

void VKCapturingLogSink::clear()
{
    std::lock_guard lock(m_mutex);
    m_entries.clear();
}

VKJournalLogSink::VKJournalLogSink(QString identifier) : m_identifier(std::move(identifier)) {}

QList<QByteArray> VKJournalLogSink::fields(const VKLogEntry &entry) const
{
    QString identifier = m_identifier;
    if (identifier.isNull())
        identifier = VKBundle::mainBundle()->bundleIdentifier();
    if (identifier.isEmpty())
        identifier = QString::fromLatin1(VKLogger::moduleName);
    return {"MESSAGE=" + entry.message.toUtf8(),
            entry.level == VKLogLevel::Error ? "PRIORITY=3" : "PRIORITY=6",
            "SYSLOG_IDENTIFIER=" + identifier.toUtf8(),
            "VK_MODULE=" + entry.module.toUtf8(),
            "VK_CLASS=" + entry.className.toUtf8(),
            "VK_PRETTY_FUNCTION=" + entry.prettyFunctionOutput.toUtf8(),
            "VK_POINTER=" + entry.pointer.toUtf8()};
}

void VKJournalLogSink::write(const VKLogEntry &entry)
{
    const QList<QByteArray> all = fields(entry);
    std::vector<iovec> vectors;
    vectors.reserve(static_cast<size_t>(all.size()));
    for (const QByteArray &field : all)
        vectors.push_back(
            {const_cast<char *>(field.constData()), static_cast<size_t>(field.size())});
    // Passed as vectors, never as a format: messages may contain '%' and newlines.
    sd_journal_sendv(vectors.data(), static_cast<int>(vectors.size()));
}

const QString VKRunLogFileExtension = QStringLiteral("vqnLog");

struct VKFileLogSink::Private
{
    std::mutex mutex;
    QString path;
    QFile file;
    QString error;
};

VKFileLogSink::VKFileLogSink(const QString &folder, const QString &name)
    : d(std::make_unique<Private>())
{
    QString base = name;
    if (base.isEmpty())
        base = VKBundle::mainBundle()
                   ->objectForInfoDictionaryKey(QStringLiteral("CFBundleName"))
                   .toString();
    // A name must not reach into other folders.
    base.replace(u'/', u'_');
    d->path = QDir(folder).filePath(QStringLiteral("%1_%2_%3.%4")
                                        .arg(base, QDateTime::currentDateTimeUtc().toString(
                                                       QStringLiteral("yyyy-MM-dd-HHmmss")))
                                        .arg(QCoreApplication::applicationPid())
                                        .arg(VKRunLogFileExtension));
}

VKFileLogSink::~VKFileLogSink() = default;

void VKFileLogSink::write(const VKLogEntry &entry)
{
    const QByteArray text =
        (entry.timestamp.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")) + u' ' +
         entry.line() + u'\n')
            .toUtf8();
    std::lock_guard lock(d->mutex);
    if (!d->file.isOpen() && d->error.isEmpty()) {
        const QString folder = QFileInfo(d->path).path();
        d->file.setFileName(d->path);
        if (!QDir().mkpath(folder))
            d->error = QStringLiteral("The folder %1 cannot be made").arg(folder);
        else if (!d->file.open(QIODevice::WriteOnly | QIODevice::Append))
            d->error = d->file.errorString();
        if (!d->error.isEmpty()) {
            // Logging this through the logger would come back here: say it once on stderr.
            const QByteArray warning = "VessanUtilities: cannot write the run log " +
                                       d->path.toLocal8Bit() + ": " + d->error.toLocal8Bit() + '\n';
            std::fwrite(warning.constData(), 1, static_cast<size_t>(warning.size()), stderr);
        }
    }
    if (!d->file.isOpen())
        return;
    if (d->file.write(text) != text.size() || !d->file.flush()) {
        d->error = d->file.errorString();
        d->file.close();
    }
}

QString VKFileLogSink::filePath() const
{
    return d->path;
}

QString VKFileLogSink::errorString() const
{
    std::lock_guard lock(d->mutex);
    return d->error;
}

VKLogger::VKLogger()
{
    m_sinks.append(std::make_shared<VKStandardErrorLogSink>());
}

VKLogger &VKLogger::shared()
{
    // Never destroyed: objects logging from their destructors at exit must still find it.
    static VKLogger *logger = new VKLogger;
    return *logger;
}

void VKLogger::addSink(std::shared_ptr<VKLogSink> sink)
{
    if (!sink)
        return;
    std::lock_guard lock(m_mutex);
    m_sinks.append(std::move(sink));
}

void VKLogger::removeSink(const std::shared_ptr<VKLogSink> &sink)
{
    std::lock_guard lock(m_mutex);
    m_sinks.removeAll(sink);
}

void VKLogger::setSinks(QList<std::shared_ptr<VKLogSink>> sinks)
{
    sinks.removeAll(nullptr);
    std::lock_guard lock(m_mutex);
    m_sinks = std::move(sinks);
}

QList<std::shared_ptr<VKLogSink>> VKLogger::sinks() const
{
    std::lock_guard lock(m_mutex);
    return m_sinks;
}

void VKLogger::resetSinks()
{
    setSinks({std::make_shared<VKStandardErrorLogSink>()});
}

void VKLogger::write(const VKLogEntry &entry)
{
    // Sinks are called outside the lock so that a sink may itself log or change the sinks.
    const QList<std::shared_ptr<VKLogSink>> targets = sinks();
    for (const auto &sink : targets)
        sink->write(entry);
}

void VKLogger::write(VKLogLevel level, const VKLogContext &context, const QString &message)
{
    VKLogEntry entry;
    entry.level = level;
    entry.module = QString::fromLatin1(moduleName);
    entry.className = context.className;
    entry.prettyFunctionOutput = context.prettyFunctionOutput;
    entry.pointer = VKFormat::format(QStringLiteral("%p"), {VKFormatArgument(context.pointer)});
    entry.message = message;
    entry.timestamp = QDateTime::currentDateTimeUtc();
    write(entry);
}

#include "Foundation/VKLogger.h"

#include <systemd/sd-journal.h>

#include <cstdio>

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
    return VKLogLevelName(level) + u' ' + module + u' ' + prettyFunctionOutput + u' ' +
           className + u' ' + pointer + QStringLiteral(": ") + message;
}

VKLogSink::~VKLogSink() = default;

void VKStandardErrorLogSink::write(const VKLogEntry &entry)
{
    const QByteArray text =
        (entry.timestamp.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")) +
         u' ' + entry.line() + u'\n')
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

void VKJournalLogSink::write(const VKLogEntry &entry)
{
    const QByteArray message = "MESSAGE=" + entry.message.toUtf8();
    const QByteArray priority = entry.level == VKLogLevel::Error ? "PRIORITY=3" : "PRIORITY=6";
    const QByteArray module = "VK_MODULE=" + entry.module.toUtf8();
    const QByteArray cls = "VK_CLASS=" + entry.className.toUtf8();
    const QByteArray function = "VK_PRETTY_FUNCTION=" + entry.prettyFunctionOutput.toUtf8();
    const QByteArray pointer = "VK_POINTER=" + entry.pointer.toUtf8();
    // Messages may contain '%': pass every field as a "%s" argument, never as a format.
    sd_journal_send("%s", message.constData(), "%s", priority.constData(),
                    "SYSLOG_IDENTIFIER=VessanUtilities", "%s", module.constData(), "%s",
                    cls.constData(), "%s", function.constData(), "%s", pointer.constData(),
                    nullptr);
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

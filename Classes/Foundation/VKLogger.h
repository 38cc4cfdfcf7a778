// The library's log: every failure that is not returned to the caller is written here, with a
// level, the module "VessanUtilities", the object's class, the operation's full name and the
// object's address. Where entries go is decided by pluggable sinks (standard error by default).
#pragma once

#include "Foundation/VKExport.h"
#include "Foundation/VKFormat.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QVariantMap>

#include <memory>
#include <mutex>

enum class VKLogLevel { Error, Info };

// "error" or "info".
VK_EXPORT QString VKLogLevelName(VKLogLevel level);

// Who wrote an entry: the class name, the operation's full name in the form
// "-[VKFileSequence parseIdentifier:]" and the object's address (null for class operations).
struct VK_EXPORT VKLogContext
{
    QString className;
    QString prettyFunctionOutput;
    const void *pointer = nullptr;
};

struct VK_EXPORT VKLogEntry
{
    VKLogLevel level = VKLogLevel::Error;
    QString module;
    QString className;
    QString prettyFunctionOutput;
    QString pointer; // the address as "%p" prints it
    QString message;
    QDateTime timestamp; // UTC

    // The context record: "class", "prettyFunctionOutput" and "pointer".
    QVariantMap context() const;
    // One readable line: "<level> VessanUtilities <prettyFunctionOutput> <class> <pointer>:
    // <message>".
    QString line() const;
};

class VK_EXPORT VKLogSink
{
public:
    virtual ~VKLogSink();
    // Called from whichever thread logs; implementations must be thread-safe.
    virtual void write(const VKLogEntry &entry) = 0;
};

// Writes each entry as one line on standard error, prefixed with the local time.
class VK_EXPORT VKStandardErrorLogSink : public VKLogSink
{
public:
    void write(const VKLogEntry &entry) override;

private:
    std::mutex m_mutex;
};

// Keeps every entry in memory; for tests and for hosts that show the log themselves.
class VK_EXPORT VKCapturingLogSink : public VKLogSink
{
public:
    void write(const VKLogEntry &entry) override;
    QList<VKLogEntry> entries() const;
    QStringList messages() const;
    void clear();

private:
    mutable std::mutex m_mutex;
    QList<VKLogEntry> m_entries;
};

// Sends entries to the systemd journal: MESSAGE, PRIORITY (3 for error, 6 for info),
// SYSLOG_IDENTIFIER (the main bundle's identifier, so that the application's entries can be
// found by it) and the context as VK_MODULE, VK_CLASS, VK_PRETTY_FUNCTION and VK_POINTER.
class VK_EXPORT VKJournalLogSink : public VKLogSink
{
public:
    // A null identifier means the main bundle's identifier, read at each entry (it is complete
    // only once the application object exists).
    explicit VKJournalLogSink(QString identifier = {});
    void write(const VKLogEntry &entry) override;
    // The fields sent for `entry`, each "NAME=value".
    QList<QByteArray> fields(const VKLogEntry &entry) const;

private:
    QString m_identifier;
};

// The extension of run logs ("vqnLog"), which the run-log reader looks for.
VK_EXPORT extern const QString VKRunLogFileExtension;

// Writes the entries of this run into a new file in a folder the host gives (usually the user's
// "Library/Logs/Vessan"), one line per entry as on standard error. The file is named
// "<name>_<yyyy-MM-dd-HHmmss>_<pid>.vqnLog" (UTC), so that the newest run sorts last; it is
// made at the first entry, and every entry is flushed at once so that a crash loses nothing.
class VK_EXPORT VKFileLogSink : public VKLogSink
{
public:
    // `name` defaults to the main bundle's "CFBundleName".
    explicit VKFileLogSink(const QString &folder, const QString &name = {});
    ~VKFileLogSink() override;
    void write(const VKLogEntry &entry) override;
    // The run log's path (the file may not exist yet).
    QString filePath() const;
    // Why the file could not be written; empty while it can.
    QString errorString() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

class VK_EXPORT VKLogger
{
public:
    static VKLogger &shared();

    static constexpr char moduleName[] = "VessanUtilities";

    void addSink(std::shared_ptr<VKLogSink> sink);
    void removeSink(const std::shared_ptr<VKLogSink> &sink);
    void setSinks(QList<std::shared_ptr<VKLogSink>> sinks);
    QList<std::shared_ptr<VKLogSink>> sinks() const;
    // Back to one standard-error sink.
    void resetSinks();

    void write(const VKLogEntry &entry);
    void write(VKLogLevel level, const VKLogContext &context, const QString &message);

    // VKLogger::log(VKLogLevel::Error, {"VKCalc", "-[VKCalc setFrameRate:drop:]", this},
    //               "Unknown framerate: %f this message will only be logged once", rate);
    template <typename... Args>
    static void log(VKLogLevel level, const VKLogContext &context, const QString &format,
                    const Args &...arguments)
    {
        shared().write(level, context, VKFormat::format(format, {VKFormatArgument(arguments)...}));
    }
    template <typename... Args>
    static void error(const VKLogContext &context, const QString &format, const Args &...arguments)
    {
        log(VKLogLevel::Error, context, format, arguments...);
    }
    template <typename... Args>
    static void info(const VKLogContext &context, const QString &format, const Args &...arguments)
    {
        log(VKLogLevel::Info, context, format, arguments...);
    }

private:
    VKLogger();
    mutable std::mutex m_mutex;
    QList<std::shared_ptr<VKLogSink>> m_sinks;
};

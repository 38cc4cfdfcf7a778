// Shared helpers of the test suites: temporary folders, log capture, waiting on the event loop
// for a condition, and readable QString values in assertion messages.
#pragma once

#include "Foundation/VKLogger.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
#include <iosfwd>
#include <memory>

// How GoogleTest prints a QString in a failed assertion: quoted UTF-8, or (null); and a QString
// streamed into an assertion's message, as UTF-8.
void PrintTo(const QString &text, std::ostream *out);
std::ostream &operator<<(std::ostream &out, const QString &text);

// Writes a file (creating its folders) and answers its path.
QString vkWriteFile(const QString &path, const QByteArray &contents = {});

// A temporary folder removed with everything in it when the object goes.
class VKTempDir
{
public:
    VKTempDir();
    QString path() const;
    QString filePath(const QString &relative) const;
    // Writes a file (creating its folders) and answers its full path.
    QString writeFile(const QString &relative, const QByteArray &contents = {}) const;
    QString makeDir(const QString &relative) const;

private:
    QTemporaryDir m_dir;
};

// While alive, every log entry goes to an in-memory sink instead of standard error.
class VKLogCapture
{
public:
    VKLogCapture();
    ~VKLogCapture();
    VKLogCapture(const VKLogCapture &) = delete;
    VKLogCapture &operator=(const VKLogCapture &) = delete;

    QList<VKLogEntry> entries() const { return m_sink->entries(); }
    QStringList messages() const { return m_sink->messages(); }
    void clear() { m_sink->clear(); }

private:
    std::shared_ptr<VKCapturingLogSink> m_sink;
    QList<std::shared_ptr<VKLogSink>> m_previous;
};

// Turns the current thread's event loop until `condition` holds or `timeoutMs` passes;
// answers whether the condition held.
bool vkWaitUntil(const std::function<bool()> &condition, int timeoutMs = 5000);

// Turns the current thread's event loop for about `ms` milliseconds (for "nothing happens"
// checks only; ordering is never tested with it).
void vkSpinEventLoop(int ms);

// "name|reason" of the VKException that `call` raises, or "no exception".
QString vkRaisedBy(const std::function<void()> &call);

// Path of a helper program built beside the test executable.
QString vkTestBinaryPath(const QString &name);

// Runs a helper program built beside the test executable and answers its standard output, then
// its standard error, then "exit N" (or "crashed", or "did not finish" after five minutes).
QString vkRunTestBinary(const QString &name, const QStringList &arguments = {});

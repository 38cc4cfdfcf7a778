#include "VKTestSupport.h"
#include "VKTestProcess.h"

#include "Foundation/VKException.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <ostream>
#include <stdexcept>

void PrintTo(const QString &text, std::ostream *out)
{
    *out << (text.isNull() ? std::string("(null)") : '"' + text.toStdString() + '"');
}

std::ostream &operator<<(std::ostream &out, const QString &text)
{
    return out << text.toStdString();
}

VKTempDir::VKTempDir() : m_dir(QDir::tempPath() + QStringLiteral("/vktest-XXXXXX"))
{
    if (!m_dir.isValid())
        throw std::runtime_error("cannot create a temporary folder");
}

QString VKTempDir::path() const
{
    return m_dir.path();
}

QString VKTempDir::filePath(const QString &relative) const
{
    return m_dir.filePath(relative);
}

QString vkWriteFile(const QString &path, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw std::runtime_error(("cannot write " + path).toStdString());
    file.write(contents);
    return path;
}

QString VKTempDir::writeFile(const QString &relative, const QByteArray &contents) const
{
    return vkWriteFile(filePath(relative), contents);
}

QString VKTempDir::makeDir(const QString &relative) const
{
    const QString full = filePath(relative);
    QDir().mkpath(full);
    return full;
}

VKLogCapture::VKLogCapture() : m_sink(std::make_shared<VKCapturingLogSink>())
{
    m_previous = VKLogger::shared().sinks();
    VKLogger::shared().setSinks({m_sink});
}

VKLogCapture::~VKLogCapture()
{
    VKLogger::shared().setSinks(m_previous);
}

bool vkWaitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return condition();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QCoreApplication::sendPostedEvents();
        QThread::usleep(200);
    }
    return true;
}

void vkSpinEventLoop(int ms)
{
    QDeadlineTimer deadline(ms);
    while (!deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::usleep(200);
    }
}

QString vkTestBinaryPath(const QString &name)
{
    return QCoreApplication::applicationDirPath() + u'/' + name;
}

QString vkRunTestBinary(const QString &name, const QStringList &arguments)
{
    const VKProgramRun run = vkRunProgram(vkTestBinaryPath(name), arguments);
    const QString output = QString::fromUtf8(run.output + run.errors);
    if (!run.finished)
        return output + QStringLiteral("did not finish");
    return output +
           (run.status < 0 ? QStringLiteral("crashed") : QStringLiteral("exit %1").arg(run.status));
}

QString vkRaisedBy(const std::function<void()> &call)
{
    try {
        call();
    } catch (const VKException &exception) {
        return exception.name() + u'|' + exception.reason();
    }
    return QStringLiteral("no exception");
}

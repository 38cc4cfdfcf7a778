// Runs a program to its end, for tests that check what another process prints or answers.
#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>

struct VKProgramRun
{
    int status = -1;           // the exit code; -1 when it did not start, crashed or did not end
    QByteArray output, errors; // errors stays empty when the channels are merged
    bool finished = false;     // it ended (normally or not) within the wait
};

// Waits five minutes at most, so that a hung child fails its test instead of the whole suite.
inline VKProgramRun
vkRunProgram(const QString &program, const QStringList &arguments,
             const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment(),
             QProcess::ProcessChannelMode channels = QProcess::SeparateChannels)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(channels);
    process.start(program, arguments);
    VKProgramRun result;
    if (!process.waitForFinished(300000))
        return result;
    result.finished = true;
    result.output = process.readAllStandardOutput();
    result.errors = process.readAllStandardError();
    if (process.exitStatus() == QProcess::NormalExit)
        result.status = process.exitCode();
    return result;
}

// Running tools on the frame: the delegate's life cycle, waiting on the event loop, exit codes,
// and a real tool run as a separate process.
#include "Application/VKApplication.h"
#include "Foundation/VKException.h"

#include "VKTestSupport.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTimer>

#include <gtest/gtest.h>

#include <thread>

namespace {

using Options = VKApplicationOptionConfigurationList;
using Run = std::function<void(VKApplication &, const std::shared_ptr<VKApplicationArguments> &)>;

class FunctionDelegate : public VKApplicationDelegate
{
public:
    explicit FunctionDelegate(Run run) : m_run(std::move(run)) {}
    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override
    {
        m_run(application, arguments);
    }

private:
    Run m_run;
};

std::shared_ptr<VKApplicationConfiguration> smallConfiguration()
{
    Options options = VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
        {"verbose", "v", "Talk more."});
    options += VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
        {"code", "c", "Exit code.", "int", "n"});
    return std::make_shared<VKApplicationConfiguration>("usage: small", "bye", options);
}

VKApplicationDelegateClass delegateClassRunning(Run run)
{
    return VKApplicationDelegateClass(
        "FunctionDelegate", [run] { return std::make_shared<FunctionDelegate>(run); },
        smallConfiguration);
}

// A delegate type written the way tools write theirs.
class ImmediateDelegate : public VKApplicationDelegate
{
public:
    static std::shared_ptr<VKApplicationConfiguration> applicationConfiguration()
    {
        return smallConfiguration();
    }
    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override
    {
        received = arguments;
        application.setExitCode(arguments->parameters().value("code").toLongLong() << 32 |
                                arguments->arguments().size());
        application.setFinished(true);
    }
    static inline std::shared_ptr<VKApplicationArguments> received;
};

QString probePath()
{
    return vkTestBinaryPath("vkapp_probe");
}

struct ProcessResult
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

ProcessResult runProbe(const QStringList &arguments)
{
    QProcess process;
    process.start(probePath(), arguments);
    ProcessResult result;
    if (!process.waitForFinished(20000) || process.exitStatus() != QProcess::NormalExit)
        return result;
    result.exitCode = process.exitCode();
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

} // namespace

TEST(ApplicationRun, WaitsForATimerToFinishTheRun)
{
    VKApplication application;
    VKApplication::State stateInDelegate = VKApplication::State::Created;
    VKApplication::State stateInTimer = VKApplication::State::Created;
    QStringList order;
    const qint64 code = (qint64(1) << 40) + 9;
    const qint64 result = application.runWithDelegateClass(
        delegateClassRunning([&](VKApplication &app, const auto &arguments) {
            stateInDelegate = app.state();
            order << "delegate" << arguments->arguments() << arguments->options();
            QTimer::singleShot(30, [&] {
                order << "timer";
                stateInTimer = app.state();
                app.setExitCode(code);
                app.setFinished(true);
            });
            QMetaObject::invokeMethod(
                QCoreApplication::instance(), [&] { order << "queued"; }, Qt::QueuedConnection);
        }),
        {"in.mov", "-v"});
    EXPECT_EQ(result, code);
    EXPECT_EQ(application.exitCode(), code);
    EXPECT_EQ(order, (QStringList{"delegate", "in.mov", "verbose", "queued", "timer"}));
    EXPECT_EQ(stateInDelegate, VKApplication::State::DelegateRunning);
    EXPECT_EQ(stateInTimer, VKApplication::State::Waiting);
    EXPECT_EQ(application.state(), VKApplication::State::Finished);
    EXPECT_NE(application.delegate(), nullptr);
}

TEST(ApplicationRun, FinishingInsideTheDelegateNeverWaits)
{
    VKApplication application;
    bool queuedRan = false;
    const qint64 result = application.runWithDelegateClass(
        delegateClassRunning([&](VKApplication &app, const auto &) {
            QMetaObject::invokeMethod(
                QCoreApplication::instance(), [&] { queuedRan = true; }, Qt::QueuedConnection);
            app.setExitCode(-3);
            app.setFinished(true);
        }),
        {});
    EXPECT_EQ(result, -3);
    EXPECT_FALSE(queuedRan); // the event loop was never turned
    EXPECT_TRUE(vkWaitUntil([&] { return queuedRan; }));
}

TEST(ApplicationRun, WorkFromOtherThreadsEndsTheWait)
{
    // Finished through a call queued to the main thread, or set directly on the worker, where
    // the periodic test of the flag notices it.
    for (const bool queued : {true, false}) {
        SCOPED_TRACE(queued ? "queued" : "direct");
        std::thread worker;
        const auto finish = [](VKApplication &app) {
            app.setExitCode(11);
            app.setFinished(true);
        };
        const qint64 result = VKApplication().runWithDelegateClass(
            delegateClassRunning([&](VKApplication &app, const auto &) {
                worker = std::thread([&app, queued, finish] {
                    if (queued)
                        QMetaObject::invokeMethod(
                            QCoreApplication::instance(), [&app, finish] { finish(app); },
                            Qt::QueuedConnection);
                    else
                        finish(app);
                });
            }),
            {});
        worker.join();
        EXPECT_EQ(result, 11);
    }
}

TEST(ApplicationRun, ClassWithoutDelegateIsRejected)
{
    const auto nothing = VKApplicationDelegateClass(
        "Nothing", [] { return std::shared_ptr<VKApplicationDelegate>(); }, nullptr);
    try {
        VKApplication().runWithDelegateClass(nothing, {});
        FAIL() << "expected an exception";
    } catch (const VKException &exception) {
        EXPECT_EQ(exception.reason(), "the delegate class Nothing created no delegate");
    }
}

TEST(ApplicationRun, EntryFunctionDecodesArgvAndNarrowsTheExitCode)
{
    QByteArray program("tool"), first("--code"), value("7"),
        name("Gr\xc3\xbc\xc3\x9f"
             "e"),
        empty(""), invalid("a\xff");
    char *argv[] = {program.data(), first.data(),   value.data(), name.data(),
                    empty.data(),   invalid.data(), nullptr};
    // (7 << 32) | 3 arguments: only the low 32 bits survive.
    EXPECT_EQ(VKRunApplicationWithDelegateClass<ImmediateDelegate>(6, argv), 3);
    ASSERT_NE(ImmediateDelegate::received, nullptr);
    EXPECT_EQ(ImmediateDelegate::received->arguments(),
              (QStringList{QString::fromUtf8("Grüße"), "", QStringLiteral("a\uFFFD")}));

    EXPECT_EQ(VKRunApplicationWithDelegateClass<ImmediateDelegate>(1, argv), 0);
    EXPECT_TRUE(ImmediateDelegate::received->arguments().isEmpty());
    EXPECT_TRUE(ImmediateDelegate::received->parameters().isEmpty());
    EXPECT_TRUE(ImmediateDelegate::received->options().isEmpty());
    EXPECT_EQ(VKApplicationDelegateClass::of<ImmediateDelegate>().className(),
              "(anonymous namespace)::ImmediateDelegate");
}

TEST(ApplicationRun, EntryFunctionReportsEscapingExceptions)
{
    VKLogCapture log;
    QByteArray program("tool");
    char *argv[] = {program.data(), nullptr};
    const auto throwing = delegateClassRunning([](VKApplication &, const auto &) {
        VKException::raise(VKInvalidArgumentException, "bad input %d", 4);
    });
    EXPECT_EQ(VKRunApplicationWithDelegateClass(throwing, 1, argv), 1);
    EXPECT_EQ(log.messages(),
              QStringList{"NSInvalidArgumentException stopped the run: bad input 4"});
}

TEST(ApplicationTool, ExitStatusIsTheDelegateCodeAfterATimer)
{
    const ProcessResult result = runProbe({"--delay", "0.25", "-x", "7", "in.mov"});
    EXPECT_EQ(result.exitCode, 7) << result.err.toStdString();
    EXPECT_EQ(result.out, QByteArray("argument [in.mov]\n"
                                     "parameter delay [0.25]\n"
                                     "parameter exit [7]\n"
                                     "returning while delegate running\n"
                                     "finishing while waiting\n"));
    EXPECT_EQ(runProbe({"--exit", "3"}).exitCode, 3);
    EXPECT_EQ(runProbe({}).exitCode, 0);
}

TEST(ApplicationTool, PrintsItsUsageByteForByte)
{
    const ProcessResult result = runProbe({"-v", "--help", "ignored"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, QByteArray("usage: probe [options] files\xe2\x80\xa6\n"
                                     "\n"
                                     "OPTIONS\n"
                                     "\t-v, --verbose\n"
                                     "\t\tTalk more.\n"
                                     "\n"
                                     "\t-h, --help\n"
                                     "\t\tPrint this text.\n"
                                     "\n"
                                     "\t-x, --exit <code>\n"
                                     "\t\tExit code.\n"
                                     "\n"
                                     "\t-d, --delay <seconds>\n"
                                     "\t\tSeconds to wait before finishing.\n"
                                     "\n"
                                     "\t-n, --name <n\xc3\xa4me>\n"
                                     "\t\tName f\xc3\xbcr den Bericht \xe2\x80\x93 \xc3\xbc.\n"
                                     "\n"
                                     "\n"
                                     "Exit status: the --exit code (100% honest).\n"));
    EXPECT_TRUE(result.err.isEmpty()) << result.err.toStdString();
}

TEST(ApplicationTool, CarriesUtf8ThroughAndDoublesPercentPairs)
{
    const QString name = QString::fromUtf8("Grüße 日本 😀");
    const ProcessResult result =
        runProbe({name, "--name", "--verbose", "", "50%%", "-s", "--s", "-d", ".1e"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(QString::fromUtf8(result.out), QString::fromUtf8("argument [Grüße 日本 😀]\n"
                                                               "argument []\n"
                                                               "argument [50%%%%]\n"
                                                               "argument [--s]\n"
                                                               "parameter delay [0.1]\n"
                                                               "parameter name [--verbose]\n"
                                                               "option secret\n"
                                                               "returning while delegate running\n"
                                                               "finishing while waiting\n"));
}

// Running tools on the frame: the delegate's life cycle, waiting on the event loop, exit codes,
// the ways a run ends without finishing, and one real tool run as a separate process.
#include "Application/VKApplication.h"
#include "Foundation/VKException.h"

#include "VKTestSupport.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTimer>

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace {

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
    auto options = VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
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
    EXPECT_EQ(order, (QStringList{"delegate", "in.mov", "verbose", "queued", "timer"}));
    EXPECT_EQ(stateInDelegate, VKApplication::State::DelegateRunning);
    EXPECT_EQ(stateInTimer, VKApplication::State::Waiting);
    EXPECT_EQ(application.state(), VKApplication::State::Finished);
    EXPECT_NE(application.delegate(), nullptr);
}

TEST(ApplicationRun, FinishingInsideTheDelegateNeverWaits)
{
    bool queuedRan = false;
    const qint64 result = VKApplication().runWithDelegateClass(
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

TEST(ApplicationRun, RunsThatEndWithoutFinishingLeaveADefinedState)
{
    using State = VKApplication::State;
    const VKApplicationDelegateClass nothing(
        "Nothing", [] { return std::shared_ptr<VKApplicationDelegate>(); }, nullptr);
    const auto throwing = [](std::function<void()> raise) {
        return delegateClassRunning([raise](VKApplication &app, const auto &) {
            app.setExitCode(7);
            raise();
        });
    };
    // What the application holds afterwards, and what the entry function logs.
    // clang-format off
    const struct
    {
        const char *name;
        VKApplicationDelegateClass delegateClass;
        State state;
        bool finished, hasDelegate;
        qint64 exitCode;
        QString logged;
    } cases[] = {
        // clang-format off
        {"no delegate", nothing, State::Created, false, false, 0,
         "NSInvalidArgumentException stopped the run: the delegate class Nothing created no delegate"},
        {"the library's exception", throwing([] { VKException::raise(VKInvalidArgumentException, "bad input %d", 4); }),
         State::Finished, true, true, 1, "NSInvalidArgumentException stopped the run: bad input 4"},
        {"a standard exception", throwing([] { throw std::runtime_error("disk full"); }),
         State::Finished, true, true, 1, "an exception stopped the run: disk full"},
        {"an exception of another type", throwing([] { throw 42; }),
         State::Finished, true, true, 1, "an exception of unknown type stopped the run"},
        // clang-format on
    };
    // clang-format on
    QByteArray program("tool");
    char *argv[] = {program.data(), nullptr};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VKApplication application;
        EXPECT_ANY_THROW(application.runWithDelegateClass(c.delegateClass, {}));
        EXPECT_EQ(application.state(), c.state);
        EXPECT_EQ(application.isFinished(), c.finished);
        EXPECT_EQ(application.delegate() != nullptr, c.hasDelegate);
        EXPECT_EQ(application.exitCode(), c.exitCode);
        // The entry function reports each and answers 1.
        VKLogCapture log;
        EXPECT_EQ(VKRunApplicationWithDelegateClass(c.delegateClass, 1, argv), 1);
        EXPECT_EQ(log.messages(), QStringList{c.logged});
        ASSERT_EQ(log.entries().size(), 1);
        EXPECT_EQ(log.entries()[0].prettyFunctionOutput, "VKRunApplicationWithDelegateClass");
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
    EXPECT_TRUE(
        ImmediateDelegate::received->isEqual(std::make_shared<VKApplicationArguments>().get()));
    EXPECT_EQ(VKApplicationDelegateClass::of<ImmediateDelegate>().className(),
              "(anonymous namespace)::ImmediateDelegate");
}

TEST(ApplicationTool, ARealToolFinishesFromATimerWithItsExitCode)
{
    QProcess process;
    process.start(vkTestBinaryPath("vkapp_probe"),
                  {QString::fromUtf8("Grüße 😀"), "--delay", "0.25", "-x", "7", "50%%", "--help"});
    ASSERT_TRUE(process.waitForFinished(20000));
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), 7);
    EXPECT_EQ(QString::fromUtf8(process.readAllStandardOutput()),
              QString::fromUtf8("notification VKApplicationWillFinishLaunchingNotification\n"
                                "argument [Grüße 😀]\n"
                                "argument [50%%%%]\n"
                                "parameter delay [0.25]\n"
                                "parameter exit [7]\n"
                                "usage: probe\n\nOPTIONS\n\t-h, --help\n\t\tPrint this text.\n\n"
                                "\t-x, --exit <code>\n\t\tExit code.\n\n"
                                "\t-d, --delay <seconds>\n\t\tSeconds before finishing.\n\n"
                                "\n(100% honest)\n"
                                "returning while delegate running\n"
                                "notification VKApplicationDidFinishLaunchingNotification\n"
                                "finishing while waiting\n"
                                "notification VKApplicationWillTerminateNotification\n"));
    EXPECT_EQ(process.readAllStandardError(), QByteArray());
}

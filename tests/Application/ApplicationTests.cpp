// The command-line frame: parsing, configurations from code and files, usage, the parse result,
// VKPrint, and runs in process and through the entry function (as a process: the registry tests).
#include "Application/VKApplication.h"
#include "Application/VKPrint.h"
#include "Foundation/VKException.h"

#include "VKTestSupport.h"

#include <QCoreApplication>
#include <QTimer>

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace {

using Options = VKApplicationOptionConfigurationList;
using P = VKApplicationParameterConfiguration;

// Subclasses: parsed by kind, left out of the usage text, equal as arguments at any depth.
template <typename Base>
struct Sub : Base
{
    using Base::Base;
};

std::shared_ptr<VKApplicationConfiguration> configurationWith(const Options &options)
{
    return std::make_shared<VKApplicationConfiguration>("usage: tool", "bye", options);
}

// Options and parameters read from a file: entries that are not dictionaries, unknown keys and
// identifiers that are not text are left out; the parameter type is a number, never a type name.
const char *const optionsFile = R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>
<key>options</key><array><string>not a dictionary</string>
  <dict><key>longIdentifier</key><string>loud</string><key>shortIdentifier</key><string>L</string>
    <key>usageDescription</key><string>Mehr – bitte.</string><key>colour</key><string>x</string></dict>
  <dict><key>longIdentifier</key><integer>5</integer><key>shortIdentifier</key><string>Q</string></dict></array>
<key>parameters</key><array>
  <dict><key>longIdentifier</key><string>frames</string><key>shortIdentifier</key><string>f</string>
    <key>usageDescription</key><string>Frames.</string><key>parameterType</key><integer>1</integer>
    <key>parameterName</key><string>n</string></dict>
  <dict><key>longIdentifier</key><string>speed</string><key>parameterType</key><string>2</string></dict>
  <dict><key>longIdentifier</key><string>name</string><key>parameterType</key><string>float</string></dict>
  <dict><key>longIdentifier</key><string>yes</string><key>parameterType</key><true/></dict>
  <dict><key>longIdentifier</key><string>no</string><key>parameterType</key><false/></dict>
</array><key>unknown</key><true/></dict></plist>)";

// Every kind of entry, in lookup order: null ones first, the file's, an empty identifier that
// catches the lone dashes, "-o" twice (the first wins), and subclasses.
Options toolOptions()
{
    Options options{nullptr, std::make_shared<VKApplicationOptionConfiguration>(),
                    std::make_shared<VKApplicationOptionConfiguration>(QString(), "q", ""),
                    P::parameterConfigurationWithLongIdentifier(
                        QString(), "p", "", VKApplicationParameterTypeString, "")};
    VKTempDir dir;
    options += VKApplication::applicationConfigurationFromFileAtPath(
        dir.writeFile("tool.plist", optionsFile));
    options += VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
        {"verbose", "v", "Talk more.", "", "", "stdin", QString(), "ignored"});
    // clang-format off
    options += VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
        {"out", "o", "Output file.", "string", "file",
         "count", "c", "How many.", "int", "n",
         "rate", "r", QString::fromUtf8("Bildrate – 25."), "float", "fps",
         "other", "o", "Never found.", "string", "x",
         "level", "l", "", "Int", "n"});
    // clang-format on
    options << std::make_shared<Sub<VKApplicationOptionConfiguration>>("hidden", "H", "Not listed.")
            << std::make_shared<Sub<P>>("tagged", "t", "Not listed.",
                                        VKApplicationParameterTypeInteger, "n");
    return options;
}

// "'argument' ... | 'option' ... | parameter=type(value) ..." of a parse, or what it raised.
QString parsed(const QStringList &tokens)
{
    const auto quoted = [](const QStringList &list) {
        return list.isEmpty() ? QString() : u'\'' + list.join(QStringLiteral("' '")) + u'\'';
    };
    QString text;
    const QString raised = vkRaisedBy([&] {
        const auto result =
            VKApplication::parseRawArguments(tokens, configurationWith(toolOptions()));
        const QVariantMap map = result->parameters();
        QStringList parameters;
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            parameters << it.key() + u'=' + it->typeName() + u'(' + it->toString() + u')';
        text = quoted(result->arguments()) + " | " + quoted(result->options()) + " | " +
               parameters.join(u' ');
    });
    return raised == "no exception" ? text : raised;
}

using Script = std::function<void(VKApplication &, const VKApplicationArguments &)>;

// A delegate type written the way tools write theirs; it runs the current test's script.
struct Scripted : VKApplicationDelegate
{
    static std::shared_ptr<VKApplicationConfiguration> applicationConfiguration()
    {
        return configurationWith(toolOptions());
    }
    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override
    {
        received = arguments;
        script(application, *arguments);
    }
    static inline Script script;
    static inline std::shared_ptr<VKApplicationArguments> received;
};

VKApplicationDelegateClass scripted(Script script)
{
    Scripted::script = std::move(script);
    return VKApplicationDelegateClass::of<Scripted>();
}

void finish(VKApplication &application, qint64 exitCode)
{
    application.setExitCode(exitCode);
    application.setFinished(true);
}

// "state finished delegate|none exit-code" of an application.
QString held(const VKApplication &application)
{
    static const char *const states[] = {"Created", "DelegateRunning", "Waiting", "Finished"};
    return QStringLiteral("%1 %2 %3 %4")
        .arg(states[int(application.state())])
        .arg(int(application.isFinished()))
        .arg(application.delegate() ? "delegate" : "none")
        .arg(application.exitCode());
}

} // namespace

TEST(ApplicationParsing, SortsTokensIntoArgumentsParametersAndOptions)
{
    const QString noLong = "NSInvalidArgumentException|the option configuration matching \"%1\" "
                           "has no long identifier";
    // clang-format off
    const struct { const char *name; QStringList tokens; QString result; } cases[] = {
        {"one of each", {"-v", "--out", "x.txt", "Grüße"}, "'Grüße' | 'verbose' | out=QString(x.txt)"},
        {"unknown tokens keep their dashes and place; no grouping, no =value, exact case and length",
         {"a", "-unknown", "--unknown", "-vo", "--out=x", "-V", "--verb", "---"},
         "'a' '-unknown' '--unknown' '-vo' '--out=x' '-V' '--verb' '---' |  | "},
        {"empty identifiers catch the lone dashes", {"-", "--"}, " | '' '' | "},
        {"options repeat, parameters keep the last value", {"-v", "--out", "first", "--verbose", "-o", "second"},
         " | 'verbose' 'verbose' | out=QString(second)"},
        {"a value is never an option", {"--out", "--verbose", "-o", "-v", "tail"}, "'tail' |  | out=QString(-v)"},
        {"numbers by type, derived classes by kind", {"--count", "-5", "-r", "-7.5x", "-l", "12", "-t", "3x"},
         " |  | count=int(-5) level=QString(12) rate=float(-7.5) tagged=int(3)"},
        {"types read from the file", {"-f", "7", "--speed", "1.5", "--name", "1.5", "--yes", "1.5", "--no", "1.5", "-L"},
         " | 'loud' | frames=int(7) name=QString(1.5) no=QString(1.5) speed=float(1.5) yes=int(1)"},
        {"a parameter as the last token is dropped, even without a long identifier",
         {"file", "-v", "-p"}, "'file' | 'verbose' | "},
        {"empty tokens and values", {"", "--out", "", ""}, "'' '' |  | out=QString()"},
        {"nothing", {}, " |  | "},
        {"a parameter without a long identifier", {"-p", "v"}, noLong.arg("-p")},
        {"an option without a long identifier", {"x", "-q"}, noLong.arg("-q")},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(parsed(c.tokens), c.result) << c.name;
    // Without a configuration every token is an argument.
    EXPECT_EQ(VKApplication::parseRawArguments({"-v"}, nullptr)->arguments(), QStringList{"-v"});
}

TEST(ApplicationConfiguration, FromCodeAndFilesWithItsUsageListingExactClassesOnlyInOrder)
{
    EXPECT_EQ(VKApplication::usageText(configurationWith(toolOptions())).toUtf8(),
              QByteArray(
                  "usage: tool\n\nOPTIONS\n\t-, --\n\t\t\n\n\t-q, --\n\t\t\n\n\t-p, -- <>\n\t\t\n\n"
                  "\t-f, --frames <n>\n\t\tFrames.\n\n\t-, --speed <>\n\t\t\n\n"
                  "\t-, --name <>\n\t\t\n\n\t-, --yes <>\n\t\t\n\n\t-, --no <>\n\t\t\n\n"
                  "\t-L, --loud\n\t\tMehr \xe2\x80\x93 bitte.\n\n\t-Q, --\n\t\t\n\n"
                  "\t-v, --verbose\n\t\tTalk more.\n\n\t-, --\n\t\tstdin\n\n"
                  "\t-o, --out <file>\n\t\tOutput file.\n\n\t-c, --count <n>\n\t\tHow many.\n\n"
                  "\t-r, --rate <fps>\n\t\tBildrate \xe2\x80\x93 25.\n\n"
                  "\t-o, --other <x>\n\t\tNever found.\n\n\t-l, --level <n>\n\t\t\n\n\nbye\n"));
    // No header for an empty list; a header for a list of hidden classes only.
    using C = VKApplicationConfiguration;
    const auto hidden = std::make_shared<Sub<VKApplicationOptionConfiguration>>("a", "b", "c");
    EXPECT_EQ(VKApplication::usageText(std::make_shared<C>("usage: x", "end", Options{})),
              "usage: x\n\n\nend\n");
    EXPECT_EQ(VKApplication::usageText(std::make_shared<C>("", "", Options{hidden})),
              "\n\nOPTIONS\n\n\n");

    // Lists in code must be complete; a missing file, or one whose lists are none, gives nothing.
    using A = VKApplication;
    const QString three =
        "NSInvalidArgumentException|number of variable arguments must be a multiple of 3";
    EXPECT_EQ(vkRaisedBy([] {
                  A::optionsWithLongIdentifierShortIdentifierAndUsage({"a", "b", "c", "d"});
              }),
              three);
    EXPECT_EQ(vkRaisedBy([] {
                  A::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
                      {"a", "b", "c", "int", "n", "x", "y", "z", "float"});
              }),
              QString(three).replace(u'3', u'5'));
    EXPECT_TRUE(A::optionsWithLongIdentifierShortIdentifierAndUsage({}).isEmpty());
    VKTempDir dir;
    EXPECT_TRUE(A::applicationConfigurationFromFileAtPath(dir.filePath("missing")).isEmpty());
    EXPECT_TRUE(A::applicationConfigurationFromFileAtPath(
                    dir.writeFile("none.plist",
                                  R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">
<dict><key>options</key>
<string>a</string><key>parameters</key><dict/></dict></plist>)"))
                    .isEmpty());
}

TEST(ApplicationArguments, DescriptionAndEquality)
{
    const QStringList args{"a", "b"}, options{"v"};
    const QVariantMap parameters{{"n", 1}};
    const VKApplicationArguments arguments(args, parameters, options);
    EXPECT_EQ(arguments.description(), "Arguments: (\n    a,\n    b\n) \n\n Parameters: {\n    n = "
                                       "1;\n} \n\n Options: (\n    v\n)");
    // Numbers compare by value; the other may be of a class below the receiver's, at any depth.
    const VKApplicationArguments same(args, {{"n", 1.0}}, options),
        reordered({"b", "a"}, parameters, options), noOptions(args, parameters, {}),
        noParameters(args, {}, options);
    const Sub<VKApplicationArguments> tagged(args, parameters, options);
    const Sub<Sub<VKApplicationArguments>> moreTagged(args, parameters, options);
    // clang-format off
    const struct { const VKApplicationArguments *receiver, *other; bool equal; } cases[] = {
        {&arguments, &same, true}, {&arguments, &arguments, true}, {&arguments, nullptr, false},
        {&arguments, &reordered, false}, {&arguments, &noOptions, false}, {&arguments, &noParameters, false},
        {&arguments, &moreTagged, true}, {&tagged, &moreTagged, true}, {&tagged, &arguments, false}};
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(c.receiver->isEqual(c.other), c.equal)
            << typeid(*c.receiver).name() << " " << (c.other ? c.other->description() : "null");
}

TEST(ApplicationPrint, FormatsDoublesPercentPairsAndHandlesNil)
{
    testing::internal::CaptureStdout();
    VKPrint(QString());
    VKPrint(QStringLiteral("%@"), QStringLiteral("100%%"));
    VKPrint(QStringLiteral("100%% of %d"), 3);            // the format's own escape is one sign
    VKPrint(QStringLiteral("%@"), QStringLiteral("%%%")); // pairs are counted left to right
    VKPrint(QStringLiteral("%@ – %s"), QString::fromUtf8("Grüße"), "ü");
    VKPrint(QStringLiteral(""));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "nil\n100%%%%\n100% of 3\n%%%%%\nGrüße – ü\n\n");
}

TEST(ApplicationRun, WaitsUntilFinishedFromAnyThreadLettingQueuedCallsRunFirst)
{
    const qint64 code = (qint64(1) << 40) + 9;
    QStringList order;
    std::thread worker;
    // Queues a call to the main thread, notes the state, then finishes.
    const auto end = [&](VKApplication &app) {
        QMetaObject::invokeMethod(
            qApp, [&] { order << "queued"; }, Qt::QueuedConnection);
        order << held(app);
        finish(app, code);
    };
    // How the work ends the run, and what happened before it returned: finished within the
    // delegate's call, the event loop never turns; on another thread, the periodic test notices.
    // clang-format off
    const std::pair<Script, QStringList> cases[] = {
        {[&](auto &app, auto &) { QTimer::singleShot(0, [&] { end(app); }); }, {"Waiting 0 delegate 0", "queued"}},
        {[&](auto &app, auto &) {
             worker = std::thread([&] { QMetaObject::invokeMethod(qApp, [&] { end(app); }, Qt::QueuedConnection); });
         }, {"Waiting 0 delegate 0", "queued"}},
        {[&](auto &app, auto &) { worker = std::thread([&] { finish(app, code); }); }, {}},
        {[&](auto &app, auto &) { end(app); }, {"DelegateRunning 0 delegate 0"}},
    };
    // clang-format on
    for (const auto &[script, expected] : cases) {
        order.clear();
        VKApplication application;
        EXPECT_EQ(application.runWithDelegateClass(scripted(script), {}), code);
        if (worker.joinable())
            worker.join();
        EXPECT_EQ(order, expected);
        EXPECT_EQ(held(application), "Finished 1 delegate 1099511627785");
    }
    EXPECT_TRUE(vkWaitUntil([&] { return order.size() == 2; }));
}

TEST(ApplicationRun, EndsInADefinedStateAndTheEntryFunctionAnswersTheLow32BitsOrLogs)
{
    const VKApplicationDelegateClass nothing(
        "Nothing", [] { return std::shared_ptr<VKApplicationDelegate>(); }, nullptr);
    QByteArray program("tool"), count("--count"), seven("7"), name("Grüß"), empty(""),
        invalid("a\xff");
    char *argv[] = {program.data(), count.data(),   seven.data(), name.data(),
                    empty.data(),   invalid.data(), nullptr};
    const QStringList arguments{"--count", "7", QString::fromUtf8("Grüß"), "", "a\uFFFD"};
    // What the application holds after a run, and what the entry function answers and logs.
    // clang-format off
    const struct { const char *name; Script script; QString held; int result; QString logged; } cases[] = {
        {"finished with (7 << 32) | 3 arguments",
         [](auto &app, auto &parsed) { finish(app, parsed.parameters().value("count").toLongLong() << 32 | parsed.arguments().size()); },
         "Finished 1 delegate 30064771075", 3, ""},
        {"no delegate", nullptr, "Created 0 none 0 threw", 1,
         "NSInvalidArgumentException stopped the run: the delegate class Nothing created no delegate"},
        {"the library's exception",
         [](auto &app, auto &) { app.setExitCode(7); VKException::raise(VKInvalidArgumentException, "bad input %d", 4); },
         "Finished 1 delegate 1 threw", 1, "NSInvalidArgumentException stopped the run: bad input 4"},
        {"a standard exception", [](auto &app, auto &) { app.setExitCode(7); throw std::runtime_error("disk full"); },
         "Finished 1 delegate 1 threw", 1, "an exception stopped the run: disk full"},
        {"an exception of another type", [](auto &app, auto &) { app.setExitCode(7); throw 42; },
         "Finished 1 delegate 1 threw", 1, "an exception of unknown type stopped the run"},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const auto delegateClass = c.script ? scripted(c.script) : nothing;
        VKApplication application;
        QString threw;
        try {
            application.runWithDelegateClass(delegateClass, arguments);
        } catch (...) {
            threw = " threw";
        }
        EXPECT_EQ(held(application) + threw, c.held);
        VKLogCapture log;
        EXPECT_EQ(VKRunApplicationWithDelegateClass(delegateClass, 6, argv), c.result);
        EXPECT_EQ(log.entries().value(0).prettyFunctionOutput + ": " + log.messages().join(u'|'),
                  (c.logged.isEmpty() ? ": " : "VKRunApplicationWithDelegateClass: ") + c.logged);
    }
    // The entry function decodes what follows the program's name as UTF-8; a count of 1 is none.
    EXPECT_EQ(Scripted::received->arguments(), arguments.mid(2));
    scripted([](auto &app, auto &) { finish(app, 0); });
    EXPECT_EQ(VKRunApplicationWithDelegateClass<Scripted>(1, argv), 0);
    EXPECT_TRUE(Scripted::received->isEqual(std::make_shared<VKApplicationArguments>().get()));
}

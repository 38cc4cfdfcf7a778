// The frame of a command-line tool: parses the command line against the tool's configuration,
// hands the result to the tool's delegate and turns the event loop until the delegate says the
// run has finished. A tool's main is one call:
//
//     int main(int argc, char **argv)
//     {
//         return VKRunApplicationWithDelegateClass<MyToolDelegate>(argc, argv);
//     }
#pragma once

#include "Application/VKApplicationArguments.h"
#include "Application/VKApplicationConfiguration.h"
#include "Application/VKApplicationDelegate.h"
#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>

#include <initializer_list>
#include <memory>

class VKApplicationPrivate;

class VK_EXPORT VKApplication
{
public:
    enum class State {
        Created,         // before a run, and after a run whose class made no delegate
        DelegateRunning, // the delegate's application(...) call is under way
        Waiting,         // the event loop turns until the run is finished
        Finished,        // the run returned its exit code, or an exception ended it
    };

    VKApplication();
    ~VKApplication();
    VKApplication(const VKApplication &) = delete;
    VKApplication &operator=(const VKApplication &) = delete;

    std::shared_ptr<VKApplicationDelegate> delegate() const;
    void setDelegate(const std::shared_ptr<VKApplicationDelegate> &delegate);

    // Setting it ends the wait: at once after the events already queued when it is set on the
    // waiting thread, otherwise at the next test (the loop tests it every 0.2 seconds).
    bool isFinished() const;
    void setFinished(bool finished);

    qint64 exitCode() const;
    void setExitCode(qint64 exitCode);

    State state() const;

    // Creates the delegate, parses `rawArguments` with the class's configuration, calls the
    // delegate, then turns the current thread's event loop in slices of 0.2 seconds until
    // finished, and answers the exit code. Waiting needs a QCoreApplication; without one a run
    // that is not finished by the delegate's call raises VKInternalInconsistencyException.
    // How a run ends when it cannot finish normally:
    // - the class makes no delegate: raises VKInvalidArgumentException; the application stays
    //   Created, without a delegate, not finished, exit code 0;
    // - an exception of any type escapes the configuration, the parse or the delegate: it
    //   propagates, and the application is Finished, finished, with exit code 1.
    qint64 runWithDelegateClass(const VKApplicationDelegateClass &delegateClass,
                                const QStringList &rawArguments);

    // Walks the tokens once: "-x" looks up short identifier x, "--x" long identifier x (no
    // grouping, no "=value", no end-of-options marker). A parameter takes the next token as its
    // value whatever it looks like; a parameter as the last token is dropped. Unknown tokens
    // stay arguments, dashes included. Options given twice are listed twice; a parameter given
    // twice keeps its last value. Never fails.
    static std::shared_ptr<VKApplicationArguments>
    parseRawArguments(const QStringList &rawArguments,
                      const std::shared_ptr<VKApplicationConfiguration> &configuration);

    // The first configuration whose identifier equals `identifier` exactly (case-sensitive);
    // a null identifier on either side never matches.
    static std::shared_ptr<VKApplicationOptionConfiguration>
    configurationWithShortIdentifier(const QString &identifier,
                                     const VKApplicationOptionConfigurationList &configurations);
    static std::shared_ptr<VKApplicationOptionConfiguration>
    configurationWithLongIdentifier(const QString &identifier,
                                    const VKApplicationOptionConfigurationList &configurations);

    // Prints the usage text of the delegate's class on standard output (nothing before a run
    // has set the class). The frame never calls it itself.
    void printUsage() const;
    // The usage text: the prefix, "OPTIONS" and one entry per configuration whose class is
    // exactly VKApplicationOptionConfiguration or VKApplicationParameterConfiguration (objects
    // of classes derived from them are left out), then the suffix. Null texts print as empty.
    static QString usageText(const std::shared_ptr<VKApplicationConfiguration> &configuration);

    // Reads a property-list dictionary (XML or binary) and answers the parameter configurations
    // of its "parameters" array followed by the option configurations of its "options" array,
    // each in file order; entries that are not dictionaries and unknown keys are ignored. Empty
    // when the file is missing or unreadable, is not a dictionary, or lists nothing.
    static VKApplicationOptionConfigurationList
    applicationConfigurationFromFileAtPath(const QString &path);

    // Builds parameter configurations from groups of five strings (long identifier, short
    // identifier, usage, type name, parameter name; "float" is type 2, "int" 1, anything else
    // 0), read up to the end of the list or the first null string. A count that is not a
    // multiple of five raises VKInvalidArgumentException "number of variable arguments must be
    // a multiple of 5".
    static VKApplicationOptionConfigurationList
    parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
        std::initializer_list<QString> items);
    static VKApplicationOptionConfigurationList
    parametersWithLongIdentifierShortIdentifierUsageTypeAndName(const QStringList &items);
    // The same for on/off options in groups of three (long, short, usage); the message names 3.
    static VKApplicationOptionConfigurationList
    optionsWithLongIdentifierShortIdentifierAndUsage(std::initializer_list<QString> items);
    static VKApplicationOptionConfigurationList
    optionsWithLongIdentifierShortIdentifierAndUsage(const QStringList &items);

private:
    void waitUntilFinished();

    std::unique_ptr<VKApplicationPrivate> d;
};

// Runs a tool: decodes argv[1...argc-1] as UTF-8, creates a QCoreApplication if there is none,
// runs a fresh VKApplication with the delegate class and answers its exit code narrowed to int.
// An exception of any type escaping the run (a class without a delegate included) is logged
// and answers 1. The application object is attached to VKApplicationLifecycle: "will finish
// launching" is posted before the delegate is made, "did finish launching" on the first turn of
// the wait (never when the delegate finishes the run in its call), and "will terminate" after
// the run when the application object was made here.
VK_EXPORT int VKRunApplicationWithDelegateClass(const VKApplicationDelegateClass &delegateClass,
                                                int argc, char **argv);

template <VKApplicationDelegateType T>
int VKRunApplicationWithDelegateClass(int argc, char **argv)
{
    return VKRunApplicationWithDelegateClass(VKApplicationDelegateClass::of<T>(), argc, argv);
}

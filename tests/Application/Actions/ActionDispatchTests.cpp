// Commands along the responder chain in a real window: action targets found and linked at launch,
// what answers a command, the targets' notifications, and actions that follow them and the focus.
#include "Application/VKActionDispatch.h"
#include "Application/VKActionTarget.h"
#include "Application/VKCommandAction.h"
#include "Application/VKResponder.h"
#include "Foundation/VKApplicationLifecycle.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKNotificationCenter.h"

#include "VKTestSupport.h"

#include <QApplication>
#include <QLineEdit>
#include <QPushButton>
#include <QScopeGuard>

#include <gtest/gtest.h>

// Named, so that moc can reach the test classes.
namespace actiontests {

// "<receiver> <command> <sender's text>" per performed command, in order.
QStringList performed;

void record(const QString &receiver, const char *command, QObject *sender)
{
    auto *action = qobject_cast<QAction *>(sender);
    performed << receiver + " " + command + " " + (action ? action->text() : QStringLiteral("-"));
}

// The action targets an application declares, found by name at launch; both have the command
// "shared". Help also has what is no command: a signal, a protected method and one taking text.
class VDActionTargetHelp : public VKActionTarget
{
    Q_OBJECT

public:
    explicit VDActionTargetHelp(const QString &name = "Help", bool valid = true) : m_name(name)
    {
        setSelectors({"showHelp", "shared"});
        setValid(valid);
    }
    Q_INVOKABLE void showHelp(QObject *sender) { record(m_name, "showHelp", sender); }
    Q_INVOKABLE void shared(QObject *sender) { record(m_name, "shared", sender); }
    Q_INVOKABLE void takesText(const QString &) {}

Q_SIGNALS:
    void announced();

protected:
    Q_INVOKABLE void hidden() {}
    QString m_name;
};
class VHActionTargetFeedback : public VKActionTarget
{
    Q_OBJECT

public:
    VHActionTargetFeedback() { setSelectors({"sendFeedback", "shared"}); }
    Q_INVOKABLE void sendFeedback() { record("Feedback", "sendFeedback", nullptr); }
    Q_INVOKABLE void shared(QObject *sender) { record("Feedback", "shared", sender); }
};
// Right prefix, wrong base.
class VDActionTargetNotDerived : public VKResponder
{
};
VK_REGISTER_CLASS(VHActionTargetFeedback, VKActionTarget)
VK_REGISTER_CLASS(VDActionTargetHelp, VKActionTarget)
VK_REGISTER_CLASS(VDActionTargetNotDerived, VKResponder)

// A window with a command of its own.
class Window : public QWidget
{
    Q_OBJECT

public:
    Q_INVOKABLE void windowCommand(QObject *sender) { record("Window", "windowCommand", sender); }
};

TEST(Dispatch, LaunchLinksTheTargetsWhoseStateTheActionsFollowWithTheFocusedField)
{
    VKActionDispatch dispatch;
    // A text field, a read-only one and a button, and one command action per command name.
    Window window;
    auto *edit = new QLineEdit(&window), *readOnly = new QLineEdit(&window);
    readOnly->setReadOnly(true);
    auto *button = new QPushButton("Button", &window);
    QList<VKCommandAction *> actions;
    for (const char *command : {"showHelp", "sendFeedback", "shared", "windowCommand", "none",
                                "announced", "hidden", "takesText", ""})
        actions << new VKCommandAction(command, command, &window);
    // Each command action's state, then the state notifications since the last look.
    QStringList posted;
    const auto posts = VKNotificationCenter::defaultCenter().addObserver(
        &posted, VKActionTargetStateCouldHaveBeenChangedNotification, nullptr,
        [&](const VKNotification &n) {
            QStringList names(n.object().commandNames().cbegin(), n.object().commandNames().cend());
            names.sort(); // the object is the set of names, not the target
            posted << names.join(u',') + (n.object().identity() ? " and a target" : "");
        });
    const auto stop =
        qScopeGuard([&] { VKNotificationCenter::defaultCenter().removeObservation(posts); });
    const auto look = [&] {
        QString states;
        for (VKCommandAction *action : actions)
            states += action->isEnabled() ? '1' : '0';
        return states + " " + std::exchange(posted, {}).join(u' ');
    };
    window.show();
    window.activateWindow();
    ASSERT_TRUE(vkWaitUntil([&] { return QApplication::activeWindow() == &window; }))
        << "the platform gives no active window";
    button->setFocus();
    ASSERT_TRUE(vkWaitUntil([&] { return QApplication::focusWidget() == button; }));
    // Before launch only the window's own command has a target.
    EXPECT_EQ(look(), "000100000 ");

    // Without targets, linking cuts the dispatcher's old next responder.
    VKResponder stale;
    dispatch.setNextResponder(&stale);
    dispatch.updateResponders();
    EXPECT_EQ(dispatch.nextResponder(), nullptr);

    // Signals, protected methods and methods that take text are no commands.
    ASSERT_TRUE(VKApplicationLifecycle::attachToApplication());
    ASSERT_TRUE(vkWaitUntil([&] { return look().startsWith("101100000"); }));
    // The chain: application, dispatcher, then the targets in discovery order.
    const auto responders = dispatch.allResponders();
    VKActionTarget *help = responders.value(0).get(), *feedback = responders.value(1).get();
    ASSERT_EQ(responders.size(), 2);
    EXPECT_EQ(VKResponder::applicationResponder()->nextResponder(), &dispatch);
    EXPECT_EQ(dispatch.nextResponder(), help);
    EXPECT_EQ(help->nextResponder(), feedback);

    auto a = std::make_shared<VKObservable>(), b = std::make_shared<VKObservable>();
    const auto bump = [](VKObservable &object, const QString &key) {
        object.changeValueForKey(key, [] {});
    };
    // An observation the target did not ask for.
    const auto stray = [&](VKObservable &object, const QString &key) {
        object.addObserver(help, key);
        bump(object, key);
        object.removeObserver(help, key);
    };
    VKLogCapture log;
    // Each step, then the states in the order of the commands and the notifications.
    // clang-format off
    const std::tuple<const char *, std::function<void()>, QString> steps[] = {
        {"feedback becomes valid", [&] { feedback->setValid(true); }, "111100000 sendFeedback,shared"},
        {"the same validity again", [&] { feedback->setValid(true); }, "111100000 "},
        {"help becomes invalid, by key; feedback still has shared",
         [&] { help->setValueForKey(false, kValid); }, "011100000 shared,showHelp"},
        {"help valid again", [&] { help->setValid(true); }, "111100000 shared,showHelp"},
        {"a change that help observes", [&] { help->setInvokeControlValidationObservers({{"count", a}}); bump(*a, "count"); },
         "111100000 shared,showHelp"},
        {"only what help observes now",
         [&] { help->setInvokeControlValidationObservers({{"count", b}}); bump(*a, "count"); bump(*b, "count"); },
         "111100000 shared,showHelp"},
        {"observations help did not ask for", [&] { stray(*b, "other"); stray(*a, "count"); }, "111100000 "},
        {"a target gone observes nothing", [&] {
             VDActionTargetHelp("Gone", false).setInvokeControlValidationObservers({{"count", a}}); bump(*a, "count");
         }, "111100000 "},
        {"editing text disables the targets' commands", [&] { edit->setFocus(); }, "000100000 "},
        {"a read-only field is not being edited", [&] { readOnly->setFocus(); }, "111100000 "},
    };
    // clang-format on
    for (const auto &[name, change, expected] : steps) {
        SCOPED_TRACE(name);
        change();
        EXPECT_EQ(look(), expected);
    }
    const auto noObserver = [](const char *key, const void *object) {
        return QString::asprintf("No observer found for keyPath %s of object <VKObservable: %p>",
                                 key, object);
    };
    EXPECT_EQ(log.messages(),
              QStringList({noObserver("other", b.get()), noObserver("count", a.get())}));
    EXPECT_EQ(log.entries().value(1).level, VKLogLevel::Error);

    performed.clear();
    for (VKCommandAction *action : actions)
        action->trigger();
    help->setValid(false);
    EXPECT_TRUE(help->respondsToSelector("deleteLater")); // an inherited command still answers
    actions[2]->trigger();
    // Along the chain alone, also when it is circular.
    VKResponder *application = VKResponder::applicationResponder();
    feedback->setNextResponder(application);
    EXPECT_TRUE(application->tryToPerform("shared", nullptr));
    EXPECT_FALSE(application->tryToPerform("nothing", nullptr));
    EXPECT_EQ(performed, QStringList({"Help showHelp showHelp", "Feedback sendFeedback -",
                                      "Help shared shared", "Window windowCommand windowCommand",
                                      "Feedback shared shared", "Feedback shared -"}));

    // Relinking leaves what follows the last target alone.
    VKResponder beyond;
    feedback->setNextResponder(&beyond);
    dispatch.updateResponders();
    EXPECT_EQ(feedback->nextResponder(), &beyond);
}

} // namespace actiontests

#include "ActionDispatchTests.moc"

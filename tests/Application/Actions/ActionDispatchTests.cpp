// Commands along the responder chain: which objects answer a command, the state notifications of
// action targets, the discovery and linking of targets at launch, and a real window whose command
// actions follow the targets and the focused text field.
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
// Right prefix, wrong base; right base, wrong prefix.
class VDActionTargetNotDerived : public VKResponder
{
};
class VKActionTargetStray : public VDActionTargetHelp
{
};
VK_REGISTER_CLASS(VHActionTargetFeedback, VKActionTarget)
VK_REGISTER_CLASS(VDActionTargetHelp, VKActionTarget)
VK_REGISTER_CLASS(VDActionTargetNotDerived, VKResponder)
VK_REGISTER_CLASS(VKActionTargetStray, VKActionTarget)

// Classes along the chain from `responder`.
QString chain(const VKResponder *responder)
{
    QStringList names;
    for (; responder && names.size() < 6; responder = responder->nextResponder())
        names << responder->metaObject()->className();
    return names.join(u' ');
}

TEST(Responder, AnswersCommandsByNameDeclarationAndValidity)
{
    // clang-format off
    const struct { const char *name; bool valid; QString command; bool expected; } cases[] = {
        {"declared and valid", true, "showHelp", true},
        {"declared but invalid is invisible", false, "showHelp", false},
        {"an undeclared command answers while invalid", false, "deleteLater", true},
        {"signal is no command", true, "announced", false},
        {"protected method is no command", true, "hidden", false},
        {"method taking a string is no command", true, "takesText", false},
        {"empty", true, "", false},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(VDActionTargetHelp("T", c.valid).respondsToSelector(c.command), c.expected);
    }
}

TEST(ActionTarget, PostsOnChangesOfValidityAndOfTheObservedValuesOnly)
{
    auto a = std::make_shared<VKObservable>(), b = std::make_shared<VKObservable>();
    auto target = std::make_unique<VDActionTargetHelp>("T", false);
    VKLogCapture log;
    // Each step's name, then the announcements and posts it caused.
    QStringList events;
    const auto posts = VKNotificationCenter::defaultCenter().addObserver(
        &events, VKActionTargetStateCouldHaveBeenChangedNotification, nullptr,
        [&](const VKNotification &n) {
            QStringList names(n.object().commandNames().cbegin(), n.object().commandNames().cend());
            names.sort(); // the object is the set of names, not the target
            events << "post " + names.join(u',') + (n.object().identity() ? " target" : "");
        });
    target->observe(kValid, VKKeyValueObservingOptionOld | VKKeyValueObservingOptionNew,
                    [&](VKObservable *, const QString &, const VKKeyValueChange &change) {
                        events << "valid " + change.oldValue.toString() + ">" +
                                      change.newValue.toString();
                    });
    target->observe(
        "invokeControlValidationObservers", 0,
        [&](VKObservable *, const QString &, const VKKeyValueChange &) { events << "dictionary"; });
    const auto bump = [](VKObservable &object, const QString &key) {
        object.changeValueForKey(key, [] {});
    };
    // An observation the target did not ask for.
    const auto stray = [&](VKObservable &object, const QString &key) {
        object.addObserver(target.get(), key);
        bump(object, key);
        object.removeObserver(target.get(), key);
    };
    // clang-format off
    const std::pair<const char *, std::function<void()>> steps[] = {
        {"same", [&] { target->setValid(false); }},
        {"changed", [&] { target->setValid(true); }},
        {"same by key", [&] { target->setValueForKey(true, kValid); }},
        {"changed by key", [&] { target->setValueForKey(false, kValid); }},
        {"observe a", [&] { target->setInvokeControlValidationObservers({{"count", a}}); bump(*a, "count"); }},
        {"replace a by b", [&] { target->setInvokeControlValidationObservers({{"count", b}}); bump(*a, "count"); bump(*b, "count"); }},
        {"listed object, other key", [&] { stray(*b, "other"); }},
        {"other object, listed key", [&] { stray(*a, "count"); }},
        {"target gone", [&] { target.reset(); bump(*b, "count"); }},
    };
    // clang-format on
    for (const auto &[name, step] : steps) {
        events << name;
        step();
    }
    VKNotificationCenter::defaultCenter().removeObservation(posts);
    EXPECT_EQ(events,
              (QStringList{"same", "changed", "post shared,showHelp", "valid false>true",
                           "same by key", "changed by key", "post shared,showHelp",
                           "valid true>false", "observe a", "dictionary", "post shared,showHelp",
                           "replace a by b", "dictionary", "post shared,showHelp",
                           "listed object, other key", "other object, listed key", "target gone"}));
    EXPECT_FALSE(b->hasObserversForKey("count"));
    const auto noObserver = [](const char *key, const void *object) {
        return QString::asprintf("No observer found for keyPath %s of object <VKObservable: %p>",
                                 key, object);
    };
    EXPECT_EQ(log.messages(),
              QStringList({noObserver("other", b.get()), noObserver("count", a.get())}));
    EXPECT_EQ(log.entries().value(1).level, VKLogLevel::Error);
}

// A window with a command of its own.
class Window : public QWidget
{
    Q_OBJECT

public:
    Q_INVOKABLE void windowCommand(QObject *sender) { record("Window", "windowCommand", sender); }
};

TEST(Dispatch, LaunchLinksTheTargetsAndTheActionsFollowThemAndTheFocusedField)
{
    VKActionDispatch dispatch;
    // A text field, a read-only one and a button, and one command action per command name.
    Window window;
    auto *edit = new QLineEdit(&window), *readOnly = new QLineEdit(&window);
    readOnly->setReadOnly(true);
    auto *button = new QPushButton("Button", &window);
    QList<VKCommandAction *> actions;
    for (const char *command : {"showHelp", "sendFeedback", "shared", "windowCommand", "none"})
        actions << new VKCommandAction(command, command, &window);
    const auto enabled = [&] {
        QString states;
        for (VKCommandAction *action : actions)
            states += action->isEnabled() ? '1' : '0';
        return states;
    };
    window.show();
    window.activateWindow();
    ASSERT_TRUE(vkWaitUntil([&] { return QApplication::activeWindow() == &window; }))
        << "the platform gives no active window";
    button->setFocus();
    ASSERT_TRUE(vkWaitUntil([&] { return QApplication::focusWidget() == button; }));
    // Before launch only the window's own command has a target.
    EXPECT_EQ(enabled(), "00010");

    // Without targets, linking cuts the dispatcher's old next responder.
    VKResponder stale;
    dispatch.setNextResponder(&stale);
    dispatch.updateResponders();
    EXPECT_EQ(dispatch.nextResponder(), nullptr);

    ASSERT_TRUE(VKApplicationLifecycle::attachToApplication());
    ASSERT_TRUE(vkWaitUntil([&] { return enabled() == "10110"; })) << enabled();
    const QString targets = "actiontests::VDActionTargetHelp actiontests::VHActionTargetFeedback";
    EXPECT_EQ(chain(VKResponder::applicationResponder()),
              "VKResponder VKActionDispatch " + targets);
    const auto responders = dispatch.allResponders();
    VKActionTarget *help = responders[0].get(), *feedback = responders[1].get();

    // Each step's states, in the order showHelp sendFeedback shared windowCommand none.
    // clang-format off
    const std::tuple<const char *, std::function<void()>, QString> steps[] = {
        {"feedback becomes valid", [&] { feedback->setValid(true); }, "11110"},
        {"help becomes invalid; feedback still has shared", [&] { help->setValid(false); }, "01110"},
        {"help valid again", [&] { help->setValid(true); }, "11110"},
        {"editing text disables the targets' commands", [&] { edit->setFocus(); }, "00010"},
        {"a read-only field is not being edited", [&] { readOnly->setFocus(); }, "11110"},
    };
    // clang-format on
    for (const auto &[name, change, states] : steps) {
        SCOPED_TRACE(name);
        change();
        EXPECT_EQ(enabled(), states);
    }

    performed.clear();
    for (VKCommandAction *action : actions)
        action->trigger();
    help->setValid(false);
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
    EXPECT_EQ(chain(&dispatch), "VKActionDispatch " + targets + " VKResponder");
}

} // namespace actiontests

#include "ActionDispatchTests.moc"

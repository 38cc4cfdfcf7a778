// Commands along the responder chain: which objects answer a command, the state notifications of
// action targets, the discovery and linking of targets at launch, and a real window whose menu
// of command actions follows the targets and the focused text field.
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
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <gtest/gtest.h>

// Named, so that moc can reach the test classes.
namespace actiontests {

// "<receiver> <command> <sender's text>" per performed command, in order.
QStringList performed;

QString senderText(QObject *sender)
{
    auto *action = qobject_cast<QAction *>(sender);
    return action ? action->text() : QStringLiteral("-");
}

// Records what it performs; every target has the command "shared".
class Recorder : public VKActionTarget
{
    Q_OBJECT

public:
    Recorder(const QString &name, const QSet<QString> &selectors, bool valid) : m_name(name)
    {
        setSelectors(selectors);
        setValid(valid);
    }
    Q_INVOKABLE void shared(QObject *sender) { record("shared", sender); }

protected:
    void record(const char *command, QObject *sender)
    {
        performed.append(m_name + " " + command + " " + senderText(sender));
    }
    QString m_name;
};

class Target : public Recorder
{
    Q_OBJECT

public:
    using Recorder::Recorder;
    Q_INVOKABLE void showHelp(QObject *sender) { record("showHelp", sender); }
    Q_INVOKABLE void sendFeedback() { record("sendFeedback", nullptr); }
    Q_INVOKABLE void takesText(const QString &) {}

Q_SIGNALS:
    void announced();

protected:
    Q_INVOKABLE void hidden() {}
};

// The classes an application declares; found by name at launch.
class VDActionTargetHelp : public Recorder
{
    Q_OBJECT
public:
    VDActionTargetHelp() : Recorder("Help", {"showHelp", "shared"}, true) {}
    Q_INVOKABLE void showHelp(QObject *sender) { record("showHelp", sender); }
};
class VHActionTargetFeedback : public Recorder
{
    Q_OBJECT
public:
    VHActionTargetFeedback() : Recorder("Feedback", {"sendFeedback", "shared"}, false) {}
    Q_INVOKABLE void sendFeedback() { record("sendFeedback", nullptr); }
};
// Right prefix, wrong base; right base, wrong prefix.
class VDActionTargetNotDerived : public VKResponder
{
};
class VKActionTargetStray : public Target
{
public:
    VKActionTargetStray() : Target("Stray", {"showHelp"}, true) {}
};

// Counts state notifications and keeps the command names they carried.
struct StateNotifications
{
    StateNotifications()
    {
        token = VKNotificationCenter::defaultCenter().addObserver(
            this, VKActionTargetStateCouldHaveBeenChangedNotification, nullptr,
            [this](const VKNotification &n) {
                EXPECT_TRUE(n.object().hasCommandNames());
                EXPECT_EQ(n.object().identity(), nullptr); // the names, not the target
                names.append(n.object().commandNames());
            });
    }
    ~StateNotifications() { VKNotificationCenter::defaultCenter().removeObservation(token); }
    QList<QSet<QString>> names;
    VKNotificationToken token = 0;
};

TEST(Responder, AnswersCommandsByNameDeclarationAndValidity)
{
    // clang-format off
    const struct { const char *name; bool valid; QString command; bool expected; } cases[] = {
        {"declared and valid", true, "showHelp", true},
        {"declared but invalid is invisible", false, "showHelp", false},
        {"undeclared method answers regardless", false, "sendFeedback", true},
        {"inherited slot answers while invalid", false, "deleteLater", true},
        {"signal is no command", true, "announced", false},
        {"protected method is no command", true, "hidden", false},
        {"method taking a string is no command", true, "takesText", false},
        {"unknown", true, "nothing", false},
        {"empty", true, "", false},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Target target("T", {"showHelp"}, c.valid);
        EXPECT_EQ(target.respondsToSelector(c.command), c.expected);
    }
}

TEST(Responder, TryToPerformStopsAtTheFirstResponderThatAnswers)
{
    VKResponder head;
    Target first("First", {"showHelp"}, false), second("Second", {"showHelp"}, true);
    head.setNextResponder(&first);
    first.setNextResponder(&second);
    second.setNextResponder(&head); // a circular chain must still end
    performed.clear();

    EXPECT_TRUE(head.tryToPerform("showHelp", nullptr));
    first.setValid(true);
    EXPECT_TRUE(head.tryToPerform("showHelp", nullptr));
    EXPECT_TRUE(second.tryToPerform("sendFeedback", nullptr)); // undeclared, performed at once
    EXPECT_FALSE(head.tryToPerform("nothing", nullptr));
    EXPECT_EQ(performed,
              QStringList({"Second showHelp -", "First showHelp -", "Second sendFeedback -"}));
}

TEST(ActionTarget, ValidPostsOnceAndOnlyOnChange)
{
    Target target("T", {"a", "b"}, false);
    StateNotifications posts;
    QStringList announced; // "old>new"
    target.observe(kValid, VKKeyValueObservingOptionOld | VKKeyValueObservingOptionNew,
                   [&](VKObservable *, const QString &, const VKKeyValueChange &change) {
                       announced.append(change.oldValue.toString() + ">" +
                                        change.newValue.toString());
                   });
    // Same value, change, same again; then through the key: same, change.
    for (const auto &[byKey, value] :
         {std::pair(false, false), std::pair(false, true), std::pair(false, true),
          std::pair(true, true), std::pair(true, false)})
        byKey ? target.setValueForKey(value, kValid) : target.setValid(value);
    EXPECT_EQ(announced, QStringList({"false>true", "true>false"}));
    EXPECT_EQ(posts.names, (QList<QSet<QString>>{{"a", "b"}, {"a", "b"}}));
}

TEST(ActionTarget, ControlValidationFollowsTheCurrentDictionaryAndLogsWhatItDidNotAskFor)
{
    auto a = std::make_shared<VKObservable>(), b = std::make_shared<VKObservable>();
    const auto bump = [](VKObservable &object) { object.changeValueForKey("count", [] {}); };
    auto target = std::make_unique<Target>("T", QSet<QString>{"x"}, true);
    StateNotifications posts;
    VKLogCapture log;
    int dictionaryAnnouncements = 0;
    target->observe("invokeControlValidationObservers", 0,
                    [&](VKObservable *, const QString &, const VKKeyValueChange &) {
                        ++dictionaryAnnouncements;
                    });

    target->setInvokeControlValidationObservers({{"count", a}});
    bump(*a);
    EXPECT_EQ(posts.names.size(), 1);
    target->setInvokeControlValidationObservers({{"count", b}});
    bump(*a); // no longer observed: neither posted nor logged
    EXPECT_EQ(posts.names.size(), 1);
    bump(*b);
    EXPECT_EQ(posts.names.size(), 2);
    EXPECT_EQ(dictionaryAnnouncements, 2);
    EXPECT_TRUE(log.messages().isEmpty());

    // A listed object with an unlisted key, an unlisted object with a listed key.
    const std::pair<VKObservable *, QString> strays[] = {{b.get(), "other"}, {a.get(), "count"}};
    for (const auto &[object, key] : strays) {
        log.clear();
        object->addObserver(target.get(), key);
        object->changeValueForKey(key, [] {});
        object->removeObserver(target.get(), key);
        EXPECT_EQ(log.messages(),
                  QStringList(QString::asprintf(
                      "No observer found for keyPath %s of object <VKObservable: %p>",
                      qPrintable(key), static_cast<const void *>(object))));
        EXPECT_EQ(log.entries().value(0).level, VKLogLevel::Error);
    }
    EXPECT_EQ(posts.names.size(), 2);

    target.reset(); // the observation of b ends with the target
    bump(*b);
    EXPECT_FALSE(b->hasObserversForKey("count"));
    EXPECT_EQ(posts.names.size(), 2);
}

class Dispatch : public ::testing::Test
{
protected:
    void registerTargets()
    {
        using R = VKClassRegistry;
        R::registerClass<VHActionTargetFeedback, VKActionTarget>(classes[0], "VKActionTarget");
        R::registerClass<VDActionTargetHelp, VKActionTarget>(classes[1], "VKActionTarget");
        R::registerClass<VDActionTargetNotDerived, VKResponder>(classes[2], "VKResponder");
        R::registerClass<VKActionTargetStray, VKActionTarget>(classes[3], "VKActionTarget");
    }
    void TearDown() override
    {
        for (const char *name : classes)
            VKClassRegistry::unregisterClass(name);
    }
    static constexpr const char *classes[] = {"VHActionTargetFeedback", "VDActionTargetHelp",
                                              "VDActionTargetNotDerived", "VKActionTargetStray"};
    // Classes along the chain from `responder`.
    static QString chain(const VKResponder *responder)
    {
        QStringList names;
        for (; responder && names.size() < 6; responder = responder->nextResponder())
            names << responder->metaObject()->className();
        return names.join(u' ');
    }
};

TEST_F(Dispatch, LaunchLinksApplicationDispatcherAndTargets)
{
    VKActionDispatch dispatch;
    VKResponder stale;
    dispatch.setNextResponder(&stale);
    const auto launch = [] {
        VKNotificationCenter::defaultCenter().postNotificationName(
            VKApplicationDidFinishLaunchingNotification);
    };
    launch();
    EXPECT_TRUE(dispatch.allResponders().isEmpty());
    EXPECT_EQ(chain(VKResponder::applicationResponder()), "VKResponder VKActionDispatch");

    registerTargets();
    launch();
    const QString targets = "actiontests::VDActionTargetHelp actiontests::VHActionTargetFeedback";
    EXPECT_EQ(chain(VKResponder::applicationResponder()),
              "VKResponder VKActionDispatch " + targets);
    EXPECT_TRUE(dispatch.acceptsFirstResponder());
    EXPECT_TRUE(dispatch.becomeFirstResponder());

    // Relinking leaves what follows the last target alone.
    VKResponder beyond;
    dispatch.allResponders().last()->setNextResponder(&beyond);
    dispatch.updateResponders();
    EXPECT_EQ(chain(&dispatch), "VKActionDispatch " + targets + " VKResponder");
}

class Window : public QMainWindow
{
    Q_OBJECT

public:
    Window()
    {
        auto *central = new QWidget;
        auto *layout = new QVBoxLayout(central);
        layout->addWidget(edit = new QLineEdit);
        layout->addWidget(readOnly = new QLineEdit);
        readOnly->setReadOnly(true);
        layout->addWidget(button = new QPushButton("Button"));
        button->setFocusPolicy(Qt::StrongFocus);
        setCentralWidget(central);
        QMenu *menu = menuBar()->addMenu("Help");
        for (const char *command : {"showHelp", "sendFeedback", "shared", "windowCommand", "none"})
            actions.append(new VKCommandAction(command, command, menu));
        menu->addActions(QList<QAction *>(actions.begin(), actions.end()));
    }
    Q_INVOKABLE void windowCommand(QObject *sender)
    {
        performed.append("Window windowCommand " + senderText(sender));
    }
    QString enabledStates() const
    {
        QString states;
        for (VKCommandAction *action : actions)
            states += action->isEnabled() ? '1' : '0';
        return states;
    }

    QLineEdit *edit, *readOnly;
    QPushButton *button;
    QList<VKCommandAction *> actions;
};

TEST_F(Dispatch, MenuOfCommandActionsFollowsTargetsAndTheFocusedField)
{
    registerTargets();
    VKActionDispatch dispatch;
    Window window;
    window.show();
    window.activateWindow();
    ASSERT_TRUE(vkWaitUntil([&] { return QApplication::activeWindow() == &window; }))
        << "the platform gives no active window";
    window.button->setFocus();
    ASSERT_TRUE(vkWaitUntil([&] { return QApplication::focusWidget() == window.button; }));
    // Before launch only the window's own command has a target.
    EXPECT_EQ(window.enabledStates(), "00010");

    ASSERT_TRUE(VKApplicationLifecycle::attachToApplication());
    ASSERT_TRUE(vkWaitUntil([&] { return window.enabledStates() == "10110"; }))
        << window.enabledStates();
    const auto targets = dispatch.allResponders();
    ASSERT_EQ(targets.size(), 2);
    VKActionTarget *help = targets[0].get(), *feedback = targets[1].get();

    // Each step's states, in the order showHelp sendFeedback shared windowCommand none.
    // clang-format off
    const std::tuple<const char *, std::function<void()>, QString> steps[] = {
        {"feedback becomes valid", [&] { feedback->setValid(true); }, "11110"},
        {"help becomes invalid; feedback still has shared", [&] { help->setValid(false); }, "01110"},
        {"help valid again", [&] { help->setValid(true); }, "11110"},
        {"editing text disables the targets' commands", [&] { window.edit->setFocus(); }, "00010"},
        {"a read-only field is not being edited", [&] { window.readOnly->setFocus(); }, "11110"},
    };
    // clang-format on
    for (const auto &[name, change, states] : steps) {
        SCOPED_TRACE(name);
        change();
        EXPECT_EQ(window.enabledStates(), states);
    }

    performed.clear();
    for (VKCommandAction *action : window.actions)
        action->trigger();
    help->setValid(false);
    window.actions[2]->trigger();
    EXPECT_EQ(performed, QStringList({"Help showHelp showHelp", "Feedback sendFeedback -",
                                      "Help shared shared", "Window windowCommand windowCommand",
                                      "Feedback shared shared"}));
}

} // namespace actiontests

#include "ActionDispatchTests.moc"

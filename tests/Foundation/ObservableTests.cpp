#include "Foundation/VKException.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKObservable.h"

#include "../support/VKTestDeadline.h"
#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <QRegularExpression>
#include <QThread>

#include <atomic>
#include <latch>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// A selection model in the style of the enumerations: "selectedElement" is announced by hand,
// "selectedName" depends on it, "title" announces automatically.
class Selection : public VKObservable
{
public:
    QString element() const
    {
        std::lock_guard lock(m_mutex);
        return m_element;
    }
    void setElement(const QString &element)
    {
        willChangeValueForKey("selectedElement");
        {
            std::lock_guard lock(m_mutex);
            m_element = element;
        }
        didChangeValueForKey("selectedElement");
    }
    void setElementSilently(const QString &element)
    {
        std::lock_guard lock(m_mutex);
        m_element = element;
    }
    void setTitle(const QString &title)
    {
        changeValueForKey("title", [&] {
            std::lock_guard lock(m_mutex);
            m_title = title;
        });
    }
    void setCount(int count)
    {
        changeValueForKey("count", [&] { m_count = count; });
    }

    bool automaticallyNotifiesObserversForKey(const QString &key) const override
    {
        return key != "selectedElement" && key != "count";
    }
    QSet<QString> keyPathsForValuesAffectingValueForKey(const QString &key) const override
    {
        if (key == "selectedName")
            return {"selectedElement"};
        if (key == "displayName")
            return {"selectedName"};
        return {};
    }
    QVariant valueForKey(const QString &key) const override
    {
        std::lock_guard lock(m_mutex);
        if (key == "selectedElement")
            return m_element;
        if (key == "selectedName")
            return m_element.toUpper();
        if (key == "displayName")
            return "<" + m_element.toUpper() + ">";
        if (key == "title")
            return m_title;
        if (key == "count")
            return m_count.load();
        return VKObservable::valueForKey(key);
    }
    void setValueForKey(const QVariant &value, const QString &key) override
    {
        if (key == "title")
            setTitle(value.toString());
        else
            VKObservable::setValueForKey(value, key);
    }
    QString className() const override { return "Selection"; }

private:
    mutable std::mutex m_mutex;
    QString m_element = "a";
    QString m_title;
    std::atomic<int> m_count{0};
};

struct Call
{
    QString key;
    QVariantMap change;
    void *context;
    Qt::HANDLE thread;
};

class Recorder : public VKKeyValueObserver
{
public:
    void observeValueForKeyPath(const QString &keyPath, VKObservable *,
                                const VKKeyValueChange &change, void *context) override
    {
        std::lock_guard lock(mutex);
        calls.push_back({keyPath, change.dictionary(), context, QThread::currentThreadId()});
        if (onCall)
            onCall(keyPath);
    }
    std::vector<Call> snapshot()
    {
        std::lock_guard lock(mutex);
        return calls;
    }
    std::mutex mutex;
    std::vector<Call> calls;
    std::function<void(const QString &)> onCall;
};

} // namespace

// The title goes from "" to "x" on another thread, then to "y" by key on this one; the
// options decide what each call carries, and every call runs on the changing thread.
TEST(Observable, OptionsDecideWhatTheChangeCarries)
{
    using M = QVariantMap;
    const auto New = VKKeyValueObservingOptionNew, Old = VKKeyValueObservingOptionOld;
    const auto Initial = VKKeyValueObservingOptionInitial;
    const auto Prior = VKKeyValueObservingOptionPrior;
    const M prior1{{"kind", 1}, {"old", ""}, {"notificationIsPrior", true}};
    const M prior2{{"kind", 1}, {"old", "x"}, {"notificationIsPrior", true}};
    struct Case
    {
        const char *name;
        VKKeyValueObservingOptions options;
        std::vector<M> calls; // the initial call (if any), then the calls of both changes
    };
    const Case cases[] = {
        {"none", 0, {M{{"kind", 1}}, M{{"kind", 1}}}},
        {"new and old",
         New | Old,
         {M{{"kind", 1}, {"old", ""}, {"new", "x"}}, M{{"kind", 1}, {"old", "x"}, {"new", "y"}}}},
        {"initial without new", Initial, {M{{"kind", 1}}, M{{"kind", 1}}, M{{"kind", 1}}}},
        {"everything",
         Initial | New | Prior | Old,
         {M{{"kind", 1}, {"new", ""}}, prior1, M{{"kind", 1}, {"old", ""}, {"new", "x"}}, prior2,
          M{{"kind", 1}, {"old", "x"}, {"new", "y"}}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Selection selection;
        Recorder recorder;
        int context = 0;
        selection.addObserver(&recorder, "title", c.options, &context);
        Qt::HANDLE worker = nullptr;
        std::thread([&] {
            worker = QThread::currentThreadId();
            selection.setTitle("x");
        }).join();
        selection.setValueForKey("y", "title");
        selection.removeObserver(&recorder, "title");
        selection.setTitle("z"); // removed: not told
        const auto calls = recorder.snapshot();
        ASSERT_EQ(calls.size(), c.calls.size());
        for (size_t i = 0; i < calls.size(); ++i) {
            EXPECT_EQ(calls[i].change, c.calls[i]) << "call " << i;
            EXPECT_EQ(calls[i].context, &context);
        }
        const size_t initial = (c.options & Initial) ? 1 : 0;
        const size_t perChange = (c.options & Prior) ? 2 : 1;
        for (size_t i = initial; i < calls.size(); ++i)
            EXPECT_EQ(calls[i].thread,
                      i < initial + perChange ? worker : QThread::currentThreadId());
    }
}

TEST(Observable, OptOutKeysAnnounceOnlyByHandAndDependentsFollow)
{
    Selection selection;
    Recorder recorder;
    const auto both = VKKeyValueObservingOptionNew | VKKeyValueObservingOptionOld;
    selection.addObserver(
        &recorder, QStringList{"selectedElement", "selectedName", "displayName", "count"}, both);
    selection.setCount(3); // opted out: no announcement
    selection.setElementSilently("b");
    EXPECT_TRUE(recorder.snapshot().empty());

    selection.setElement("c");
    const auto calls = recorder.snapshot();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].key, "selectedElement");
    EXPECT_EQ(calls[1].key, "selectedName");
    EXPECT_EQ(calls[1].change.value("old").toString(), "B");
    EXPECT_EQ(calls[1].change.value("new").toString(), "C");
    // Dependencies are followed transitively.
    EXPECT_EQ(calls[2].key, "displayName");
    EXPECT_EQ(calls[2].change.value("new").toString(), "<C>");
    EXPECT_TRUE(selection.hasObserversForKey("selectedElement"));
    EXPECT_FALSE(selection.hasObserversForKey("title"));
    selection.removeObserver(
        &recorder, QStringList{"selectedElement", "selectedName", "displayName", "count"});
    EXPECT_FALSE(selection.hasObserversForKey("selectedElement"));
}

TEST(Observable, NestedPairsCloseInnermostFirst)
{
    Selection selection;
    selection.setTitle("t0");
    std::vector<QString> order;
    const auto options = VKKeyValueObservingOptionOld | VKKeyValueObservingOptionNew;
    auto record = [&](VKObservable *, const QString &key, const VKKeyValueChange &change) {
        order.push_back(key + ":" + change.oldValue.toString() + ">" + change.newValue.toString());
    };
    selection.observe("title", options, record);
    selection.observe("selectedElement", options, record);
    selection.willChangeValueForKey("title");
    selection.willChangeValueForKey("selectedElement");
    selection.setTitle("t1");                 // a complete pair inside
    selection.willChangeValueForKey("title"); // the same key opened again
    selection.setElementSilently("z");
    selection.setValueForKey("t2", "title");
    selection.didChangeValueForKey("title");
    selection.didChangeValueForKey("selectedElement");
    selection.didChangeValueForKey("title");
    EXPECT_EQ(order, (std::vector<QString>{"title:t0>t1", "title:t1>t2", "title:t1>t2",
                                           "selectedElement:a>z", "title:t0>t2"}));
}

TEST(Observable, RemovalDuringCallbackStopsLaterCalls)
{
    Selection selection;
    Recorder first, second;
    selection.addObserver(&first, "title");
    selection.addObserver(&second, "title");
    first.onCall = [&](const QString &) { selection.removeObserver(&second, "title"); };
    selection.setTitle("x");
    EXPECT_EQ(first.snapshot().size(), 1u);
    EXPECT_EQ(second.snapshot().size(), 0u);

    first.onCall = nullptr;
    const auto token = selection.observe(
        "title", 0, [&](VKObservable *, const QString &, const VKKeyValueChange &) {
            selection.removeObserver(&first, "title");
        });
    selection.setTitle("y");
    selection.removeObservation(token);
    selection.removeObservation(token); // unknown tokens are ignored
    EXPECT_FALSE(selection.hasObserversForKey("title"));
}

// Two registering threads also race to make the object's observation part on first use.
TEST(Observable, RegistrationAndAnnouncementFromManyThreads)
{
    Selection selection;
    std::atomic<int> delivered{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 300; ++i)
                selection.setTitle(QString::number(i));
        });
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&] {
            while (!stop) {
                auto local = std::make_shared<Recorder>();
                selection.addObserver(local, "title", VKKeyValueObservingOptionNew);
                const auto token = selection.observe(
                    "title", 0, [&](VKObservable *, const QString &, const VKKeyValueChange &) {
                        ++delivered;
                    });
                selection.removeObservation(token);
                // A call still running elsewhere keeps the recorder alive.
                selection.removeObserver(local.get(), "title");
            }
        });
    for (int t = 0; t < 3; ++t)
        threads[t].join();
    stop = true;
    for (int t = 3; t < 5; ++t)
        threads[t].join();
    EXPECT_FALSE(selection.hasObserversForKey("title"));
}

TEST(Observable, RegistrationBetweenWillAndDidSeesTheChange)
{
    // One observer is there at will-change, the other registers before did-change.
    struct Case
    {
        const char *name;
        QString lateKey;
        QString newValue;
    };
    const Case cases[] = {{"the changed key", "selectedElement", "b"},
                          {"a key depending on it", "selectedName", "B"}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Selection selection;
        Recorder early, late;
        selection.addObserver(&early, "selectedElement");
        selection.willChangeValueForKey("selectedElement");
        selection.addObserver(&late, c.lateKey,
                              VKKeyValueObservingOptionNew | VKKeyValueObservingOptionOld);
        selection.setElementSilently("b");
        selection.didChangeValueForKey("selectedElement");
        EXPECT_EQ(early.snapshot().size(), 1u);
        const auto calls = late.snapshot();
        ASSERT_EQ(calls.size(), 1u);
        // It missed the will-change, so it has no old value.
        EXPECT_EQ(calls[0].change, (QVariantMap{{"kind", 1}, {"new", c.newValue}}));
    }
}

TEST(Observable, RemovalNeverWaitsForCallsOnOtherThreads)
{
    // A callback holding a lock removes a registration whose callback, on another thread, is
    // waiting for that lock.
    vkFinishesWithin(10, "removal under a lock a running callback waits for", [] {
        Selection selection;
        std::mutex held;
        std::atomic<bool> holding{false}, waiting{false};
        std::atomic<int> titleCalls{0};
        const auto titleToken = selection.observe(
            "title", 0, [&](VKObservable *, const QString &, const VKKeyValueChange &) {
                ++titleCalls;
                waiting = true;
                std::lock_guard lock(held);
            });
        selection.observe("selectedElement", 0,
                          [&](VKObservable *, const QString &, const VKKeyValueChange &) {
                              std::lock_guard lock(held);
                              holding = true;
                              while (!waiting)
                                  std::this_thread::yield();
                              selection.removeObservation(titleToken);
                          });
        std::thread other([&] {
            while (!holding)
                std::this_thread::yield();
            selection.setTitle("x");
        });
        selection.setElement("b");
        other.join();
        selection.setTitle("y"); // removed: not called again
        EXPECT_EQ(titleCalls.load(), 1);
    });
    // Two callbacks, each on its own thread, remove each other's registration.
    vkFinishesWithin(10, "two threads removing each other's registrations", [] {
        Selection selection;
        std::latch bothInside(2);
        VKObservationToken tokens[2] = {};
        const QString keys[2] = {"title", "selectedElement"};
        for (int i = 0; i < 2; ++i)
            tokens[i] = selection.observe(
                keys[i], 0, [&, i](VKObservable *, const QString &, const VKKeyValueChange &) {
                    bothInside.arrive_and_wait();
                    selection.removeObservation(tokens[1 - i]);
                });
        std::thread other([&] { selection.setElement("b"); });
        selection.setTitle("x");
        other.join();
        EXPECT_FALSE(selection.hasObserversForKey("title"));
        EXPECT_FALSE(selection.hasObserversForKey("selectedElement"));
    });
}

TEST(Observable, SharedObserverOutlivesItsRemovalWhileACallRuns)
{
    struct State
    {
        std::atomic<bool> inside{false}, release{false}, destroyed{false};
        std::atomic<int> calls{0};
    } state;
    class Blocking : public VKKeyValueObserver
    {
    public:
        explicit Blocking(State &state) : m_state(state) {}
        ~Blocking() override { m_state.destroyed = true; }
        void observeValueForKeyPath(const QString &, VKObservable *, const VKKeyValueChange &,
                                    void *) override
        {
            ++m_state.calls;
            m_state.inside = true;
            while (!m_state.release)
                std::this_thread::yield();
        }

    private:
        State &m_state;
    };
    Selection selection;
    auto observer = std::make_shared<Blocking>(state);
    selection.addObserver(observer, "title");
    std::thread announcer([&] { selection.setTitle("x"); });
    while (!state.inside)
        std::this_thread::yield();
    vkFinishesWithin(10, "removing an observer whose call is running",
                     [&] { selection.removeObserver(observer.get(), "title"); });
    observer.reset();
    EXPECT_FALSE(state.destroyed); // the running call holds it
    state.release = true;
    announcer.join();
    EXPECT_TRUE(state.destroyed);
    selection.setTitle("y");
    EXPECT_EQ(state.calls.load(), 1);
}

TEST(Observable, LifetimeLapsesWithItsObject)
{
    VKObservableLifetime lifetime;
    EXPECT_FALSE(lifetime.isAlive());
    auto first = std::make_unique<Selection>();
    lifetime = first->lifetime();
    EXPECT_TRUE(lifetime.isAlive());
    EXPECT_EQ(lifetime.object(), first.get());
    EXPECT_TRUE(lifetime == first->lifetime());
    first.reset();
    EXPECT_FALSE(lifetime.isAlive());
    auto second = std::make_unique<Selection>();
    EXPECT_FALSE(second->lifetime() == lifetime);
}

TEST(Observable, UndefinedKeysAndBadRemovalThrowWithExactTexts)
{
    const QString undefined = "^\\[<Selection 0x[0-9a-f]+> %1\\]: this class is not key value "
                              "coding-compliant for the key colour\\.$";
    const QString notRegistered =
        "^Cannot remove an observer <.*Recorder 0x[0-9a-f]+> for the key path \"title\" from "
        "<Selection 0x[0-9a-f]+> because it is not registered as an observer\\.$";
    Selection selection;
    Recorder recorder;
    int context = 0, otherContext = 0;
    struct Case
    {
        const char *name;
        std::function<void()> action;
        QString exceptionName;
        QString reason; // a pattern of the whole text
        QVariantMap userInfo;
    };
    const Case cases[] = {
        {"value of an undefined key",
         [&] { selection.valueForKey("colour"); },
         VKUndefinedKeyException,
         undefined.arg("valueForUndefinedKey:"),
         {{"NSUnknownUserInfoKey", "colour"}}},
        {"setting an undefined key",
         [&] { selection.setValueForKey(1, "colour"); },
         VKUndefinedKeyException,
         undefined.arg("setValue:forUndefinedKey:"),
         {{"NSUnknownUserInfoKey", "colour"}}},
        {"removing an observer never added",
         [&] { selection.removeObserver(&recorder, "title"); },
         VKRangeException,
         notRegistered,
         {}},
        {"removing with another context",
         [&] {
             selection.addObserver(&recorder, "title", 0, &context);
             selection.removeObserver(&recorder, "title", &otherContext);
         },
         VKRangeException,
         notRegistered,
         {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        try {
            c.action();
            ADD_FAILURE() << "no exception";
        } catch (const VKException &exception) {
            EXPECT_EQ(exception.name(), c.exceptionName);
            EXPECT_TRUE(QRegularExpression(c.reason).match(exception.reason()).hasMatch())
                << exception.reason();
            EXPECT_EQ(exception.userInfo(), c.userInfo);
        }
    }
    selection.removeObserver(&recorder, "title", &context); // the right context does it
    EXPECT_FALSE(selection.hasObserversForKey("title"));
    EXPECT_EQ(selection.dictionaryWithValuesForKeys({"title", "selectedName"}),
              (QVariantMap{{"title", ""}, {"selectedName", "A"}}));
}

TEST(NotificationCenter, DeliversByNameAndSenderInRegistrationOrder)
{
    VKNotificationCenter center;
    int senderA = 0, senderB = 0, owner = 0;
    std::vector<QString> seen;
    center.addObserver(&owner, "Changed", &senderA, [&](const VKNotification &n) {
        seen.push_back("A-only:" + n.userInfo().value("k").toString());
    });
    center.addObserver(&owner, "Changed", nullptr,
                       [&](const VKNotification &) { seen.push_back("any-sender"); });
    const auto token =
        center.addObserver(nullptr, QString(), nullptr,
                           [&](const VKNotification &n) { seen.push_back("all:" + n.name()); });
    center.postNotificationName("Changed", &senderA, {{"k", 1}});
    center.postNotificationName("Changed", &senderB);
    center.postNotificationName("Other", &senderA);
    EXPECT_EQ(seen, (std::vector<QString>{"A-only:1", "any-sender", "all:Changed", "any-sender",
                                          "all:Changed", "all:Other"}));
    center.removeObserver(&owner, "Changed", &senderA);
    EXPECT_EQ(center.observationCount(), 2);
    center.removeObserver(&owner);
    EXPECT_EQ(center.observationCount(), 1);
    center.removeObservation(token);
    EXPECT_EQ(center.observationCount(), 0);
}

TEST(NotificationCenter, PostsOnThePostingThreadAndSurvivesConcurrentRemoval)
{
    auto &center = VKNotificationCenter::defaultCenter();
    int owner = 0;
    Qt::HANDLE handledOn = nullptr;
    center.addObserver(&owner, "VKTestThreadPost", nullptr,
                       [&](const VKNotification &) { handledOn = QThread::currentThreadId(); });
    Qt::HANDLE poster = nullptr;
    std::thread([&] {
        poster = QThread::currentThreadId();
        center.postNotificationName("VKTestThreadPost");
    }).join();
    EXPECT_EQ(handledOn, poster);
    center.removeObserver(&owner);

    std::atomic<bool> stop{false};
    std::thread posting([&] {
        while (!stop)
            center.postNotificationName("VKTestChurn");
    });
    for (int i = 0; i < 300; ++i) {
        auto counter = std::make_shared<std::atomic<int>>(0);
        center.addObserver(counter.get(), "VKTestChurn", nullptr,
                           [counter](const VKNotification &) { ++*counter; });
        center.removeObserver(counter.get());
        // A call still running keeps what the handler captured alive.
    }
    stop = true;
    posting.join();

    // A handler removing itself.
    int calls = 0;
    center.addObserver(&owner, "VKTestSelf", nullptr, [&](const VKNotification &) {
        ++calls;
        center.removeObserver(&owner);
    });
    center.postNotificationName("VKTestSelf");
    center.postNotificationName("VKTestSelf");
    EXPECT_EQ(calls, 1);
}

TEST(NotificationCenter, ObjectsAreTypedValuesThatFilterDelivery)
{
    struct Device
    {
    };
    Device device, other;
    const auto names = VKNotificationObject::commandNames({"copy:", "paste:"});
    struct Case
    {
        const char *name;
        VKNotificationObject filter;
        VKNotificationObject posted;
        bool delivered;
    };
    const Case cases[] = {
        {"nil filter, object", {}, &device, true},
        {"nil filter, command names", {}, names, true},
        {"same object", &device, &device, true},
        {"another object", &device, &other, false},
        {"object filter, nil posted", &device, {}, false},
        {"equal command names", VKNotificationObject::commandNames({"paste:", "copy:"}), names,
         true},
        {"other command names", VKNotificationObject::commandNames({"copy:"}), names, false},
        {"empty names are not nil", VKNotificationObject::commandNames({}), {}, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        VKNotificationCenter center;
        int delivered = 0;
        center.addObserver(nullptr, "N", c.filter, [&](const VKNotification &n) {
            ++delivered;
            EXPECT_TRUE(n.object() == c.posted);
        });
        center.postNotificationName("N", c.posted);
        EXPECT_EQ(delivered, c.delivered ? 1 : 0);
    }
    const VKNotification notification("N", &device);
    EXPECT_EQ(notification.object().object<Device>(), &device);
    EXPECT_EQ(notification.object().object<int>(), nullptr); // not given as an int
    EXPECT_EQ(notification.object().identity(), &device);
    EXPECT_FALSE(notification.object().hasCommandNames());
    EXPECT_EQ(names.commandNames(), (QSet<QString>{"paste:", "copy:"}));
    EXPECT_TRUE(VKNotificationObject().isNull());
    EXPECT_FALSE(names.isNull());
    auto shared = std::make_shared<Device>();
    std::weak_ptr<Device> weak = shared;
    VKNotificationObject held(std::move(shared));
    EXPECT_FALSE(weak.expired()); // kept by the value
    EXPECT_EQ(held.object<Device>(), weak.lock().get());
}

#include "Foundation/VKException.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKObservable.h"

#include <gtest/gtest.h>

#include <QThread>

#include <atomic>
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

TEST(Observable, OldAndNewValuesReachObserversOnTheChangingThread)
{
    Selection selection;
    Recorder recorder;
    int context = 0;
    selection.addObserver(&recorder, "title",
                          VKKeyValueObservingOptionNew | VKKeyValueObservingOptionOld, &context);
    Qt::HANDLE worker = nullptr;
    std::thread thread([&] {
        worker = QThread::currentThreadId();
        selection.setTitle("first");
    });
    thread.join();
    selection.setValueForKey("second", "title");

    const auto calls = recorder.snapshot();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].thread, worker);
    EXPECT_EQ(calls[0].change.value("old").toString(), "");
    EXPECT_EQ(calls[0].change.value("new").toString(), "first");
    EXPECT_EQ(calls[0].change.value("kind").toInt(), 1);
    EXPECT_EQ(calls[0].context, &context);
    EXPECT_EQ(calls[1].thread, QThread::currentThreadId());
    EXPECT_EQ(calls[1].change.value("old").toString(), "first");
    EXPECT_EQ(calls[1].change.value("new").toString(), "second");
    selection.removeObserver(&recorder, "title");
    selection.setTitle("third");
    EXPECT_EQ(recorder.snapshot().size(), 2u);
}

TEST(Observable, OptionsDecideWhatTheChangeCarries)
{
    Selection selection;
    Recorder plain, prior;
    selection.addObserver(&plain, "title");
    selection.addObserver(&prior, "title",
                          VKKeyValueObservingOptionInitial | VKKeyValueObservingOptionNew |
                              VKKeyValueObservingOptionPrior | VKKeyValueObservingOptionOld);
    ASSERT_EQ(prior.snapshot().size(), 1u); // the initial call
    EXPECT_EQ(prior.snapshot()[0].change, (QVariantMap{{"kind", 1}, {"new", ""}}));
    selection.setTitle("x");
    ASSERT_EQ(plain.snapshot().size(), 1u);
    EXPECT_EQ(plain.snapshot()[0].change, (QVariantMap{{"kind", 1}}));
    const auto calls = prior.snapshot();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1].change,
              (QVariantMap{{"kind", 1}, {"old", ""}, {"notificationIsPrior", true}}));
    EXPECT_EQ(calls[2].change, (QVariantMap{{"kind", 1}, {"old", ""}, {"new", "x"}}));
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
    threads.emplace_back([&] {
        while (!stop) {
            Recorder local;
            selection.addObserver(&local, "title", VKKeyValueObservingOptionNew);
            const auto token = selection.observe(
                "title", 0,
                [&](VKObservable *, const QString &, const VKKeyValueChange &) { ++delivered; });
            selection.removeObservation(token);
            // Once removal returns, the recorder may go away even if others were calling it.
            selection.removeObserver(&local, "title");
        }
    });
    for (int t = 0; t < 3; ++t)
        threads[t].join();
    stop = true;
    threads.back().join();
    EXPECT_FALSE(selection.hasObserversForKey("title"));
}

TEST(Observable, UndefinedKeysAndBadRemovalThrowWithExactTexts)
{
    Selection selection;
    try {
        selection.valueForKey("colour");
        FAIL() << "no exception";
    } catch (const VKException &exception) {
        EXPECT_EQ(exception.name(), VKUndefinedKeyException);
        EXPECT_TRUE(exception.reason().startsWith("[<Selection 0x"));
        EXPECT_TRUE(exception.reason().endsWith(" valueForUndefinedKey:]: this class is not key "
                                                "value coding-compliant for the key colour."));
        EXPECT_EQ(exception.userInfo().value("NSUnknownUserInfoKey").toString(), "colour");
    }
    try {
        selection.setValueForKey(1, "colour");
        FAIL() << "no exception";
    } catch (const VKException &exception) {
        EXPECT_TRUE(
            exception.reason().contains(" setValue:forUndefinedKey:]: this class is not key value "
                                        "coding-compliant for the key colour."));
    }
    Recorder recorder;
    try {
        selection.removeObserver(&recorder, "title");
        FAIL() << "no exception";
    } catch (const VKException &exception) {
        EXPECT_EQ(exception.name(), VKRangeException);
        EXPECT_TRUE(exception.reason().contains("for the key path \"title\" from <Selection 0x"));
        EXPECT_TRUE(exception.reason().endsWith("because it is not registered as an observer."));
    }
    int context = 0;
    selection.addObserver(&recorder, "title", 0, &context);
    EXPECT_THROW(selection.removeObserver(&recorder, "title", nullptr), VKException);
    selection.removeObserver(&recorder, "title", &context);
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
        auto counter = std::make_unique<std::atomic<int>>(0);
        center.addObserver(counter.get(), "VKTestChurn", nullptr,
                           [c = counter.get()](const VKNotification &) { ++*c; });
        center.removeObserver(counter.get());
        // The handler cannot run any more: destroying what it uses is safe.
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

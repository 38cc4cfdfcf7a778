#include "Application/VKNestedBool.h"
#include "Application/VKTransactionMediatorRegistry.h"
#include "Application/VKTransactionObservableMediation.h"

#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace M = VKTransactionObservableMediation;

namespace {

// A clip's model: three observed properties and one the mediator is not told about.
class Clip : public VKObservable, public VKTransactionObservable
{
public:
    QSet<QString> transactionObservableKeyPaths() const override
    {
        return {"title", "duration", "rate"};
    }
    void set(const QString &key, int value)
    {
        changeValueForKey(key, [&] { m_last.store(value); });
    }

private:
    std::atomic<int> m_last{0};
};

struct Call
{
    QString name;
    QSet<QString> keyPaths;
};

class Listener : public VKTransactionListener, public VKTransactionObserving
{
public:
    void observeTransactionWithName(const QString &name, VKObservable *,
                                    const QSet<QString> &keyPaths) override
    {
        if (removed.load())
            ++callsAfterRemoval;
        if (then)
            then();
        std::lock_guard lock(mutex);
        calls.push_back({name, keyPaths});
    }
    int count()
    {
        std::lock_guard lock(mutex);
        return int(calls.size());
    }
    std::mutex mutex;
    std::vector<Call> calls;
    std::function<void()> then;
    std::atomic<bool> removed{false};
    std::atomic<int> callsAfterRemoval{0};
};

// A listener without the callback.
class Mute : public VKTransactionListener
{
};

void busyWait(double seconds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < end) {
    }
}

} // namespace

TEST(TransactionMediator, BurstGivesOneCallPerInterestedSubscriptionWithItsWholeKeyPathSet)
{
    Clip clip;
    Listener timing, rate, both;
    Mute mute;
    M::addTransactionObserver(&clip, &timing, "timing", {"title", "duration"});
    M::addTransactionObserver(&clip, &rate, "rate", {"rate"});
    M::addTransactionObserver(&clip, &both, "all"); // the class's key paths
    M::addTransactionObserver(&clip, &mute, "mute", {"title"});
    for (int i = 0; i < 10; ++i)
        clip.set(i % 2 ? "title" : "duration", i);
    ASSERT_TRUE(vkWaitUntil([&] { return timing.count() == 1 && both.count() == 1; }));
    vkSpinEventLoop(30);
    EXPECT_EQ(timing.count(), 1);
    EXPECT_EQ(both.count(), 1);
    EXPECT_EQ(rate.count(), 0);
    EXPECT_EQ(timing.calls[0].name, "timing");
    EXPECT_EQ(timing.calls[0].keyPaths, (QSet<QString>{"title", "duration"}));
    EXPECT_EQ(both.calls[0].keyPaths, (QSet<QString>{"title", "duration", "rate"}));

    // A change nobody watches ends a transaction without a call.
    M::removeTransactionObserver(&clip, &both, "all");
    clip.set("rate", 1);
    ASSERT_TRUE(vkWaitUntil([&] { return rate.count() == 1; }));
    EXPECT_EQ(timing.count(), 1);
    for (auto [listener, name] : std::vector<std::pair<VKTransactionListener *, QString>>{
             {&timing, "timing"}, {&rate, "rate"}, {&mute, "mute"}})
        M::removeTransactionObserver(&clip, listener, name);
}

TEST(TransactionMediator, MayEndTransactionWaitsOutTheBurstThenEndsAtOnce)
{
    Clip clip;
    Listener listener;
    M::addTransactionObserver(&clip, &listener, "early", {"title"});
    clip.set("title", 1);
    M::mayEndTransaction(&clip); // within 0.01 s: the end timer will do it
    EXPECT_EQ(listener.count(), 0);
    busyWait(0.02); // the main loop does not turn, so the end timer cannot fire
    M::mayEndTransaction(&clip);
    EXPECT_EQ(listener.count(), 1);
    vkSpinEventLoop(30); // the pending end timer finds no transaction
    EXPECT_EQ(listener.count(), 1);
    M::removeTransactionObserver(&clip, &listener, "early");
}

TEST(TransactionMediator, IntervalDefersAChangeByAFreshFullInterval)
{
    Clip clip;
    Listener listener;
    M::addTransactionObserver(&clip, &listener, "slow", {"title"}, 0.2);
    clip.set("title", 1);
    ASSERT_TRUE(vkWaitUntil([&] { return listener.count() == 1; }));
    const auto suppressed = std::chrono::steady_clock::now();
    clip.set("title", 2);
    vkSpinEventLoop(50);
    EXPECT_EQ(listener.count(), 1); // within the interval: deferred
    ASSERT_TRUE(vkWaitUntil([&] { return listener.count() == 2; }));
    EXPECT_GE(std::chrono::steady_clock::now() - suppressed, std::chrono::milliseconds(190));
    M::removeTransactionObserver(&clip, &listener, "slow");
}

TEST(TransactionMediator, DeferredCallIsDroppedWhileATransactionIsOpen)
{
    Clip clip;
    Listener listener;
    M::addTransactionObserver(&clip, &listener, "slow", {"title"}, 0.1);
    clip.set("title", 1);
    ASSERT_TRUE(vkWaitUntil([&] { return listener.count() == 1; }));
    clip.set("title", 2); // deferred by 0.1 s
    vkSpinEventLoop(20);
    ASSERT_EQ(listener.count(), 1);
    busyWait(0.15);       // the deferred timer is due, the loop does not turn
    clip.set("title", 3); // opens a transaction before the deferred timer can fire
    // The deferred timer finds the open transaction and leaves the call to its end.
    ASSERT_TRUE(vkWaitUntil([&] { return listener.count() == 2; }));
    vkSpinEventLoop(150);
    EXPECT_EQ(listener.count(), 2);
    M::removeTransactionObserver(&clip, &listener, "slow");
}

TEST(TransactionMediator, EqualSubscriptionsKeepTheFirstNameAndLastRemovalDropsTheMediator)
{
    Clip clip;
    Listener listener;
    M::addTransactionObserver(&clip, &listener, "first", {"title"});
    M::addTransactionObserver(&clip, &listener, "second", {"title"});
    std::weak_ptr<VKTransactionMediator> mediator = M::transactionMediator(&clip);
    clip.set("title", 1);
    ASSERT_TRUE(vkWaitUntil([&] { return listener.count() == 1; }));
    vkSpinEventLoop(20);
    ASSERT_EQ(listener.count(), 1);
    EXPECT_EQ(listener.calls[0].name, "first");

    M::removeTransactionObserver(&clip, &listener, "second"); // matches nothing, one remains
    EXPECT_TRUE(clip.hasObserversForKey("title"));
    M::removeTransactionObserver(&clip, &listener, "first");
    EXPECT_FALSE(clip.hasObserversForKey("title"));
    EXPECT_EQ(
        VKTransactionMediatorRegistry::sharedRegistry().existingMediatorForFacadeObject(&clip),
        nullptr);
    ASSERT_TRUE(vkWaitUntil([&] { return mediator.expired(); }));
    EXPECT_NE(M::transactionMediator(&clip), nullptr);
    EXPECT_TRUE(clip.hasObserversForKey("title"));
}

TEST(TransactionMediator, ListenerMayChangeTheFacadeAndRemoveItselfFromItsCallback)
{
    Clip clip;
    Listener changer, remover;
    M::addTransactionObserver(&clip, &changer, "changer", {"title"});
    M::addTransactionObserver(&clip, &remover, "remover", {"duration"});
    bool changedOnce = false;
    changer.then = [&] {
        if (!std::exchange(changedOnce, true))
            clip.set("duration", 1); // opens a new transaction under the recursive lock
    };
    remover.then = [&] {
        M::removeTransactionObserver(&clip, &remover, "remover");
        M::addTransactionObserver(&clip, &remover, "again", {"rate"});
    };
    clip.set("title", 1);
    ASSERT_TRUE(vkWaitUntil([&] { return remover.count() == 1; }));
    M::removeTransactionObserver(&clip, &changer, "changer");
    M::removeTransactionObserver(&clip, &remover, "again");
}

// Rounds of bursts: in each, 8 threads change the round's keys while the main loop ends
// transactions as they come; ending the last one by hand makes the round's calls exact. Every
// subscription interested in the round is called at least once, the others never, and passing
// listeners on another thread are never called after their removal returned.
TEST(TransactionMediator, EightThreadsWhileListenersComeAndGo)
{
    struct Round
    {
        const char *name;
        QSet<QString> keys;
    };
    const std::vector<Round> rounds = {
        {"title only", {"title"}},
        {"rate only", {"rate"}},
        {"duration only", {"duration"}},
        {"all three", {"title", "duration", "rate"}},
    };
    struct Watcher
    {
        QString name;
        QSet<QString> keyPaths;
        Listener listener;
    };
    std::vector<std::unique_ptr<Watcher>> watchers;
    for (const auto &[name, keys] : std::vector<std::pair<QString, QSet<QString>>>{
             {"timing", {"title", "duration"}}, {"rate", {"rate"}}, {"title", {"title"}}}) {
        watchers.push_back(std::make_unique<Watcher>());
        watchers.back()->name = name;
        watchers.back()->keyPaths = keys;
    }

    Clip clip;
    for (auto &w : watchers)
        M::addTransactionObserver(&clip, &w->listener, w->name, w->keyPaths);
    std::atomic<bool> stopChurn{false};
    std::atomic<int> churned{0};
    std::thread churn([&] {
        while (!stopChurn.load()) {
            Listener passing;
            M::addTransactionObserver(&clip, &passing, "passing", {"title", "rate"});
            std::this_thread::yield();
            M::removeTransactionObserver(&clip, &passing, "passing");
            passing.removed.store(true);
            EXPECT_EQ(passing.callsAfterRemoval.load(), 0);
            churned.fetch_add(1);
        }
    });
#ifdef __SANITIZE_THREAD__
    constexpr int kRounds = 12; // every change is many times slower under the sanitizer
#else
    constexpr int kRounds = 100;
#endif
    for (int pass = 0; pass < kRounds; ++pass) {
        const Round &round = rounds[pass % rounds.size()];
        SCOPED_TRACE(round.name);
        std::vector<int> before;
        for (auto &w : watchers)
            before.push_back(w->listener.count());
        std::atomic<int> running{8};
        std::vector<std::thread> writers;
        for (int t = 0; t < 8; ++t)
            writers.emplace_back([&, t] {
                const QStringList keys(round.keys.begin(), round.keys.end());
                for (int i = 0; i < 200; ++i)
                    clip.set(keys[(t + i) % keys.size()], i);
                running.fetch_sub(1);
            });
        while (running.load() > 0)
            vkSpinEventLoop(1);
        for (auto &writer : writers)
            writer.join();
        M::transactionMediator(&clip)->endTransaction();
        for (size_t i = 0; i < watchers.size(); ++i) {
            const int calls = watchers[i]->listener.count() - before[i];
            if (watchers[i]->keyPaths.intersects(round.keys))
                EXPECT_GE(calls, 1) << "burst lost for " << watchers[i]->name.toStdString();
            else
                EXPECT_EQ(calls, 0) << "uninterested " << watchers[i]->name.toStdString();
        }
    }
    stopChurn.store(true);
    churn.join();
    EXPECT_GT(churned.load(), 0);
    for (auto &w : watchers)
        M::removeTransactionObserver(&clip, &w->listener, w->name);
}

TEST(NestedBool, CountsHoldersAndAnnouncesOnlyTheRiseAndTheFall)
{
    struct Case
    {
        const char *name;
        std::vector<bool> sets;
        bool value;
        int announcements;
    };
    const std::vector<Case> cases = {
        {"false at zero", {false}, false, 0},
        {"two up one down", {true, true, false}, true, 1},
        {"two up two down", {true, true, false, false}, false, 2},
        {"never below zero", {false, true}, true, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        VKNestedBool flag;
        std::vector<bool> seen;
        flag.observe("booleanValue", VKKeyValueObservingOptionNew,
                     [&](VKObservable *, const QString &, const VKKeyValueChange &change) {
                         seen.push_back(change.newValue.toBool());
                     });
        bool boolValueAnnounced = false;
        flag.observe("boolValue", 0,
                     [&](VKObservable *, const QString &, const VKKeyValueChange &) {
                         boolValueAnnounced = true;
                     });
        for (bool value : c.sets)
            flag.setBoolValue(value);
        EXPECT_EQ(flag.boolValue(), c.value);
        EXPECT_EQ(int(seen.size()), c.announcements);
        EXPECT_FALSE(boolValueAnnounced);
        EXPECT_GE(flag.counter(), 0);
    }
}

#include "Application/VKNestedBool.h"
#include "Application/VKTransactionMediatorRegistry.h"
#include "Application/VKTransactionObservableMediation.h"
#include "Application/VKTransactionTimerSource.h"

#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace M = VKTransactionObservableMediation;
using namespace std::chrono_literals;
using Clock = VKTransactionTimerSource::Clock;

namespace {

// A clip's model: four observed properties.
class Clip : public VKObservable, public VKTransactionObservable
{
public:
    QSet<QString> transactionObservableKeyPaths() const override
    {
        return {"title", "duration", "rate", "reel"};
    }
    void set(const QString &key) { changeValueForKey(key, [] {}); }
};

// Time stands still until the test moves it. advance() fires the timers that fall due, each at
// its fire time, earliest first and in scheduling order among equals: a main loop that is never
// late. skip() moves time and fires nothing: a main loop that is busy.
class HandClock final : public VKTransactionTimerSource
{
public:
    Clock::time_point now() override
    {
        std::lock_guard lock(m_mutex);
        return m_now;
    }
    std::shared_ptr<VKMainLoopTimer> scheduledTimer(double interval,
                                                    VKMainLoopTimer::Callback callback) override
    {
        auto timer = VKMainLoopTimer::unscheduledTimer(interval, std::move(callback));
        std::lock_guard lock(m_mutex);
        m_pending.push_back({m_now + std::chrono::round<Clock::duration>(
                                         std::chrono::duration<double>(interval)),
                             timer});
        m_made.push_back(timer);
        return timer;
    }
    void skip(Clock::duration step)
    {
        std::lock_guard lock(m_mutex);
        m_now += step;
    }
    void advance(Clock::duration step)
    {
        const Clock::time_point until = now() + step;
        while (auto timer = takeDue(until))
            timer->fire();
        std::lock_guard lock(m_mutex);
        m_now = std::max(m_now, until);
    }
    // The fire times of the valid timers, in milliseconds from the mark, earliest first.
    std::vector<double> pending()
    {
        std::lock_guard lock(m_mutex);
        dropSpent();
        std::vector<double> times;
        for (const auto &[due, timer] : m_pending)
            times.push_back(ms(due));
        std::sort(times.begin(), times.end());
        return times;
    }
    // What a real loop does with timers invalidated or spent: fires them late.
    void fireEveryTimerLate()
    {
        for (const auto &timer : m_made)
            timer->fire();
    }
    void mark() { m_mark = now(); }
    double ms(Clock::time_point time) const
    {
        return std::chrono::duration<double, std::milli>(time - m_mark).count();
    }

private:
    void dropSpent()
    {
        std::erase_if(m_pending, [](const auto &entry) { return !entry.second->isValid(); });
    }
    std::shared_ptr<VKMainLoopTimer> takeDue(Clock::time_point until)
    {
        std::lock_guard lock(m_mutex);
        dropSpent();
        auto next = std::min_element(m_pending.begin(), m_pending.end(),
                                     [](const auto &a, const auto &b) { return a.first < b.first; });
        if (next == m_pending.end() || next->first > until)
            return nullptr;
        m_now = std::max(m_now, next->first);
        auto timer = next->second;
        m_pending.erase(next);
        return timer;
    }

    std::mutex m_mutex;
    Clock::time_point m_now = Clock::time_point() + 1000s;
    Clock::time_point m_mark = m_now;
    std::vector<std::pair<Clock::time_point, std::shared_ptr<VKMainLoopTimer>>> m_pending;
    std::vector<std::shared_ptr<VKMainLoopTimer>> m_made;
};

// Writes "name@ms" for each call, the time read from the hand clock.
class Recorder : public VKTransactionListener, public VKTransactionObserving
{
public:
    Recorder(QStringList &log, HandClock &clock) : m_log(log), m_clock(clock) {}
    void observeTransactionWithName(const QString &name, VKObservable *,
                                    const QSet<QString> &paths) override
    {
        m_log << name + '@' + QString::number(m_clock.ms(m_clock.now()), 'g', 15);
        keyPaths = paths;
        if (then)
            then();
    }
    QSet<QString> keyPaths;
    std::function<void()> then;

private:
    QStringList &m_log;
    HandClock &m_clock;
};

// A listener without the callback.
class Mute : public VKTransactionListener
{
};

// Mediators made in these tests run on a hand clock.
class TransactionTiming : public ::testing::Test
{
protected:
    TransactionTiming() { VKTransactionMediatorRegistry::sharedRegistry().setTimerSource(clock); }
    ~TransactionTiming() override
    {
        for (const auto &[listener, name] : subscriptions)
            M::removeTransactionObserver(clip.get(), listener, name);
        VKTransactionMediatorRegistry::sharedRegistry().setTimerSource(nullptr);
    }
    // Without key paths: those of the facade's class.
    Recorder &subscribe(const QString &name, std::optional<QSet<QString>> keyPaths,
                        double interval = 0, Recorder *listener = nullptr)
    {
        if (!listener)
            listener = &listeners.emplace_back(log, *clock);
        if (keyPaths)
            M::addTransactionObserver(clip.get(), listener, name, *keyPaths, interval);
        else
            M::addTransactionObserver(clip.get(), listener, name);
        subscriptions.emplace_back(listener, name);
        return *listener;
    }
    void unsubscribe(VKTransactionListener *listener, const QString &name)
    {
        M::removeTransactionObserver(clip.get(), listener, name);
        std::erase(subscriptions, std::pair(listener, name));
    }
    // A fresh history for the next case of a table: new subscriptions, times from now.
    void restart()
    {
        for (const auto &[listener, name] : std::exchange(subscriptions, {}))
            M::removeTransactionObserver(clip.get(), listener, name);
        clock->advance(1h);
        clock->mark();
        log.clear();
    }

    std::shared_ptr<HandClock> clock = std::make_shared<HandClock>();
    std::unique_ptr<Clip> clip = std::make_unique<Clip>();
    QStringList log;
    std::deque<Recorder> listeners;
    std::vector<std::pair<VKTransactionListener *, QString>> subscriptions;
};

// The order of calls made at the same instant is not fixed.
QStringList sorted(QStringList log)
{
    std::stable_sort(log.begin(), log.end(), [](const QString &a, const QString &b) {
        return a.section('@', 1).toDouble() < b.section('@', 1).toDouble();
    });
    for (auto it = log.begin(); it != log.end();) {
        auto end = std::find_if(it, log.end(), [&](const QString &entry) {
            return entry.section('@', 1) != it->section('@', 1);
        });
        std::sort(it, end);
        it = end;
    }
    return log;
}

} // namespace

TEST_F(TransactionTiming, BurstRunsFromItsFirstChangeUntilTheEndTimerFires)
{
    Recorder &timing = subscribe("timing", {{"title", "duration"}});
    subscribe("rate", {{"rate"}});
    Mute mute;
    M::addTransactionObserver(clip.get(), &mute, "mute", {"title"});
    subscriptions.emplace_back(&mute, "mute");

    clip->set("reel"); // nobody watches it: the transaction ends without a call
    clock->advance(10ms);
    EXPECT_EQ(clock->pending(), std::vector<double>{});
    // Later changes join the open transaction and never reschedule its end.
    clip->set("reel");
    clock->advance(5ms);
    clip->set("duration");
    clock->advance(5ms - 1ns);
    clip->set("title");
    EXPECT_EQ(clock->pending(), std::vector<double>{20});
    EXPECT_EQ(log, QStringList{});
    clock->advance(1ns);
    EXPECT_EQ(log, QStringList{"timing@20"});
    EXPECT_EQ(timing.keyPaths, (QSet<QString>{"title", "duration"}));
    // While the main loop is busy the burst goes on past 10 ms.
    clip->set("title");
    clock->skip(50ms);
    clip->set("duration");
    EXPECT_EQ(clock->pending(), std::vector<double>{30});
    clock->advance(0ns);
    EXPECT_EQ(log, (QStringList{"timing@20", "timing@70"}));
}

TEST_F(TransactionTiming, MayEndTransactionEndsOnlyOnceTenMillisecondsHavePassed)
{
    const struct
    {
        const char *name;
        Clock::duration after;
        bool endsAtOnce;
        QString call;
    } cases[] = {
        {"with the first change", 0ns, false, "early@10"},
        {"1 ns short", 10ms - 1ns, false, "early@10"},
        {"exactly 10 ms", 10ms, false, "early@10"},
        {"1 ns past", 10ms + 1ns, true, "early@10.000001"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        restart();
        subscribe("early", {{"title"}});
        clip->set("title");
        clock->skip(c.after);
        M::mayEndTransaction(clip.get());
        EXPECT_EQ(log.size(), c.endsAtOnce ? 1 : 0);
        clock->advance(1s); // the end timer finds no transaction when mayEnd ended it
        EXPECT_EQ(log, QStringList{c.call});
    }
}

TEST_F(TransactionTiming, IntervalHoldsLaterBurstsAndDeliversTheLastOnceAFullIntervalAfterIt)
{
    subscribe("slow", {{"title"}}, 1.0);
    subscribe("fast", {{"title"}});
    for (int burst = 0; burst < 3; ++burst) {
        clip->set("title");
        clock->advance(10ms);
        clock->advance(290ms);
    }
    // The burst ended at 610 replaced the timer of the one ended at 310.
    EXPECT_EQ(clock->pending(), std::vector<double>{1610});
    clock->advance(710ms - 1ns);
    EXPECT_EQ(log.size(), 4);
    clock->advance(1ns);
    EXPECT_EQ(sorted(log), (QStringList{"fast@10", "slow@10", "fast@310", "fast@610", "slow@1610"}));
    EXPECT_EQ(clock->pending(), std::vector<double>{});
}

TEST_F(TransactionTiming, IntervalCountsFromTheLastCallToTheEndOfTheNextBurst)
{
    const struct
    {
        const char *name;
        Clock::duration gap;
        QStringList log;
        std::vector<double> pending;
    } cases[] = {
        {"well inside", 300ms, {"slow@10"}, {1310}},
        {"1 ns short", 1s - 1ns, {"slow@10"}, {2009.999999}},
        {"exactly the interval", 1s, {"slow@10", "slow@1010"}, {}},
        {"past it", 1500ms, {"slow@10", "slow@1510"}, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        restart();
        subscribe("slow", {{"title"}}, 1.0);
        clip->set("title");
        clock->advance(10ms);
        clock->skip(c.gap - 10ms);
        clip->set("title");
        clock->advance(10ms);
        EXPECT_EQ(log, c.log);
        EXPECT_EQ(clock->pending(), c.pending);
    }
}

TEST_F(TransactionTiming, HeldCallIsLeftToATransactionOpenWhenItsTimerFires)
{
    const struct
    {
        const char *name;
        const char *key;
        QStringList log;
    } cases[] = {
        {"that touches it", "title", {"slow@10", "slow@1315"}},
        {"that does not", "rate", {"slow@10"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        restart();
        subscribe("slow", {{"title"}}, 1.0);
        clip->set("title");
        clock->advance(300ms);
        clip->set("title"); // held until 1310
        clock->advance(1005ms);
        clip->set(c.key); // open from 1305 to 1315
        clock->advance(2s);
        EXPECT_EQ(log, c.log);
    }
}

TEST_F(TransactionTiming, RemovalInvalidatesTheSubscriptionsHeldCall)
{
    Recorder &a = subscribe("a", {{"title"}}, 1.0);
    subscribe("b", {{"title"}}, 1.0);
    clip->set("title");
    clock->advance(300ms);
    clip->set("title");
    clock->advance(10ms);
    EXPECT_EQ(clock->pending(), (std::vector<double>{1310, 1310}));
    unsubscribe(&a, "a");
    EXPECT_EQ(clock->pending(), std::vector<double>{1310});
    clock->advance(2s);
    EXPECT_EQ(sorted(log), (QStringList{"a@10", "b@10", "b@1310"}));
}

TEST_F(TransactionTiming, LastRemovalDropsTheMediatorOnceItsEndTimerHasFired)
{
    Recorder &slow = subscribe("slow", {{"title"}}, 1.0);
    std::weak_ptr<VKTransactionMediator> mediator = M::transactionMediator(clip.get());
    clip->set("title");
    clock->advance(300ms);
    clip->set("title");
    clock->advance(100ms);
    clip->set("title");
    EXPECT_EQ(clock->pending(), (std::vector<double>{410, 1310}));

    unsubscribe(&slow, "slow");
    EXPECT_EQ(clock->pending(), std::vector<double>{410});
    EXPECT_FALSE(clip->hasObserversForKey("title"));
    EXPECT_EQ(
        VKTransactionMediatorRegistry::sharedRegistry().existingMediatorForFacadeObject(clip.get()),
        nullptr);
    EXPECT_FALSE(mediator.expired()); // the end timer holds it
    clock->advance(10ms);
    EXPECT_TRUE(mediator.expired());
    clock->fireEveryTimerLate();
    EXPECT_EQ(log, QStringList{"slow@10"});

    // The next use makes a new mediator that observes the facade again.
    subscribe("again", {{"title"}});
    clip->set("title");
    clock->advance(10ms);
    EXPECT_EQ(log, (QStringList{"slow@10", "again@420"}));
}

TEST_F(TransactionTiming, TimersOfAFacadeThatIsGoneCallNobody)
{
    subscribe("slow", {{"title"}}, 1.0);
    subscribe("fast", {{"title"}});
    std::weak_ptr<VKTransactionMediator> mediator = M::transactionMediator(clip.get());
    clip->set("title");
    clock->advance(300ms);
    clip->set("title");
    clock->advance(100ms);
    clip->set("title");
    EXPECT_EQ(clock->pending(), (std::vector<double>{410, 1310}));
    clip.reset();
    subscriptions.clear();
    clock->advance(2s);
    EXPECT_EQ(sorted(log), (QStringList{"fast@10", "slow@10", "fast@310"}));
    // Its entry lapses at the registry's next lookup.
    Clip other;
    M::transactionMediator(&other);
    EXPECT_TRUE(mediator.expired());
}

TEST_F(TransactionTiming, EqualSubscriptionKeepsTheFirstNameAndGetsTheWholeKeyPathSet)
{
    Recorder &listener = subscribe("first", std::nullopt);
    subscribe("second", {{"title", "duration", "rate", "reel"}}, 0, &listener);
    clip->set("duration");
    clock->advance(10ms);
    EXPECT_EQ(log, QStringList{"first@10"});
    EXPECT_EQ(listener.keyPaths, clip->transactionObservableKeyPaths());
    unsubscribe(&listener, "second"); // matches nothing; observation goes on
    EXPECT_TRUE(clip->hasObserversForKey("title"));
}

TEST_F(TransactionTiming, ListenerMayChangeTheFacadeAndResubscribeFromItsCallback)
{
    Recorder &changer = subscribe("changer", {{"title"}});
    Recorder &remover = subscribe("remover", {{"duration"}});
    changer.then = [&] {
        if (log.size() == 1)
            clip->set("duration"); // opens the next transaction
    };
    remover.then = [&] {
        unsubscribe(&remover, "remover");
        subscribe("again", {{"rate"}}, 0, &remover);
    };
    clip->set("title");
    clock->advance(20ms);
    clip->set("rate");
    clock->advance(10ms);
    EXPECT_EQ(log, (QStringList{"changer@10", "remover@20", "again@30"}));
}

// Rounds of bursts on the real main loop: in each, 8 threads change the round's keys while the
// main loop ends transactions as they come; ending the last one by hand makes the round's calls
// exact. Every subscription interested in the round is called at least once, the others never,
// and passing listeners on another thread are never called after their removal returned.
TEST(TransactionMediator, EightThreadsWhileListenersComeAndGo)
{
    struct Counter : VKTransactionListener, VKTransactionObserving
    {
        void observeTransactionWithName(const QString &, VKObservable *,
                                        const QSet<QString> &) override
        {
            if (removed.load())
                callsAfterRemoval.fetch_add(1);
            calls.fetch_add(1);
        }
        std::atomic<int> calls{0};
        std::atomic<bool> removed{false};
        std::atomic<int> callsAfterRemoval{0};
    };
    const std::vector<std::pair<const char *, QSet<QString>>> rounds = {
        {"title only", {"title"}},
        {"rate only", {"rate"}},
        {"duration only", {"duration"}},
        {"all three", {"title", "duration", "rate"}},
    };
    const std::vector<std::pair<QString, QSet<QString>>> watches = {
        {"timing", {"title", "duration"}}, {"rate", {"rate"}}, {"title", {"title"}}};
    std::deque<Counter> watchers(watches.size());

    Clip clip;
    for (size_t i = 0; i < watches.size(); ++i)
        M::addTransactionObserver(&clip, &watchers[i], watches[i].first, watches[i].second);
    std::atomic<bool> stopChurn{false};
    std::atomic<int> churned{0};
    std::thread churn([&] {
        while (!stopChurn.load()) {
            Counter passing;
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
        const auto &[roundName, keys] = rounds[pass % rounds.size()];
        SCOPED_TRACE(roundName);
        std::vector<int> before;
        for (auto &w : watchers)
            before.push_back(w.calls.load());
        std::atomic<int> running{8};
        std::vector<std::thread> writers;
        for (int t = 0; t < 8; ++t)
            writers.emplace_back([&, t] {
                const QStringList list(keys.begin(), keys.end());
                for (int i = 0; i < 200; ++i)
                    clip.set(list[(t + i) % list.size()]);
                running.fetch_sub(1);
            });
        while (running.load() > 0)
            vkSpinEventLoop(1);
        for (auto &writer : writers)
            writer.join();
        M::transactionMediator(&clip)->endTransaction();
        for (size_t i = 0; i < watchers.size(); ++i) {
            const int calls = watchers[i].calls.load() - before[i];
            if (watches[i].second.intersects(keys))
                EXPECT_GE(calls, 1) << "burst lost for " << watches[i].first;
            else
                EXPECT_EQ(calls, 0) << "uninterested " << watches[i].first;
        }
    }
    stopChurn.store(true);
    churn.join();
    EXPECT_GT(churned.load(), 0);
    for (size_t i = 0; i < watches.size(); ++i)
        M::removeTransactionObserver(&clip, &watchers[i], watches[i].first);
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

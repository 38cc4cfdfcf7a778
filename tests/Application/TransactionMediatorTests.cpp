// Transactions of a facade's changes on a hand-stepped clock and the real main loop; nested bool.
#include "Application/VKNestedBool.h"
#include "Application/VKTransactionMediatorRegistry.h"
#include "Application/VKTransactionObservableMediation.h"
#include "Application/VKTransactionTimerSource.h"

#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace M = VKTransactionObservableMediation;
using namespace std::chrono;
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
    void set(const QString &key)
    {
        changeValueForKey(key, [] {});
    }
};

// Time stands still until a test moves it. advance() fires the timers that fall due at their fire
// times, earliest first and in scheduling order among equals (a loop that is never late), or with
// `fire` false none (a busy one). Every timer made stays.
struct HandClock final : VKTransactionTimerSource
{
    Clock::time_point now() override
    {
        std::lock_guard lock(mutex);
        return time;
    }
    std::shared_ptr<VKMainLoopTimer> scheduledTimer(double interval,
                                                    VKMainLoopTimer::Callback callback) override
    {
        auto timer = VKMainLoopTimer::unscheduledTimer(interval, std::move(callback));
        std::lock_guard lock(mutex);
        timers.emplace(time + round<Clock::duration>(duration<double>(interval)), timer);
        return timer;
    }
    void advance(Clock::duration step, bool fire = true)
    {
        std::unique_lock lock(mutex);
        const Clock::time_point until = time + step;
        for (auto due = timers.begin(); fire && due != timers.upper_bound(until); ++due) {
            if (!due->second->isValid())
                continue;
            time = std::max(time, due->first);
            lock.unlock(); // entries are never removed: `due` stays valid
            due->second->fire();
            lock.lock();
        }
        time = until;
    }
    // The fire times of the valid timers, in milliseconds from the mark, earliest first.
    QString pending()
    {
        std::lock_guard lock(mutex);
        QStringList times;
        for (const auto &[when, timer] : timers)
            if (timer->isValid())
                times << ms(when);
        return times.join(' ');
    }
    QString ms(Clock::time_point at) const
    {
        return QString::number(duration<double, std::milli>(at - mark).count(), 'g', 15);
    }

    std::mutex mutex;
    Clock::time_point time = Clock::time_point() + 1000s, mark = time;
    std::multimap<Clock::time_point, std::shared_ptr<VKMainLoopTimer>> timers;
};

// Writes "name@ms" for each call, the time read from the hand clock, then does `then`.
struct Recorder : VKTransactionListener, VKTransactionObserving
{
    Recorder(QStringList &log, HandClock &clock) : log(log), clock(clock) {}
    void observeTransactionWithName(const QString &name, VKObservable *,
                                    const QSet<QString> &) override
    {
        log << name + '@' + clock.ms(clock.now());
        if (then)
            then();
    }
    QStringList &log;
    HandClock &clock;
    std::function<void()> then;
};

// Mediators made in these tests run on a hand clock. Subscriptions lapse with their clip; the
// timers still pending, which hold their mediator, fire at the end.
class TransactionTiming : public ::testing::Test
{
protected:
    TransactionTiming() { VKTransactionMediatorRegistry::sharedRegistry().setTimerSource(clock); }
    ~TransactionTiming() override
    {
        clock->advance(1h);
        VKTransactionMediatorRegistry::sharedRegistry().setTimerSource(nullptr);
    }
    // Subscribes a new listener, or `listener`, as "name:key,key/interval in ms".
    Recorder &subscribe(const QString &text, Recorder *listener = nullptr)
    {
        if (!listener)
            listener = &listeners.emplace_back(log, *clock);
        const QString name = text.section(':', 0, 0);
        const QStringList keys = text.section(':', 1).section('/', 0, 0).split(',');
        M::addTransactionObserver(clip.get(), listener, name, QSet(keys.begin(), keys.end()),
                                  text.section('/', 1).toDouble() / 1000);
        subscriptions.insert(name, listener);
        return *listener;
    }
    // A key changes it; "+ms" moves the clock on, firing what falls due; "~ms" moves it and
    // fires nothing; "end" is mayEndTransaction; "-name" removes that subscription.
    void run(const QString &steps)
    {
        for (const QString &step : steps.split(' ', Qt::SkipEmptyParts)) {
            const nanoseconds ms(std::llround(step.mid(1).toDouble() * 1e6));
            const QString name = step.mid(1);
            if (step[0] == '+' || step[0] == '~')
                clock->advance(ms, step[0] == '+');
            else if (step[0] == '-')
                M::removeTransactionObserver(clip.get(), subscriptions.take(name), name);
            else if (step == "end")
                M::mayEndTransaction(clip.get());
            else
                clip->set(step);
        }
    }
    // The calls by time, then by name: the order of calls at one instant is not fixed.
    QString calls() const
    {
        const auto key = [](const QString &call) {
            return std::pair(call.section('@', 1).toDouble(), call);
        };
        QStringList sorted = log;
        std::sort(sorted.begin(), sorted.end(), [&](auto &a, auto &b) { return key(a) < key(b); });
        return sorted.join(' ');
    }

    std::shared_ptr<HandClock> clock = std::make_shared<HandClock>();
    std::unique_ptr<Clip> clip = std::make_unique<Clip>();
    QStringList log;
    std::deque<Recorder> listeners;
    QHash<QString, VKTransactionListener *> subscriptions;
};

} // namespace

// A burst runs from its first change until its end timer fires; mayEndTransaction ends it once
// 10 ms have passed. A subscription with an interval is called at most once per interval, a held
// call a full interval after the last held burst; removal invalidates that subscription's holds.
TEST_F(TransactionTiming, BurstsEndingsIntervalsAndRemovalFollowTheClock)
{
    const struct
    {
        // Subscriptions as subscribe() takes them, steps as run() does.
        const char *name, *subscriptions, *steps, *calls, *pending;
    } cases[] = {
        {"later changes join and never move the end", "t:title,duration",
         "reel +5 duration +4.999999 title +0.000001 title +10", "t@10 t@20", ""},
        {"a busy main loop lengthens it", "t:title,duration", "title ~50 duration +0", "t@50", ""},
        {"end 1 ns short", "e:title", "title ~9.999999 end ~5 +0", "e@14.999999", ""},
        {"end at exactly 10 ms", "e:title", "title ~10 end ~5 +0", "e@15", ""},
        {"end 1 ns past; the end timer then finds nothing", "e:title", "title ~10.000001 end ~5 +0",
         "e@10.000001", ""},
        {"held, replaced by a later hold, delivered once", "slow:title/1000 fast:title",
         "title +300 title +300 title +2000", "fast@10 slow@10 fast@310 fast@610 slow@1610", ""},
        {"1 ns short of the interval", "slow:title/1000", "title +10 ~989.999999 title +10",
         "slow@10", "2009.999999"},
        {"exactly the interval", "slow:title/1000", "title +10 ~990 title +10", "slow@10 slow@1010",
         ""},
        {"an open transaction that touches it takes it over", "slow:title/1000",
         "title +300 title +1005 title +2000", "slow@10 slow@1315", ""},
        {"one that does not touch it drops it", "slow:title/1000",
         "title +300 title +1005 rate +2000", "slow@10", ""},
        {"removal of one", "a:title/1000 b:title/1000", "title +300 title +10 -a", "a@10 b@10",
         "1310"},
        {"removal while the end timer is pending", "a:title/1000 b:title",
         "title +300 title +10 title -a +2000", "a@10 b@10 b@310 b@320", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        clip = std::make_unique<Clip>(); // a fresh history, timed from now
        clock->mark = clock->now();
        log.clear();
        for (const QString &subscription : QString(c.subscriptions).split(' '))
            subscribe(subscription);
        run(c.steps);
        EXPECT_EQ(calls(), c.calls);
        EXPECT_EQ(clock->pending(), c.pending);
    }
}

// The registry drops the mediator with its last subscription, but the end timer holds it until it
// fires; the next use makes a new one that observes the facade again. Once the facade is gone its
// timers call nobody, and its entry lapses at the registry's next lookup.
TEST_F(TransactionTiming, MediatorLivesWhileSubscribedOrItsTimersArePending)
{
    subscribe("slow:title/1000");
    std::weak_ptr<VKTransactionMediator> mediator = M::transactionMediator(clip.get());
    run("title +300 title +100 title -slow");
    EXPECT_EQ(clock->pending(), "410");
    EXPECT_FALSE(clip->hasObserversForKey("title"));
    EXPECT_FALSE(mediator.expired());
    run("+10");
    EXPECT_TRUE(mediator.expired());
    subscribe("slow:title/1000");
    subscribe("fast:title");
    mediator = M::transactionMediator(clip.get());
    run("title +300 title +100 title");
    EXPECT_EQ(clock->pending(), "820 1720");
    clip.reset();
    run("+2000");
    EXPECT_EQ(calls(), "slow@10 fast@420 slow@420 fast@720");
    Clip other;
    M::transactionMediator(&other);
    EXPECT_TRUE(mediator.expired());
}

// Subscriptions are equal in listener, key paths and interval; removal goes by listener and name.
TEST_F(TransactionTiming, EqualSubscriptionKeepsTheFirstNameAndListenersWithoutCallbackAreSkipped)
{
    Recorder &listener = listeners.emplace_back(log, *clock);
    M::addTransactionObserver(clip.get(), &listener, "first"); // the class's key paths
    subscribe("second:title,duration,rate,reel", &listener);
    subscribe("slower:title,duration,rate,reel/1000", &listener);
    static VKTransactionListener mute; // no callback
    M::addTransactionObserver(clip.get(), &mute, "mute", {"duration"});
    run("duration +10 -second duration +10");
    EXPECT_EQ(log.join(' '), "first@10 slower@10 first@20");
    EXPECT_EQ(clock->pending(), "1020");
}

// A listener may change the facade and the subscriptions from its call; one removed by an earlier
// listener of the same pass is not called.
TEST_F(TransactionTiming, ListenerMayChangeTheFacadeAndSubscriptionsFromItsCallback)
{
    Recorder &changer = subscribe("changer:title");
    Recorder &remover = subscribe("remover:duration");
    subscribe("removed:title");
    changer.then = [&] {
        if (log.size() == 1)
            run("duration -removed"); // the change opens the next transaction
    };
    remover.then = [&] {
        if (log.last().startsWith("remover")) {
            run("-remover");
            subscribe("again:rate", &remover);
        }
    };
    run("title +20 rate +10");
    EXPECT_EQ(log.join(' '), "changer@10 remover@20 again@30");
}

// Another thread ending a transaction holds the transaction lock while its listeners run; a
// held call that falls due meanwhile is still made.
TEST_F(TransactionTiming, HeldCallIsMadeWhileAnotherThreadEndsATransaction)
{
    subscribe("slow:title/1000");
    Recorder &rate = subscribe("rate:rate");
    std::promise<void> entered, leave;
    rate.then = [&, left = leave.get_future().share()] {
        entered.set_value();
        left.wait();
    };
    run("title +300 title +1005 rate"); // held until 1310; the new transaction ends at 1315
    std::thread other([&] { M::transactionMediator(clip.get())->endTransaction(); });
    entered.get_future().wait();
    run("+5");
    leave.set_value();
    other.join();
    run("+100");
    EXPECT_EQ(log.join(' '), "slow@10 rate@1305 slow@1310");
}

// Rounds on the real main loop: 8 threads change the round's keys while the main loop ends
// transactions as they come, and the last is ended by hand. Each subscription interested in the
// round is called, the others never; passing listeners subscribed around each change are never
// called after their removal returned.
TEST(TransactionMediator, EightThreadsWhileListenersComeAndGo)
{
    struct Counter : VKTransactionListener, VKTransactionObserving
    {
        void observeTransactionWithName(const QString &, VKObservable *,
                                        const QSet<QString> &) override
        {
            callsAfterRemoval += removed.load();
            ++calls;
        }
        std::atomic<int> calls{0}, callsAfterRemoval{0};
        std::atomic<bool> removed{false};
    };
    const QStringList rounds[] = {{"title"}, {"rate"}, {"duration"}, {"title", "duration", "rate"}};
    const QSet<QString> watches[] = {{"title", "duration"}, {"rate"}, {"title"}};
    Counter watchers[std::size(watches)];
    Clip clip;
    for (std::size_t i = 0; i < std::size(watches); ++i)
        M::addTransactionObserver(&clip, &watchers[i], "watch", watches[i]);
#ifdef __SANITIZE_THREAD__
    constexpr int kRounds = 12; // every change is many times slower under the sanitizer
#else
    constexpr int kRounds = 100;
#endif
    for (int pass = 0; pass < kRounds; ++pass) {
        const QStringList &keys = rounds[pass % std::size(rounds)];
        for (auto &watcher : watchers)
            watcher.calls = 0;
        std::atomic<int> running{8};
        std::vector<std::thread> writers;
        for (int t = 0; t < 8; ++t)
            writers.emplace_back([&, t] {
                for (int i = 0; i < 200; ++i) {
                    Counter passing;
                    M::addTransactionObserver(&clip, &passing, "passing", {"title", "rate"});
                    clip.set(keys[(t + i) % keys.size()]);
                    M::removeTransactionObserver(&clip, &passing, "passing");
                    passing.removed.store(true);
                    EXPECT_EQ(passing.callsAfterRemoval.load(), 0);
                }
                --running;
            });
        while (running.load() > 0)
            vkSpinEventLoop(1);
        for (auto &writer : writers)
            writer.join();
        M::transactionMediator(&clip)->endTransaction();
        for (std::size_t i = 0; i < std::size(watches); ++i)
            EXPECT_EQ(watchers[i].calls.load() > 0,
                      watches[i].intersects(QSet(keys.begin(), keys.end())))
                << keys.join(',') << ' ' << i;
    }
}

// The flag announces "booleanValue" only at its rise and its fall, never counts below zero, and
// leaves "boolValue" to be announced by hand.
TEST(NestedBool, CountsHoldersAndAnnouncesOnlyTheRiseAndTheFall)
{
    VKNestedBool flag;
    QStringList announced;
    flag.observe("booleanValue", VKKeyValueObservingOptionNew,
                 [&](VKObservable *, const QString &, const VKKeyValueChange &change) {
                     announced << change.newValue.toString();
                 });
    for (const bool value : {false, true, true, false})
        flag.setBoolValue(value);
    EXPECT_EQ(std::pair(flag.counter(), flag.boolValue()), std::pair(1, true));
    flag.setBoolValue(false);
    EXPECT_EQ(std::pair(flag.counter(), flag.boolValue()), std::pair(0, false));
    EXPECT_EQ(announced, (QStringList{"true", "false"}));
    EXPECT_FALSE(flag.automaticallyNotifiesObserversForKey("boolValue"));
}

// Change throughput on a facade watched by a transaction mediator with 10 subscriptions, against
// the same facade with one plain observer per key, and the calls each burst makes.
#include "Application/VKTransactionObservableMediation.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <atomic>
#include <vector>

namespace {

const QStringList kKeys = {"title", "duration", "rate", "reel", "scene"};

class Facade : public VKObservable, public VKTransactionObservable
{
public:
    QSet<QString> transactionObservableKeyPaths() const override
    {
        return {kKeys.begin(), kKeys.end()};
    }
    void set(const QString &key, int value)
    {
        changeValueForKey(key, [&] { m_last.store(value); });
    }

private:
    std::atomic<int> m_last{0};
};

class Counter : public VKTransactionListener, public VKTransactionObserving
{
public:
    void observeTransactionWithName(const QString &, VKObservable *, const QSet<QString> &) override
    {
        ++calls;
    }
    long calls = 0;
};

// Ten subscriptions, each on one of the keys; half of them watch "title".
struct Watched
{
    Facade facade;
    std::vector<Counter> listeners = std::vector<Counter>(10);
    Watched()
    {
        for (int i = 0; i < 10; ++i)
            VKTransactionObservableMediation::addTransactionObserver(
                &facade, &listeners[i], QString::number(i),
                {i % 2 ? kKeys[0] : kKeys[1 + i / 2 % 4]});
    }
    ~Watched()
    {
        for (int i = 0; i < 10; ++i)
            VKTransactionObservableMediation::removeTransactionObserver(&facade, &listeners[i],
                                                                        QString::number(i));
    }
    long calls() const
    {
        long total = 0;
        for (const auto &listener : listeners)
            total += listener.calls;
        return total;
    }
};

// Bursts of ten changes of "title", each ended at once: one call per interested subscription.
void BM_MediatedBursts(benchmark::State &state)
{
    Watched watched;
    auto mediator = VKTransactionObservableMediation::transactionMediator(&watched.facade);
    long bursts = 0;
    for (auto _ : state) {
        for (int i = 0; i < 10; ++i)
            watched.facade.set("title", i);
        mediator->endTransaction();
        // Each burst leaves a spent end timer in the main loop's queue; a long queue slows
        // everything down, so it is emptied now and then, off the clock.
        if (++bursts % 1024 == 0) {
            state.PauseTiming();
            QCoreApplication::processEvents();
            state.ResumeTiming();
        }
    }
    QCoreApplication::processEvents();
    state.SetItemsProcessed(bursts * 10);
    state.counters["calls_per_burst"] = double(watched.calls()) / double(bursts);
}
BENCHMARK(BM_MediatedBursts);

// The reference: the same changes told to one plain observer per key.
void BM_PlainObservers(benchmark::State &state)
{
    Facade facade;
    long told = 0;
    for (const QString &key : kKeys)
        facade.observe(key, 0,
                       [&](VKObservable *, const QString &, const VKKeyValueChange &) { ++told; });
    for (auto _ : state)
        for (int i = 0; i < 10; ++i)
            facade.set("title", i);
    state.SetItemsProcessed(state.iterations() * 10);
    benchmark::DoNotOptimize(told);
}
BENCHMARK(BM_PlainObservers);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

// Throughput of the operation queue (operations without dependencies, 1 and 4 workers) next to
// a minimal mutex-and-condition thread pool running the same work, and of key-value
// announcements without observers and with one next to a plain std::function call.
#include "Foundation/VKObservable.h"
#include "Foundation/VKOperationQueue.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr int kBatch = 2000;

// Reference: the least a pool of worker threads must do per task.
class PlainPool
{
public:
    explicit PlainPool(int workers)
    {
        for (int i = 0; i < workers; ++i)
            m_threads.emplace_back([this] { run(); });
    }
    ~PlainPool()
    {
        {
            std::lock_guard lock(m_mutex);
            m_stop = true;
        }
        m_available.notify_all();
        for (auto &thread : m_threads)
            thread.join();
    }
    void add(std::function<void()> task)
    {
        {
            std::lock_guard lock(m_mutex);
            m_tasks.push_back(std::move(task));
            ++m_pending;
        }
        m_available.notify_one();
    }
    void waitAll()
    {
        std::unique_lock lock(m_mutex);
        m_idle.wait(lock, [this] { return m_pending == 0; });
    }

private:
    void run()
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_available.wait(lock, [this] { return m_stop || !m_tasks.empty(); });
            if (m_stop)
                return;
            auto task = std::move(m_tasks.front());
            m_tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
            if (--m_pending == 0)
                m_idle.notify_all();
        }
    }
    std::mutex m_mutex;
    std::condition_variable m_available, m_idle;
    std::deque<std::function<void()>> m_tasks;
    int m_pending = 0;
    bool m_stop = false;
    std::vector<std::thread> m_threads;
};

void BM_OperationQueue(benchmark::State &state)
{
    VKOperationQueue queue;
    queue.setMaxConcurrentOperationCount(static_cast<int>(state.range(0)));
    std::atomic<int> done{0};
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i)
            queue.addOperationWithBlock([&done] { done.fetch_add(1, std::memory_order_relaxed); });
        queue.waitUntilAllOperationsAreFinished();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_OperationQueue)->Arg(1)->Arg(4)->UseRealTime();

void BM_PlainThreadPool(benchmark::State &state)
{
    PlainPool pool(static_cast<int>(state.range(0)));
    std::atomic<int> done{0};
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i)
            pool.add([&done] { done.fetch_add(1, std::memory_order_relaxed); });
        pool.waitAll();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_PlainThreadPool)->Arg(1)->Arg(4)->UseRealTime();

class Counter : public VKObservable
{
public:
    void setValue(int value)
    {
        changeValueForKey(key(), [&] { m_value = value; });
    }
    QVariant valueForKey(const QString &key) const override
    {
        return key == Counter::key() ? QVariant(m_value) : VKObservable::valueForKey(key);
    }
    // Keys are constants, as in every setter of the library.
    static const QString &key()
    {
        static const QString value = QStringLiteral("value");
        return value;
    }

private:
    int m_value = 0;
};

void BM_Announcement(benchmark::State &state)
{
    Counter counter;
    const auto options = static_cast<VKKeyValueObservingOptions>(state.range(0));
    long long sum = 0;
    counter.observe(Counter::key(), options,
                    [&sum](VKObservable *, const QString &, const VKKeyValueChange &change) {
                        sum += change.hasNewValue ? change.newValue.toInt() : 1;
                    });
    int i = 0;
    for (auto _ : state)
        counter.setValue(++i);
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Announcement)
    ->Arg(0)
    ->Arg(VKKeyValueObservingOptionNew | VKKeyValueObservingOptionOld);

// A change nobody observes: the setter's announcement pair should cost next to nothing.
void BM_AnnouncementUnobserved(benchmark::State &state)
{
    Counter counter;
    int i = 0;
    for (auto _ : state)
        counter.setValue(++i);
    benchmark::DoNotOptimize(counter.valueForKey(Counter::key()));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AnnouncementUnobserved);

// Reference: storing the value and calling one std::function.
void BM_PlainCallback(benchmark::State &state)
{
    int value = 0;
    long long sum = 0;
    std::function<void(int)> observer = [&sum](int v) { sum += v; };
    for (auto _ : state) {
        value = value + 1;
        observer(value);
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PlainCallback);

} // namespace

BENCHMARK_MAIN();

// Operations per second through the serial queue against a plain single-thread executor (a
// mutex, a condition and a deque of functions) doing the same trivial work.
#include "Application/VKSingleThreadOperationQueue.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace {

constexpr int kBatch = 1000;

class CountingOperation : public VKOperationBase
{
public:
    explicit CountingOperation(std::atomic<long> *counter) : m_counter(counter) {}
    void main() override { m_counter->fetch_add(1, std::memory_order_relaxed); }

private:
    std::atomic<long> *m_counter;
};

// The reference: one worker thread taking functions off a deque.
class PlainExecutor
{
public:
    PlainExecutor()
    {
        m_thread = std::thread([this] {
            for (;;) {
                std::function<void()> task;
                {
                    std::unique_lock lock(m_mutex);
                    m_wake.wait(lock, [this] { return m_stop || !m_tasks.empty(); });
                    if (m_tasks.empty())
                        return;
                    task = std::move(m_tasks.front());
                    m_tasks.pop_front();
                }
                task();
            }
        });
    }
    ~PlainExecutor()
    {
        {
            std::lock_guard lock(m_mutex);
            m_stop = true;
        }
        m_wake.notify_all();
        m_thread.join();
    }
    void add(std::function<void()> task)
    {
        std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
        m_wake.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_tasks;
    bool m_stop = false;
    std::thread m_thread;
};

void BM_SingleThreadOperationQueue(benchmark::State &state)
{
    static VKSingleThreadOperationQueue queue;
    std::atomic<long> counter{0};
    for (auto _ : state) {
        std::shared_ptr<VKOperationBase> last;
        for (int i = 0; i < kBatch; ++i) {
            last = std::make_shared<CountingOperation>(&counter);
            queue.addOperation(last);
        }
        last->waitUntilFinished();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_SingleThreadOperationQueue)->UseRealTime();

void BM_PlainExecutor(benchmark::State &state)
{
    PlainExecutor executor;
    std::atomic<long> counter{0};
    for (auto _ : state) {
        std::mutex mutex;
        std::condition_variable done;
        bool finished = false;
        for (int i = 0; i < kBatch - 1; ++i)
            executor.add([&counter] { counter.fetch_add(1, std::memory_order_relaxed); });
        executor.add([&] {
            counter.fetch_add(1, std::memory_order_relaxed);
            std::lock_guard lock(mutex);
            finished = true;
            done.notify_all();
        });
        std::unique_lock lock(mutex);
        done.wait(lock, [&] { return finished; });
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_PlainExecutor)->UseRealTime();

// The same operations as the queue runs, started by the plain executor: what the queue adds
// over a deque is its observation of readiness and its ordering rules.
void BM_PlainExecutorRunningOperations(benchmark::State &state)
{
    PlainExecutor executor;
    std::atomic<long> counter{0};
    for (auto _ : state) {
        std::shared_ptr<VKOperationBase> last;
        for (int i = 0; i < kBatch; ++i) {
            last = std::make_shared<CountingOperation>(&counter);
            executor.add([operation = last] { operation->start(); });
        }
        last->waitUntilFinished();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_PlainExecutorRunningOperations)->UseRealTime();

// Making and starting an operation on the calling thread: the floor under both.
void BM_OperationAlone(benchmark::State &state)
{
    std::atomic<long> counter{0};
    for (auto _ : state) {
        auto operation = std::make_shared<CountingOperation>(&counter);
        operation->start();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OperationAlone);

} // namespace

BENCHMARK_MAIN();

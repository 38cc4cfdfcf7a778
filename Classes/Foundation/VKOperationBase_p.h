// Internal: the private part of VKOperationBase, for the queue and for subclasses inside the
// library that extend it through the protected constructor.
#pragma once

#include "Foundation/VKOperationBase.h"

#include <QList>
#include <QSet>
#include <QString>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

// Blocks of one size recycled between threads, for what operations allocate. An operation is
// usually made on one thread and destroyed on another (a queue's worker), so the heap's
// per-thread caches never get its blocks back: every allocation would take the heap's shared,
// locked path, and every block would come back cold. A released block is pushed on a shared
// stack (one compare-and-swap); a thread that needs one takes the whole stack into a list of its
// own with one exchange, so nothing is ever popped from the shared stack (no ABA problem). The
// shared stack is bounded roughly; a thread's list goes back to it when the thread ends. Under
// the sanitizers every block comes from the heap, so that they keep checking each one.
template <std::size_t Size>
class VKRecycledBlocks
{
public:
    static void *allocate()
    {
        if constexpr (kEnabled) {
            Local &local = s_local;
            if (!local.first && s_shared.first.load(std::memory_order_relaxed)) {
                local.first = s_shared.first.exchange(nullptr, std::memory_order_acquire);
                s_shared.count.store(0, std::memory_order_relaxed);
            }
            if (Block *block = local.first) {
                local.first = block->next;
                return block;
            }
        }
        return ::operator new(Size);
    }

    static void release(void *block)
    {
        if constexpr (kEnabled) {
            if (s_shared.count.load(std::memory_order_relaxed) < kMaxShared) {
                s_shared.count.fetch_add(1, std::memory_order_relaxed);
                s_shared.push(static_cast<Block *>(block));
                return;
            }
        }
        ::operator delete(block, Size);
    }

private:
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool kEnabled = false;
#else
    static constexpr bool kEnabled = true;
#endif
    static constexpr int kMaxShared = 4096;

    struct Block
    {
        Block *next;
    };
    static_assert(Size >= sizeof(Block));

    struct alignas(64) Shared
    {
        std::atomic<Block *> first{nullptr};
        std::atomic<int> count{0};

        void push(Block *block)
        {
            Block *head = first.load(std::memory_order_relaxed);
            do
                block->next = head;
            while (!first.compare_exchange_weak(head, block, std::memory_order_release,
                                                std::memory_order_relaxed));
        }
    };

    struct Local
    {
        Block *first = nullptr;
        ~Local()
        {
            while (Block *block = first) {
                first = block->next;
                s_shared.push(block);
            }
        }
    };

    inline static Shared s_shared;
    inline static thread_local Local s_local;
};

// An allocator for std::allocate_shared that recycles single objects' blocks.
template <typename T>
struct VKRecyclingAllocator
{
    using value_type = T;

    VKRecyclingAllocator() = default;
    template <typename U>
    VKRecyclingAllocator(const VKRecyclingAllocator<U> &)
    {}

    T *allocate(std::size_t count)
    {
        if (count == 1 && alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__)
            return static_cast<T *>(VKRecycledBlocks<sizeof(T)>::allocate());
        return std::allocator<T>().allocate(count);
    }
    void deallocate(T *block, std::size_t count)
    {
        if (count == 1 && alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__)
            VKRecycledBlocks<sizeof(T)>::release(block);
        else
            std::allocator<T>().deallocate(block, count);
    }
    friend bool operator==(const VKRecyclingAllocator &, const VKRecyclingAllocator &)
    {
        return true;
    }
};

// A mutex in one word, for the locks of every operation (std::mutex takes 40 bytes). States: 0
// free, 1 held, 2 held and maybe waited for; waiters sleep on the word, and an unlock that
// finds 2 wakes one of them, which takes the lock as 2 again (it cannot know whether others
// still wait).
class VKOperationLock
{
public:
    void lock()
    {
        int expected = 0;
        if (!m_state.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                             std::memory_order_relaxed))
            lockContended();
    }
    void unlock()
    {
        if (m_state.exchange(0, std::memory_order_release) == 2)
            m_state.notify_one();
    }

private:
    void lockContended()
    {
        while (m_state.exchange(2, std::memory_order_acquire) != 0)
            m_state.wait(2, std::memory_order_relaxed);
    }
    std::atomic<int> m_state{0};
};

// Pushes an operation on a queue's lock-free stack of arrivals, linked through `next` (the
// field of the operation's private part that the queue reserves for this). Sequentially
// consistent, as the queues' wake-up protocols need.
inline void vkPushArrival(std::atomic<VKOperationBase *> &arrivals, VKOperationBase *operation,
                          VKOperationBase *&next)
{
    VKOperationBase *head = arrivals.load(std::memory_order_relaxed);
    do
        next = head;
    while (!arrivals.compare_exchange_weak(head, operation));
}

// What an operation tells the queue that holds it. Called under the operation's mutex, so an
// implementation takes only its own lock and never calls out.
class VKOperationQueueLink
{
public:
    virtual void operationReadinessChanged(VKOperationBase *operation, bool ready) = 0;
    virtual void operationFinished(VKOperationBase *operation) = 0;

protected:
    ~VKOperationQueueLink() = default;
};

// The keys whose announcements change "isReady" and "isFinished" for one class.
struct VKOperationAffectingKeys
{
    QSet<QString> ready;
    QSet<QString> finished;
};

struct VKOperationBase::Private
{
    virtual ~Private();

    // Parts of exactly this size are recycled; the extended parts of subclasses use the heap.
    static void *operator new(std::size_t size)
    {
        return size == sizeof(Private) ? VKRecycledBlocks<sizeof(Private)>::allocate()
                                       : ::operator new(size);
    }
    static void operator delete(void *block, std::size_t size)
    {
        if (size == sizeof(Private))
            VKRecycledBlocks<sizeof(Private)>::release(block);
        else
            ::operator delete(block, size);
    }

    // The part crosses between threads with every queued operation (made on one, run and
    // destroyed on another), so it is kept to few cache lines: what every operation touches
    // comes first, one-word locks, and what few operations use (name, completion block,
    // dependency list) in a part of its own made on first use.

    enum State { Pending, Executing, Finished };
    std::atomic<int> state{Pending};
    std::atomic<bool> cancelled{false};
    // Guarded by `mutex`: the end was announced and is being (or was) delivered.
    bool ending = false;
    // Dependencies whose end has not been delivered to this operation yet.
    std::atomic<int> unfinishedDependencies{0};

    // 1 once the end was delivered; waiters sleep on this word. They count themselves first,
    // so that an end nobody waits for makes no system call (the standard library's own test
    // is shared with unrelated addresses).
    std::atomic<int> endDelivered{0};
    std::atomic<int> endWaiters{0};

    // Guards `ending`, `dependants`, `queue`, and the name and completion block.
    mutable VKOperationLock mutex;
    // Serialises changes of this operation's own dependency list (taken before a dependency's
    // mutex, never while calling out) and guards the list.
    mutable VKOperationLock dependencyMutex;

    // Shared by every operation of the class; looked up on first use.
    std::atomic<const VKOperationAffectingKeys *> affectingKeys{nullptr};
    // The queue holding the operation; it clears the link (under `mutex`) before it goes.
    VKOperationQueueLink *queue = nullptr;
    // Not owned: a dependant takes itself out before it goes.
    std::vector<VKOperationBase *> dependants;

    struct Extras
    {
        QString name;
        std::function<void()> completionBlock;
        QList<std::shared_ptr<VKOperationBase>> dependencies;
    };
    // Made on first use and kept until the operation goes; its members are guarded by the
    // locks named above.
    std::atomic<Extras *> extras{nullptr};

    const Extras *extrasIfMade() const { return extras.load(std::memory_order_acquire); }
    Extras &madeExtras()
    {
        Extras *made = extras.load(std::memory_order_acquire);
        if (made)
            return *made;
        auto fresh = std::make_unique<Extras>();
        if (extras.compare_exchange_strong(made, fresh.get(), std::memory_order_acq_rel))
            return *fresh.release();
        return *made; // another thread made it first
    }

    void markEndDelivered()
    {
        // Both sequentially consistent: a waiter that counted itself after this load finds the
        // flag set before it sleeps.
        endDelivered.store(1);
        if (endWaiters.load() > 0)
            endDelivered.notify_all();
    }

    // The holding queue's bookkeeping, guarded by that queue's mutex. An operation is in one
    // queue at most, so the queue keeps its lists in the operations and allocates nothing
    // per operation.
    struct QueueEntry
    {
        // Held while queued; null otherwise.
        std::shared_ptr<VKOperationBase> operation;
        quint64 sequence = 0;
        int where = 0;
        // While Running: whether the worker is still inside start() and whether the end came
        // before it returned. Claimed with a compare-and-swap by the worker and by the end, so
        // that an end reported from inside start() needs no queue lock.
        enum Phase { Idle, Starting, Started, FinishedWhileStarting };
        std::atomic<int> phase{Idle};
        // Every queued operation in the order of addition.
        VKOperationBase *previous = nullptr;
        VKOperationBase *next = nullptr;
        // The ready ones, in the order of addition.
        VKOperationBase *previousReady = nullptr;
        VKOperationBase *nextReady = nullptr;
        // Between the add and the queue's taking it into its lists: the link of the queue's
        // arrivals and the readiness the adder saw.
        VKOperationBase *nextArrival = nullptr;
        bool readyOnArrival = false;
    } queueEntry;

    // The serial queues' bookkeeping (VKSingleThreadOperationQueue.cpp): the queue the
    // operation waits in by mark, and while it does, the reference that queue holds and the
    // link of its list of arrivals.
    struct SerialEntry
    {
        std::atomic<const void *> queue{nullptr};
        std::shared_ptr<VKOperationBase> operation;
        VKOperationBase *next = nullptr;
    } serialEntry;
};

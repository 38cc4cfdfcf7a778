// Operations.
//
// States: Pending -> Executing -> Finished (`state`), plus the `cancelled` flag; an operation
// is ready when cancelled or when no dependency's end is still outstanding
// (`unfinishedDependencies`). Subclasses may override the getters and announce by hand.
//
// Locks, always taken in this order and never held while calling out (observers, completion
// blocks, the state getters):
//   1. an operation's dependencyMutex (its own dependency list),
//   2. a dependency's mutex (its dependants, its queue link, its end),
//   3. the queue's mutex (taken by VKOperationQueueLink calls).
// No thread holds two operations' mutexes at once.
//
// Invariants:
// - A dependant is counted in a dependency's `dependants` exactly while that dependency's end
//   is outstanding for it; adding and delivering the end both happen under the dependency's
//   mutex, so a dependency added while it finishes is either counted and then told, or seen
//   finished.
// - The end is delivered once (`ending`, then `endDelivered`): completion block, then
//   dependants (their "isReady" announced around the change), then the queue, then waiters.
//   `endDelivered` is atomic and set last, so waiters need no lock.
// - The queue link is used only under the operation's mutex; the queue clears it there
//   before it goes, so a late end never reaches a destroyed queue.
// - The name, the completion block and the dependency list live in a part made on first use
//   (published with a compare-and-swap, never replaced), guarded by the same locks as before;
//   an operation that never uses them reads one null pointer instead.
#include "Foundation/VKOperationBase.h"

#include "Foundation/VKException.h"
#include "Foundation/VKOperationBase_p.h"

#include <algorithm>
#include <exception>
#include <typeindex>
#include <unordered_map>
#include <utility>

namespace {

const QString kIsReady = QStringLiteral("isReady");
const QString kIsExecuting = QStringLiteral("isExecuting");
const QString kIsFinished = QStringLiteral("isFinished");
const QString kIsCancelled = QStringLiteral("isCancelled");

// Every key whose change changes `key`, following dependencies transitively.
QSet<QString> affectingKeys(const VKObservable &object, const QString &key)
{
    QSet<QString> result;
    QStringList queue{key};
    while (!queue.isEmpty()) {
        const QString next = queue.takeFirst();
        for (const QString &affecting : object.keyPathsForValuesAffectingValueForKey(next))
            if (affecting != key && !result.contains(affecting)) {
                result.insert(affecting);
                queue.append(affecting);
            }
    }
    return result;
}

// Dependent keys are declared per class, so they are worked out once per class.
const VKOperationAffectingKeys *affectingKeysOfClass(const VKOperationBase &operation)
{
    // Operations of one class usually come in runs: the last answer is kept per thread.
    thread_local const std::type_info *lastType = nullptr;
    thread_local const VKOperationAffectingKeys *lastKeys = nullptr;
    if (lastType && *lastType == typeid(operation))
        return lastKeys;
    static std::mutex mutex;
    static std::unordered_map<std::type_index, std::unique_ptr<VKOperationAffectingKeys>> classes;
    const std::type_index type(typeid(operation));
    {
        std::lock_guard lock(mutex);
        auto it = classes.find(type);
        if (it != classes.end()) {
            lastType = &typeid(operation);
            lastKeys = it->second.get();
            return lastKeys;
        }
    }
    // Asked without the lock: the answers are the subclass's code.
    auto keys = std::make_unique<VKOperationAffectingKeys>();
    keys->ready = affectingKeys(operation, kIsReady);
    keys->finished = affectingKeys(operation, kIsFinished);
    std::lock_guard lock(mutex);
    lastType = &typeid(operation);
    lastKeys = classes.try_emplace(type, std::move(keys)).first->second.get();
    return lastKeys;
}
} // namespace

VKOperationBase::Private::~Private()
{
    delete extras.load(std::memory_order_acquire);
}

VKOperationBase::VKOperationBase() : VKOperationBase(std::make_unique<Private>()) {}

VKOperationBase::VKOperationBase(std::unique_ptr<Private> d) : d(std::move(d))
{
    setAnnouncesToItself(true);
}

VKOperationBase::~VKOperationBase()
{
    // Leave the dependencies' lists, so that their end is not delivered to a dead operation.
    // Read-only (a non-const walk would detach, and allocate, even an empty list).
    if (const Private::Extras *extras = d->extrasIfMade()) {
        for (const auto &dependency : std::as_const(extras->dependencies)) {
            std::lock_guard lock(dependency->d->mutex);
            std::erase(dependency->d->dependants, this);
        }
    }
}

void VKOperationBase::start()
{
    if (isCancelled()) {
        if (d->state.load() != Private::Pending)
            return;
        willChangeValueForKey(kIsFinished);
        int expected = Private::Pending;
        d->state.compare_exchange_strong(expected, Private::Finished);
        didChangeValueForKey(kIsFinished);
        return;
    }
    if (d->state.load() == Private::Executing)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[%@ start]: receiver is already executing", className());
    if (d->state.load() == Private::Finished)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[%@ start]: receiver is finished and cannot be started",
                           className());
    if (!isReady())
        VKException::raise(VKInvalidArgumentException,
                           "*** -[%@ start]: receiver is not yet ready to execute", className());

    willChangeValueForKey(kIsExecuting);
    int expected = Private::Pending;
    const bool won = d->state.compare_exchange_strong(expected, Private::Executing);
    didChangeValueForKey(kIsExecuting);
    if (!won)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[%@ start]: receiver is already executing", className());

    auto finish = [this] {
        willChangeValueForKey(kIsFinished);
        willChangeValueForKey(kIsExecuting);
        d->state.store(Private::Finished);
        didChangeValueForKey(kIsExecuting);
        didChangeValueForKey(kIsFinished);
    };
    try {
        main();
    } catch (...) {
        finish();
        throw;
    }
    finish();
}

void VKOperationBase::main() {}

void VKOperationBase::cancel()
{
    if (d->cancelled.load())
        return;
    willChangeValueForKey(kIsCancelled);
    willChangeValueForKey(kIsReady);
    d->cancelled.store(true);
    didChangeValueForKey(kIsReady);
    didChangeValueForKey(kIsCancelled);
}

bool VKOperationBase::isReady() const
{
    return d->cancelled.load() || d->unfinishedDependencies.load() == 0;
}

bool VKOperationBase::isExecuting() const
{
    return d->state.load() == Private::Executing;
}

bool VKOperationBase::isFinished() const
{
    return d->state.load() == Private::Finished;
}

bool VKOperationBase::isCancelled() const
{
    return d->cancelled.load();
}

bool VKOperationBase::isConcurrent() const
{
    return false;
}

void VKOperationBase::waitUntilFinished()
{
    if (isFinished())
        return;
    d->endWaiters.fetch_add(1);
    d->endDelivered.wait(0);
    d->endWaiters.fetch_sub(1);
}

void VKOperationBase::didAnnounceChangeForKey(const QString &key)
{
    const VKOperationAffectingKeys *affecting = d->affectingKeys.load(std::memory_order_acquire);
    if (!affecting) {
        affecting = affectingKeysOfClass(*this);
        d->affectingKeys.store(affecting, std::memory_order_release);
    }
    if (key == kIsReady || affecting->ready.contains(key))
        tellQueueOfReadiness();
    if ((key == kIsFinished || affecting->finished.contains(key)) && isFinished())
        deliverEnd();
}

void VKOperationBase::tellQueueOfReadiness()
{
    // The getter runs without locks; a change racing with this call announces again, and the
    // second look catches an answer that went stale before the queue took it.
    for (;;) {
        const bool ready = isReady();
        {
            std::lock_guard lock(d->mutex);
            if (!d->queue)
                return;
            d->queue->operationReadinessChanged(this, ready);
        }
        if (isReady() == ready)
            return;
    }
}

void VKOperationBase::deliverEnd()
{
    std::function<void()> completion;
    std::vector<std::shared_ptr<VKOperationBase>> announced;
    {
        std::lock_guard lock(d->mutex);
        if (d->ending)
            return;
        d->ending = true;
        Private::Extras *extras = d->extras.load(std::memory_order_acquire);
        if ((!extras || !extras->completionBlock) && d->dependants.empty()) {
            // Nothing to call out to: the queue and the waiters are told in one go.
            if (d->queue) {
                d->queue->operationFinished(this);
                d->queue = nullptr;
            }
            d->markEndDelivered();
            return;
        }
        if (extras) {
            completion = std::move(extras->completionBlock);
            extras->completionBlock = nullptr;
        }
        for (VKOperationBase *dependant : d->dependants)
            if (auto strong = dependant->weak_from_this().lock())
                announced.push_back(std::move(strong));
    }
    std::exception_ptr failure;
    if (completion) {
        try {
            completion();
        } catch (...) {
            failure = std::current_exception();
        }
    }
    for (const auto &dependant : announced)
        dependant->willChangeValueForKey(kIsReady);
    std::vector<std::shared_ptr<VKOperationBase>> late;
    {
        std::lock_guard lock(d->mutex);
        for (VKOperationBase *dependant : d->dependants) {
            dependant->d->unfinishedDependencies.fetch_sub(1);
            // Added since the first look: told without a will-change.
            if (std::none_of(announced.begin(), announced.end(),
                             [&](const auto &a) { return a.get() == dependant; }))
                if (auto strong = dependant->weak_from_this().lock())
                    late.push_back(std::move(strong));
        }
        d->dependants.clear();
        if (d->queue) {
            d->queue->operationFinished(this);
            d->queue = nullptr;
        }
    }
    for (auto it = announced.rbegin(); it != announced.rend(); ++it)
        (*it)->didChangeValueForKey(kIsReady);
    for (const auto &dependant : late)
        dependant->didChangeValueForKey(kIsReady);
    d->markEndDelivered();
    if (failure)
        std::rethrow_exception(failure);
}

void VKOperationBase::addDependency(const std::shared_ptr<VKOperationBase> &operation)
{
    if (!operation)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[%@ addDependency:]: operation must not be nil", className());
    if (operation.get() == this)
        return;
    {
        std::lock_guard lock(d->dependencyMutex);
        const Private::Extras *extras = d->extrasIfMade();
        if (extras && extras->dependencies.contains(operation))
            return;
    }
    willChangeValueForKey(kIsReady);
    {
        std::lock_guard edit(d->dependencyMutex);
        auto &dependencies = d->madeExtras().dependencies;
        if (!dependencies.contains(operation)) {
            dependencies.append(operation);
            std::lock_guard lock(operation->d->mutex);
            if (!operation->d->ending) {
                operation->d->dependants.push_back(this);
                d->unfinishedDependencies.fetch_add(1);
            }
        }
    }
    didChangeValueForKey(kIsReady);
}

void VKOperationBase::removeDependency(const std::shared_ptr<VKOperationBase> &operation)
{
    {
        std::lock_guard lock(d->dependencyMutex);
        const Private::Extras *extras = d->extrasIfMade();
        if (!operation || !extras || !extras->dependencies.contains(operation))
            return;
    }
    willChangeValueForKey(kIsReady);
    {
        std::lock_guard edit(d->dependencyMutex);
        if (d->madeExtras().dependencies.removeOne(operation)) {
            std::lock_guard lock(operation->d->mutex);
            auto it =
                std::find(operation->d->dependants.begin(), operation->d->dependants.end(), this);
            if (it != operation->d->dependants.end()) {
                operation->d->dependants.erase(it);
                d->unfinishedDependencies.fetch_sub(1);
            }
        }
    }
    didChangeValueForKey(kIsReady);
}

QList<std::shared_ptr<VKOperationBase>> VKOperationBase::dependencies() const
{
    std::lock_guard lock(d->dependencyMutex);
    const Private::Extras *extras = d->extrasIfMade();
    return extras ? extras->dependencies : QList<std::shared_ptr<VKOperationBase>>();
}

void VKOperationBase::setCompletionBlock(std::function<void()> block)
{
    Private::Extras &extras = d->madeExtras();
    std::lock_guard lock(d->mutex);
    extras.completionBlock = std::move(block);
}

QString VKOperationBase::name() const
{
    std::lock_guard lock(d->mutex);
    const Private::Extras *extras = d->extrasIfMade();
    return extras ? extras->name : QString();
}

void VKOperationBase::setName(const QString &name)
{
    changeValueForKey(QStringLiteral("name"), [&] {
        Private::Extras &extras = d->madeExtras();
        std::lock_guard lock(d->mutex);
        extras.name = name;
    });
}

QVariant VKOperationBase::valueForKey(const QString &key) const
{
    if (key == kIsReady)
        return isReady();
    if (key == kIsExecuting)
        return isExecuting();
    if (key == kIsFinished)
        return isFinished();
    if (key == kIsCancelled)
        return isCancelled();
    if (key == QLatin1String("isConcurrent") || key == QLatin1String("isAsynchronous"))
        return isConcurrent();
    if (key == QLatin1String("name"))
        return name();
    return VKObservable::valueForKey(key);
}

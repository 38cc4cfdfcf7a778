#include "Foundation/VKOperationBase.h"

#include "Foundation/VKException.h"

#include <chrono>
#include <condition_variable>

namespace {
const QString kIsReady = QStringLiteral("isReady");
const QString kIsExecuting = QStringLiteral("isExecuting");
const QString kIsFinished = QStringLiteral("isFinished");
const QString kIsCancelled = QStringLiteral("isCancelled");
} // namespace

VKOperationBase::VKOperationBase() = default;

VKOperationBase::~VKOperationBase()
{
    QList<Dependency> dependencies;
    {
        std::lock_guard lock(m_mutex);
        dependencies.swap(m_dependencies);
    }
    // Waits for a dependency's announcement that may be calling us on another thread.
    for (const Dependency &dependency : dependencies)
        dependency.operation->removeObservation(dependency.token);
}

void VKOperationBase::start()
{
    if (isCancelled()) {
        if (m_state.load() != Pending)
            return;
        willChangeValueForKey(kIsFinished);
        int expected = Pending;
        m_state.compare_exchange_strong(expected, Finished);
        didChangeValueForKey(kIsFinished);
        return;
    }
    if (m_state.load() == Executing)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[%@ start]: receiver is already executing", className());
    if (m_state.load() == Finished)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[%@ start]: receiver is finished and cannot be started",
                           className());
    if (!isReady())
        VKException::raise(VKInvalidArgumentException,
                           "*** -[%@ start]: receiver is not yet ready to execute", className());

    willChangeValueForKey(kIsExecuting);
    int expected = Pending;
    const bool won = m_state.compare_exchange_strong(expected, Executing);
    didChangeValueForKey(kIsExecuting);
    if (!won)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[%@ start]: receiver is already executing", className());

    auto finish = [this] {
        willChangeValueForKey(kIsFinished);
        willChangeValueForKey(kIsExecuting);
        m_state.store(Finished);
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
    if (m_cancelled.load())
        return;
    willChangeValueForKey(kIsCancelled);
    willChangeValueForKey(kIsReady);
    m_cancelled.store(true);
    didChangeValueForKey(kIsReady);
    didChangeValueForKey(kIsCancelled);
}

bool VKOperationBase::isReady() const
{
    return m_cancelled.load() || m_unfinishedDependencies.load() == 0;
}

bool VKOperationBase::isExecuting() const
{
    return m_state.load() == Executing;
}

bool VKOperationBase::isFinished() const
{
    return m_state.load() == Finished;
}

bool VKOperationBase::isCancelled() const
{
    return m_cancelled.load();
}

bool VKOperationBase::isConcurrent() const
{
    return false;
}

void VKOperationBase::waitUntilFinished()
{
    if (isFinished())
        return;
    std::mutex mutex;
    std::condition_variable finished;
    const VKObservationToken token =
        observe(kIsFinished, 0, [&](VKObservable *, const QString &, const VKKeyValueChange &) {
            std::lock_guard lock(mutex);
            finished.notify_all();
        });
    {
        // An end announced while the observer was being registered can be missed (the change
        // had already begun without it), so the state is also looked at now and then.
        std::unique_lock lock(mutex);
        while (!finished.wait_for(lock, std::chrono::milliseconds(10),
                                  [this] { return isFinished(); })) {
        }
    }
    removeObservation(token);
}

void VKOperationBase::recountUnfinishedDependencies()
{
    std::lock_guard lock(m_mutex);
    int unfinished = 0;
    for (const Dependency &dependency : m_dependencies)
        unfinished += dependency.operation->isFinished() ? 0 : 1;
    m_unfinishedDependencies.store(unfinished);
}

void VKOperationBase::dependencyStateChanged()
{
    willChangeValueForKey(kIsReady);
    recountUnfinishedDependencies();
    didChangeValueForKey(kIsReady);
}

void VKOperationBase::addDependency(const std::shared_ptr<VKOperationBase> &operation)
{
    if (!operation)
        VKException::raise(VKInvalidArgumentException,
                           "*** -[%@ addDependency:]: operation must not be nil", className());
    if (operation.get() == this)
        return;
    {
        std::lock_guard lock(m_mutex);
        for (const Dependency &dependency : m_dependencies)
            if (dependency.operation == operation)
                return;
    }
    const VKObservationToken token = operation->observe(
        kIsFinished, 0, [this](VKObservable *, const QString &, const VKKeyValueChange &) {
            dependencyStateChanged();
        });
    bool added = true;
    {
        std::lock_guard lock(m_mutex);
        for (const Dependency &dependency : m_dependencies)
            added = added && dependency.operation != operation;
        if (added)
            m_dependencies.append({operation, token});
    }
    if (!added) {
        // Another thread added the same dependency meanwhile.
        operation->removeObservation(token);
        return;
    }
    dependencyStateChanged();
}

void VKOperationBase::removeDependency(const std::shared_ptr<VKOperationBase> &operation)
{
    VKObservationToken token = 0;
    {
        std::lock_guard lock(m_mutex);
        for (qsizetype i = 0; i < m_dependencies.size(); ++i) {
            if (m_dependencies.at(i).operation == operation) {
                token = m_dependencies.at(i).token;
                m_dependencies.removeAt(i);
                break;
            }
        }
    }
    if (token == 0)
        return;
    operation->removeObservation(token);
    dependencyStateChanged();
}

QList<std::shared_ptr<VKOperationBase>> VKOperationBase::dependencies() const
{
    std::lock_guard lock(m_mutex);
    QList<std::shared_ptr<VKOperationBase>> result;
    for (const Dependency &dependency : m_dependencies)
        result.append(dependency.operation);
    return result;
}

void VKOperationBase::setCompletionBlock(std::function<void()> block)
{
    bool observing = false;
    {
        std::lock_guard lock(m_mutex);
        m_completionBlock = std::move(block);
        observing = m_completionToken != 0;
        if (!observing)
            m_completionToken = ~VKObservationToken(0); // claimed; set below
    }
    if (observing)
        return;
    const VKObservationToken token =
        observe(kIsFinished, 0, [this](VKObservable *, const QString &, const VKKeyValueChange &) {
            if (!isFinished())
                return;
            std::function<void()> completion;
            {
                std::lock_guard lock(m_mutex);
                completion = std::move(m_completionBlock);
                m_completionBlock = nullptr;
            }
            if (completion)
                completion();
        });
    std::lock_guard lock(m_mutex);
    m_completionToken = token;
}

QString VKOperationBase::name() const
{
    std::lock_guard lock(m_mutex);
    return m_name;
}

void VKOperationBase::setName(const QString &name)
{
    changeValueForKey(QStringLiteral("name"), [&] {
        std::lock_guard lock(m_mutex);
        m_name = name;
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

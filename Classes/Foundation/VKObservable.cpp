// Key-value observation.
//
// State of an object: nothing until it is first observed (or asked for its lifetime); then an
// observation part, made once and kept until the object goes: a copy-on-write list of
// registrations (observer or callback, key, the keys affecting it, options, a serial number and
// a "removed" flag), guarded by Private::mutex, plus two counters readable without the lock: the
// number of registrations and the number of will-changes of the object still open on any
// thread's pending stack. The part is published with a compare-and-swap; a thread that loses
// the race uses the winner's.
//
// Locks: Private::mutex is held only to copy or replace the list; no user code (observers,
// callbacks, valueForKey, keyPathsForValuesAffectingValueForKey) ever runs under it. Each
// thread keeps its open will-changes in a thread-local stack, touched only by that thread.
//
// Invariants:
// - A registration is in the list exactly while its "removed" flag is false; removal sets the
//   flag under the lock and never waits, and a call checks the flag just before it starts.
// - A did-change tells every registration in the list when it runs: those its will-change saw
//   (with their old values) and those with a later serial number (without). So a registration
//   made before the did-change is told, and one made after it reads the new value itself:
//   the registration count is a sequentially consistent atomic, and the changed state is
//   published before the did-change by a lock or a sequentially consistent store.
//   Making the observation part is ordered the same way (its pointer is published and read
//   sequentially consistently), so an announcement that finds no part has no one to tell.
// - With no observation part the announcement pair reads one pointer and returns; with a part
//   but no registration and no open will-change, two atomics more.
#include "Foundation/VKObservable.h"

#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"

#include <QHash>

#include <atomic>
#include <cstdlib>
#include <cxxabi.h>
#include <mutex>
#include <typeinfo>
#include <vector>

const QString VKKeyValueChangeKindKey = QStringLiteral("kind");
const QString VKKeyValueChangeNewKey = QStringLiteral("new");
const QString VKKeyValueChangeOldKey = QStringLiteral("old");
const QString VKKeyValueChangeNotificationIsPriorKey = QStringLiteral("notificationIsPrior");
const QString VKUnknownUserInfoKey = QStringLiteral("NSUnknownUserInfoKey");

QVariantMap VKKeyValueChange::dictionary() const
{
    QVariantMap result{{VKKeyValueChangeKindKey, VKKeyValueChangeSetting}};
    if (hasNewValue)
        result.insert(VKKeyValueChangeNewKey, newValue);
    if (hasOldValue)
        result.insert(VKKeyValueChangeOldKey, oldValue);
    if (isPrior)
        result.insert(VKKeyValueChangeNotificationIsPriorKey, true);
    return result;
}

VKKeyValueObserver::~VKKeyValueObserver() = default;

struct VKObservable::Registration
{
    VKKeyValueObserver *observer = nullptr;
    // Set for observers registered by shared pointer.
    std::weak_ptr<VKKeyValueObserver> sharedObserver;
    bool observerIsShared = false;
    Callback callback;
    VKObservationToken token = 0;
    QString key;
    // Every key whose change also changes `key`.
    QSet<QString> affectingKeys;
    VKKeyValueObservingOptions options = 0;
    void *context = nullptr;
    quint64 serial = 0;
    std::atomic<bool> removed{false};

    bool isTouchedBy(const QString &changedKey) const
    {
        return key == changedKey || affectingKeys.contains(changedKey);
    }
};

using VKRegistrationList = std::vector<std::shared_ptr<VKObservable::Registration>>;

struct VKObservable::Private
{
    mutable std::mutex mutex;
    // Null while nobody ever registered, so that unobserved objects allocate no list.
    std::shared_ptr<const VKRegistrationList> registrations;
    quint64 lastSerial = 0;
    mutable std::shared_ptr<const int> alive;
    std::atomic<int> registrationCount{0};
    std::atomic<int> openChanges{0};

    std::shared_ptr<const VKRegistrationList> snapshot(quint64 *serial = nullptr) const
    {
        std::lock_guard lock(mutex);
        if (serial)
            *serial = lastSerial;
        return registrations;
    }

    // Takes the registration out of the list; answers whether it was there.
    bool removeLocked(std::shared_ptr<Registration> removed)
    {
        if (!registrations)
            return false;
        auto list = std::make_shared<VKRegistrationList>();
        list->reserve(registrations->size());
        for (const auto &r : *registrations)
            if (r != removed)
                list->push_back(r);
        if (list->size() == registrations->size())
            return false;
        removed->removed.store(true);
        registrations = std::move(list);
        registrationCount.fetch_sub(1);
        return true;
    }
};

namespace {

std::atomic<VKObservationToken> nextToken{1};

struct PendingCall
{
    std::shared_ptr<VKObservable::Registration> registration;
    QVariant oldValue;
};

// An open will-change on this thread.
struct PendingChange
{
    const VKObservable *object = nullptr;
    QString key;
    // Registrations with a higher serial were made after the will-change.
    quint64 serial = 0;
    std::vector<PendingCall> calls;
};

std::vector<PendingChange> &pendingChanges()
{
    thread_local std::vector<PendingChange> pending;
    return pending;
}

QString demangled(const char *mangled)
{
    int status = 0;
    char *name = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
    QString result = QString::fromUtf8(status == 0 && name ? name : mangled);
    std::free(name);
    return result;
}

void deliver(VKObservable *object, VKObservable::Registration &registration,
             const VKKeyValueChange &change)
{
    if (registration.removed.load())
        return;
    if (registration.observerIsShared) {
        // Kept alive for the length of the call.
        if (const auto observer = registration.sharedObserver.lock())
            observer->observeValueForKeyPath(registration.key, object, change,
                                             registration.context);
    } else if (registration.observer) {
        registration.observer->observeValueForKeyPath(registration.key, object, change,
                                                      registration.context);
    } else {
        registration.callback(object, registration.key, change);
    }
}

} // namespace

VKObservable::VKObservable() = default;

VKObservable::~VKObservable()
{
    Private *p = d.load();
    if (!p)
        return;
    // Forget will-changes this thread left open on the object.
    if (p->openChanges.load() > 0) {
        auto &pending = pendingChanges();
        std::erase_if(pending,
                      [this](const PendingChange &change) { return change.object == this; });
    }
    delete p;
}

VKObservable::Private *VKObservable::observation() const
{
    Private *p = d.load();
    if (p)
        return p;
    auto made = std::make_unique<Private>();
    if (d.compare_exchange_strong(p, made.get()))
        return made.release();
    return p; // another thread made it first
}

void VKObservable::addRegistration(std::shared_ptr<Registration> registration)
{
    // Follow the dependencies before taking the lock: they are the subclass's code.
    QStringList queue{registration->key};
    while (!queue.isEmpty()) {
        const QString next = queue.takeFirst();
        for (const QString &affecting : keyPathsForValuesAffectingValueForKey(next)) {
            if (affecting != registration->key &&
                !registration->affectingKeys.contains(affecting)) {
                registration->affectingKeys.insert(affecting);
                queue.append(affecting);
            }
        }
    }
    {
        Private *p = observation();
        std::lock_guard lock(p->mutex);
        registration->serial = ++p->lastSerial;
        auto list = p->registrations ? std::make_shared<VKRegistrationList>(*p->registrations)
                                     : std::make_shared<VKRegistrationList>();
        list->push_back(registration);
        p->registrations = std::move(list);
        p->registrationCount.fetch_add(1);
    }
    if (registration->options & VKKeyValueObservingOptionInitial) {
        VKKeyValueChange change;
        if (registration->options & VKKeyValueObservingOptionNew) {
            change.newValue = valueForKey(registration->key);
            change.hasNewValue = true;
        }
        deliver(this, *registration, change);
    }
}

void VKObservable::addObserver(VKKeyValueObserver *observer, const QString &key,
                               VKKeyValueObservingOptions options, void *context)
{
    if (!observer)
        VKException::raise(
            VKInvalidArgumentException,
            "-[%@ addObserver:forKeyPath:options:context:]: observer must not be nil", className());
    auto registration = std::make_shared<Registration>();
    registration->observer = observer;
    registration->key = key;
    registration->options = options;
    registration->context = context;
    addRegistration(std::move(registration));
}

void VKObservable::addObserver(const std::shared_ptr<VKKeyValueObserver> &observer,
                               const QString &key, VKKeyValueObservingOptions options,
                               void *context)
{
    if (!observer)
        VKException::raise(
            VKInvalidArgumentException,
            "-[%@ addObserver:forKeyPath:options:context:]: observer must not be nil", className());
    auto registration = std::make_shared<Registration>();
    registration->observer = observer.get();
    registration->sharedObserver = observer;
    registration->observerIsShared = true;
    registration->key = key;
    registration->options = options;
    registration->context = context;
    addRegistration(std::move(registration));
}

void VKObservable::addObserver(VKKeyValueObserver *observer, const QStringList &keys,
                               VKKeyValueObservingOptions options, void *context)
{
    for (const QString &key : keys)
        addObserver(observer, key, options, context);
}

void VKObservable::removeMatching(VKKeyValueObserver *observer, const QString &key, bool anyContext,
                                  void *context)
{
    bool removed = false;
    if (Private *p = d.load()) {
        std::lock_guard lock(p->mutex);
        const auto current =
            p->registrations ? p->registrations : std::make_shared<const VKRegistrationList>();
        for (auto it = current->rbegin(); it != current->rend(); ++it) {
            const Registration &r = **it;
            if (r.observer == observer && r.key == key && (anyContext || r.context == context)) {
                removed = p->removeLocked(*it);
                break;
            }
        }
    }
    if (!removed)
        VKException::raise(VKRangeException,
                           "Cannot remove an observer <%@ %p> for the key path \"%@\" from <%@ %p> "
                           "because it is not registered as an observer.",
                           observer ? demangled(typeid(*observer).name()) : QStringLiteral("nil"),
                           static_cast<const void *>(observer), key, className(),
                           static_cast<const void *>(this));
}

void VKObservable::removeObserver(VKKeyValueObserver *observer, const QString &key)
{
    removeMatching(observer, key, true, nullptr);
}

void VKObservable::removeObserver(VKKeyValueObserver *observer, const QString &key, void *context)
{
    removeMatching(observer, key, false, context);
}

void VKObservable::removeObserver(VKKeyValueObserver *observer, const QStringList &keys)
{
    for (const QString &key : keys)
        removeObserver(observer, key);
}

VKObservationToken VKObservable::observe(const QString &key, VKKeyValueObservingOptions options,
                                         Callback callback)
{
    if (!callback)
        VKException::raise(VKInvalidArgumentException, "-[%@ observe]: callback must not be nil",
                           className());
    auto registration = std::make_shared<Registration>();
    registration->callback = std::move(callback);
    registration->key = key;
    registration->options = options;
    registration->token = nextToken.fetch_add(1);
    const VKObservationToken token = registration->token;
    addRegistration(std::move(registration));
    return token;
}

void VKObservable::removeObservation(VKObservationToken token)
{
    Private *p = d.load();
    if (token == 0 || !p)
        return;
    std::lock_guard lock(p->mutex);
    if (!p->registrations)
        return;
    for (const auto &r : *p->registrations) {
        if (r->token == token) {
            p->removeLocked(r);
            return;
        }
    }
}

bool VKObservable::hasObserversForKey(const QString &key) const
{
    const Private *p = d.load();
    if (!p || p->registrationCount.load() == 0)
        return false;
    const auto list = p->snapshot();
    for (const auto &r : list ? *list : VKRegistrationList())
        if (r->isTouchedBy(key))
            return true;
    return false;
}

VKObservableLifetime VKObservable::lifetime() const
{
    VKObservableLifetime result;
    Private *p = observation();
    std::lock_guard lock(p->mutex);
    if (!p->alive)
        p->alive = std::make_shared<const int>(0);
    result.m_alive = p->alive;
    result.m_object = this;
    return result;
}

void VKObservable::setAnnouncesToItself(bool enabled)
{
    m_announcesToItself = enabled;
}

void VKObservable::didAnnounceChangeForKey(const QString &) {}

namespace {

// Reads a value for an observer; an undefined key is logged rather than thrown out of a setter.
QVariant observedValue(const VKObservable *object, const QString &key,
                       QHash<QString, QVariant> &cache)
{
    auto it = cache.constFind(key);
    if (it != cache.constEnd())
        return *it;
    QVariant value;
    try {
        value = object->valueForKey(key);
    } catch (const VKException &exception) {
        VKLogger::error({object->className(), "-[VKObservable valueForKey:]", object},
                        "Cannot read the value of observed key %@: %@", key, exception.reason());
    }
    cache.insert(key, value);
    return value;
}

} // namespace

void VKObservable::willChangeValueForKey(const QString &key)
{
    Private *p = d.load();
    if (!p || p->registrationCount.load() == 0)
        return;
    PendingChange pending{this, key, 0, {}};
    const auto list = p->snapshot(&pending.serial);
    if (!list)
        return;
    QHash<QString, QVariant> oldValues;
    for (const auto &r : *list) {
        if (!r->isTouchedBy(key))
            continue;
        PendingCall call{r, {}};
        if (r->options & VKKeyValueObservingOptionOld)
            call.oldValue = observedValue(this, r->key, oldValues);
        pending.calls.push_back(std::move(call));
    }
    if (pending.calls.empty())
        return;
    std::vector<PendingCall> priorCalls;
    for (const PendingCall &call : pending.calls)
        if (call.registration->options & VKKeyValueObservingOptionPrior)
            priorCalls.push_back(call);
    pendingChanges().push_back(std::move(pending));
    p->openChanges.fetch_add(1);
    for (const PendingCall &call : priorCalls) {
        VKKeyValueChange change;
        change.isPrior = true;
        if (call.registration->options & VKKeyValueObservingOptionOld) {
            change.oldValue = call.oldValue;
            change.hasOldValue = true;
        }
        deliver(this, *call.registration, change);
    }
}

void VKObservable::didChangeValueForKey(const QString &key)
{
    Private *p = d.load();
    if (!p ||
        (p->openChanges.load(std::memory_order_relaxed) == 0 && p->registrationCount.load() == 0)) {
        if (m_announcesToItself)
            didAnnounceChangeForKey(key);
        return;
    }
    std::vector<PendingCall> calls;
    bool opened = false;
    quint64 seenSerial = 0;
    if (p->openChanges.load() > 0) {
        auto &pending = pendingChanges();
        for (auto i = pending.size(); i-- > 0;) {
            if (pending[i].object == this && pending[i].key == key) {
                calls = std::move(pending[i].calls);
                seenSerial = pending[i].serial;
                pending.erase(pending.begin() + static_cast<std::ptrdiff_t>(i));
                p->openChanges.fetch_sub(1);
                opened = true;
                break;
            }
        }
    }
    // Registrations made since the will-change (all of them when it found none) are told too.
    if (p->registrationCount.load() > 0) {
        const auto list = p->snapshot();
        for (const auto &r : list ? *list : VKRegistrationList())
            if (r->serial > seenSerial && r->isTouchedBy(key))
                calls.push_back({r, {}});
    }
    QHash<QString, QVariant> newValues;
    for (const PendingCall &call : calls) {
        Registration &r = *call.registration;
        if (r.removed.load())
            continue;
        VKKeyValueChange change;
        if (r.options & VKKeyValueObservingOptionNew) {
            change.newValue = observedValue(this, r.key, newValues);
            change.hasNewValue = true;
        }
        if (opened && r.serial <= seenSerial && (r.options & VKKeyValueObservingOptionOld)) {
            change.oldValue = call.oldValue;
            change.hasOldValue = true;
        }
        deliver(this, r, change);
    }
    if (m_announcesToItself)
        didAnnounceChangeForKey(key);
}

bool VKObservable::automaticallyNotifiesObserversForKey(const QString &) const
{
    return true;
}

QSet<QString> VKObservable::keyPathsForValuesAffectingValueForKey(const QString &) const
{
    return {};
}

QVariant VKObservable::valueForKey(const QString &key) const
{
    return valueForUndefinedKey(key);
}

void VKObservable::setValueForKey(const QVariant &value, const QString &key)
{
    setValueForUndefinedKey(value, key);
}

QVariant VKObservable::valueForUndefinedKey(const QString &key) const
{
    throw VKException(VKUndefinedKeyException,
                      vkFormat("[<%@ %p> valueForUndefinedKey:]: this class is not key value "
                               "coding-compliant for the key %@.",
                               className(), static_cast<const void *>(this), key),
                      {{VKUnknownUserInfoKey, key}});
}

void VKObservable::setValueForUndefinedKey(const QVariant &, const QString &key)
{
    throw VKException(VKUndefinedKeyException,
                      vkFormat("[<%@ %p> setValue:forUndefinedKey:]: this class is not key value "
                               "coding-compliant for the key %@.",
                               className(), static_cast<const void *>(this), key),
                      {{VKUnknownUserInfoKey, key}});
}

QVariantMap VKObservable::dictionaryWithValuesForKeys(const QStringList &keys) const
{
    QVariantMap result;
    for (const QString &key : keys)
        result.insert(key, valueForKey(key));
    return result;
}

QString VKObservable::className() const
{
    return demangled(typeid(*this).name());
}

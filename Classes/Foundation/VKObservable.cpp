#include "Foundation/VKObservable.h"

#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKObservableCallGate_p.h"

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
    Callback callback;
    VKObservationToken token = 0;
    QString key;
    // Every key whose change also changes `key`.
    QSet<QString> affectingKeys;
    VKKeyValueObservingOptions options = 0;
    void *context = nullptr;
    VKObservableCallGate gate;

    bool isTouchedBy(const QString &changedKey) const
    {
        return key == changedKey || affectingKeys.contains(changedKey);
    }
};

using VKRegistrationList = std::vector<std::shared_ptr<VKObservable::Registration>>;

struct VKObservable::Private
{
    mutable std::mutex mutex;
    // Copy on write: announcing threads take the current list without holding the lock.
    std::shared_ptr<const VKRegistrationList> registrations =
        std::make_shared<VKRegistrationList>();

    std::shared_ptr<const VKRegistrationList> snapshot() const
    {
        std::lock_guard lock(mutex);
        return registrations;
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

} // namespace

VKObservable::VKObservable() : d(std::make_unique<Private>()) {}

VKObservable::~VKObservable()
{
    // Forget will-changes this thread left open on the object.
    auto &pending = pendingChanges();
    std::erase_if(pending, [this](const PendingChange &change) { return change.object == this; });
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
        std::lock_guard lock(d->mutex);
        auto list = std::make_shared<VKRegistrationList>(*d->registrations);
        list->push_back(registration);
        d->registrations = std::move(list);
    }
    if (registration->options & VKKeyValueObservingOptionInitial) {
        VKKeyValueChange change;
        if (registration->options & VKKeyValueObservingOptionNew) {
            change.newValue = valueForKey(registration->key);
            change.hasNewValue = true;
        }
        VKObservableCallScope scope(registration->gate);
        if (!scope)
            return;
        if (registration->observer)
            registration->observer->observeValueForKeyPath(registration->key, this, change,
                                                           registration->context);
        else
            registration->callback(this, registration->key, change);
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

void VKObservable::addObserver(VKKeyValueObserver *observer, const QStringList &keys,
                               VKKeyValueObservingOptions options, void *context)
{
    for (const QString &key : keys)
        addObserver(observer, key, options, context);
}

void VKObservable::removeMatching(VKKeyValueObserver *observer, const QString &key, bool anyContext,
                                  void *context)
{
    std::shared_ptr<Registration> removed;
    {
        std::lock_guard lock(d->mutex);
        const VKRegistrationList &current = *d->registrations;
        for (auto it = current.rbegin(); it != current.rend(); ++it) {
            const Registration &r = **it;
            if (r.observer == observer && r.key == key && (anyContext || r.context == context)) {
                removed = *it;
                break;
            }
        }
        if (removed) {
            auto list = std::make_shared<VKRegistrationList>();
            list->reserve(current.size() - 1);
            for (const auto &r : current)
                if (r != removed)
                    list->push_back(r);
            d->registrations = std::move(list);
        }
    }
    if (!removed)
        VKException::raise(VKRangeException,
                           "Cannot remove an observer <%@ %p> for the key path \"%@\" from <%@ %p> "
                           "because it is not registered as an observer.",
                           observer ? demangled(typeid(*observer).name()) : QStringLiteral("nil"),
                           static_cast<const void *>(observer), key, className(),
                           static_cast<const void *>(this));
    removed->gate.closeAndDrain();
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
    std::shared_ptr<Registration> removed;
    {
        std::lock_guard lock(d->mutex);
        auto list = std::make_shared<VKRegistrationList>();
        for (const auto &r : *d->registrations) {
            if (token != 0 && r->token == token)
                removed = r;
            else
                list->push_back(r);
        }
        if (removed)
            d->registrations = std::move(list);
    }
    if (removed)
        removed->gate.closeAndDrain();
}

bool VKObservable::hasObserversForKey(const QString &key) const
{
    const auto list = d->snapshot();
    for (const auto &r : *list)
        if (r->isTouchedBy(key))
            return true;
    return false;
}

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

void deliver(VKObservable *object, VKObservable::Registration &registration,
             const VKKeyValueChange &change)
{
    VKObservableCallScope scope(registration.gate);
    if (!scope)
        return;
    if (registration.observer)
        registration.observer->observeValueForKeyPath(registration.key, object, change,
                                                      registration.context);
    else
        registration.callback(object, registration.key, change);
}

} // namespace

void VKObservable::willChangeValueForKey(const QString &key)
{
    const auto list = d->snapshot();
    if (list->empty())
        return;
    PendingChange pending{this, key, {}};
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
    std::vector<PendingCall> calls;
    bool opened = false;
    auto &pending = pendingChanges();
    for (auto i = pending.size(); i-- > 0;) {
        if (pending[i].object == this && pending[i].key == key) {
            calls = std::move(pending[i].calls);
            pending.erase(pending.begin() + static_cast<std::ptrdiff_t>(i));
            opened = true;
            break;
        }
    }
    if (!opened) {
        // No observer was interested at will-change: tell only those registered since.
        const auto list = d->snapshot();
        for (const auto &r : *list)
            if (r->isTouchedBy(key))
                calls.push_back({r, {}});
    }
    QHash<QString, QVariant> newValues;
    for (const PendingCall &call : calls) {
        Registration &r = *call.registration;
        if (r.gate.isClosed())
            continue;
        VKKeyValueChange change;
        if (r.options & VKKeyValueObservingOptionNew) {
            change.newValue = observedValue(this, r.key, newValues);
            change.hasNewValue = true;
        }
        if (opened && (r.options & VKKeyValueObservingOptionOld)) {
            change.oldValue = call.oldValue;
            change.hasOldValue = true;
        }
        deliver(this, r, change);
    }
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

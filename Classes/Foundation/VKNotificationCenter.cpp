// Notification centre.
//
// State: a copy-on-write list of registrations guarded by Private::mutex; posting copies the
// list's pointer under the lock and calls handlers without it. Each registration carries a
// "removed" flag, set under the lock when it leaves the list and checked just before each call,
// so removal never waits for handlers running on other threads (which may hold locks the
// remover holds); the posting thread's copy of the list keeps the handler alive meanwhile.
#include "Foundation/VKNotificationCenter.h"

#include "Foundation/VKException.h"

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

VKNotificationObject VKNotificationObject::commandNames(QSet<QString> names)
{
    VKNotificationObject object;
    object.m_names = std::move(names);
    object.m_hasNames = true;
    return object;
}

VKNotification::VKNotification(QString name, VKNotificationObject object, QVariantMap userInfo)
    : m_name(std::move(name)), m_object(std::move(object)), m_userInfo(std::move(userInfo))
{}

namespace {

struct Registration
{
    const void *observer = nullptr;
    QString name;
    VKNotificationObject sender;
    VKNotificationHandler handler;
    VKNotificationToken token = 0;
    std::atomic<bool> removed{false};

    bool accepts(const VKNotification &notification) const
    {
        return (name.isEmpty() || name == notification.name()) &&
               (sender.isNull() || sender == notification.object());
    }
};

using RegistrationList = std::vector<std::shared_ptr<Registration>>;

} // namespace

struct VKNotificationCenter::Private
{
    mutable std::mutex mutex;
    std::shared_ptr<const RegistrationList> registrations = std::make_shared<RegistrationList>();
    std::atomic<VKNotificationToken> nextToken{1};

    template <typename Predicate>
    void removeIf(Predicate predicate)
    {
        std::lock_guard lock(mutex);
        auto kept = std::make_shared<RegistrationList>();
        for (const auto &r : *registrations) {
            if (predicate(*r))
                r->removed.store(true);
            else
                kept->push_back(r);
        }
        if (kept->size() != registrations->size())
            registrations = std::move(kept);
    }
};

VKNotificationCenter::VKNotificationCenter() : d(std::make_unique<Private>()) {}

VKNotificationCenter::~VKNotificationCenter() = default;

VKNotificationCenter &VKNotificationCenter::defaultCenter()
{
    // Never destroyed: notifications may be posted while static objects go away.
    static VKNotificationCenter *center = new VKNotificationCenter;
    return *center;
}

VKNotificationToken VKNotificationCenter::addObserver(const void *observer, const QString &name,
                                                      const VKNotificationObject &sender,
                                                      VKNotificationHandler handler)
{
    if (!handler)
        VKException::raise(
            VKInvalidArgumentException,
            "-[VKNotificationCenter addObserver:selector:name:object:]: handler must "
            "not be nil");
    auto registration = std::make_shared<Registration>();
    registration->observer = observer;
    registration->name = name;
    registration->sender = sender;
    registration->handler = std::move(handler);
    registration->token = d->nextToken.fetch_add(1);
    std::lock_guard lock(d->mutex);
    auto list = std::make_shared<RegistrationList>(*d->registrations);
    list->push_back(registration);
    d->registrations = std::move(list);
    return registration->token;
}

void VKNotificationCenter::removeObserver(const void *observer)
{
    if (!observer)
        return;
    d->removeIf([observer](const Registration &r) { return r.observer == observer; });
}

void VKNotificationCenter::removeObserver(const void *observer, const QString &name,
                                          const VKNotificationObject &sender)
{
    if (!observer)
        return;
    d->removeIf([&](const Registration &r) {
        return r.observer == observer && (name.isEmpty() || r.name == name) &&
               (sender.isNull() || r.sender == sender);
    });
}

void VKNotificationCenter::removeObservation(VKNotificationToken token)
{
    if (token == 0)
        return;
    d->removeIf([token](const Registration &r) { return r.token == token; });
}

void VKNotificationCenter::postNotification(const VKNotification &notification)
{
    std::shared_ptr<const RegistrationList> list;
    {
        std::lock_guard lock(d->mutex);
        list = d->registrations;
    }
    for (const auto &r : *list)
        if (r->accepts(notification) && !r->removed.load())
            r->handler(notification);
}

void VKNotificationCenter::postNotificationName(const QString &name,
                                                const VKNotificationObject &sender,
                                                const QVariantMap &userInfo)
{
    postNotification(VKNotification(name, sender, userInfo));
}

int VKNotificationCenter::observationCount() const
{
    std::lock_guard lock(d->mutex);
    return static_cast<int>(d->registrations->size());
}

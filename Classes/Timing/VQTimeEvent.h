// One event of the time recorder: a moment and a type text. Its accessors may be used from
// several threads at once.
#pragma once

#include "Foundation/VKExport.h"
#include "Timing/VQTiming.h"

#include <QString>

#include <mutex>

class VK_EXPORT VQTimeEvent
{
public:
    VQTimeEvent(VQMoment date, QString type) : m_date(date), m_type(std::move(type)) {}

    VQMoment date() const
    {
        std::lock_guard lock(m_mutex);
        return m_date;
    }
    void setDate(VQMoment date)
    {
        std::lock_guard lock(m_mutex);
        m_date = date;
    }
    QString type() const
    {
        std::lock_guard lock(m_mutex);
        return m_type;
    }
    void setType(const QString &type)
    {
        std::lock_guard lock(m_mutex);
        m_type = type;
    }

private:
    mutable std::mutex m_mutex;
    VQMoment m_date;
    QString m_type;
};

// Internal: lets a registration be removed while other threads may be calling it. Callers enter
// the gate before calling out and leave it afterwards; removal closes the gate and waits until
// no call on another thread is still inside, so that the callee may be destroyed right after.
// Calls made by the removing thread itself (removal from inside a callback) are not waited for.
#pragma once

#include <atomic>
#include <vector>

class VKObservableCallGate
{
public:
    // Answers false when the gate is closed; the call must then be skipped.
    bool enter()
    {
        if (m_closed.load())
            return false;
        m_inFlight.fetch_add(1);
        if (m_closed.load()) {
            leave();
            return false;
        }
        activeGates().push_back(this);
        return true;
    }

    void leave()
    {
        auto &active = activeGates();
        for (auto it = active.rbegin(); it != active.rend(); ++it) {
            if (*it == this) {
                active.erase(std::next(it).base());
                break;
            }
        }
        m_inFlight.fetch_sub(1);
        if (m_closed.load())
            m_inFlight.notify_all();
    }

    // Closes the gate and waits for calls in progress on other threads.
    void closeAndDrain()
    {
        m_closed.store(true);
        int own = 0;
        for (const VKObservableCallGate *gate : activeGates())
            own += gate == this ? 1 : 0;
        int current = m_inFlight.load();
        while (current > own) {
            m_inFlight.wait(current);
            current = m_inFlight.load();
        }
    }

    bool isClosed() const { return m_closed.load(); }

private:
    static std::vector<const VKObservableCallGate *> &activeGates()
    {
        thread_local std::vector<const VKObservableCallGate *> gates;
        return gates;
    }

    std::atomic<bool> m_closed{false};
    std::atomic<int> m_inFlight{0};
};

// Enters a gate for the lifetime of the scope.
class VKObservableCallScope
{
public:
    explicit VKObservableCallScope(VKObservableCallGate &gate)
        : m_gate(gate), m_entered(gate.enter())
    {}
    ~VKObservableCallScope()
    {
        if (m_entered)
            m_gate.leave();
    }
    VKObservableCallScope(const VKObservableCallScope &) = delete;
    VKObservableCallScope &operator=(const VKObservableCallScope &) = delete;
    explicit operator bool() const { return m_entered; }

private:
    VKObservableCallGate &m_gate;
    bool m_entered;
};

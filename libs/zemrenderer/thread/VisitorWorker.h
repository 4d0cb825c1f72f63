#pragma once
// Applies a visitor to a property modifier on the consuming thread, so that only that
// thread writes modifiers. A visitor with remaining time keeps the worker coming back
// once a frame for that long.
#include "zemrenderer/thread/PooledWorker.h"

namespace ZemRenderer
{
    template <class Visitor, class Modifier>
    class VisitorWorker : public PooledWorker<VisitorWorker<Visitor, Modifier>, Renderer>
    {
    public:
        VisitorWorker() = default;
        VisitorWorker(const Visitor& visitor, Modifier* modifier, unsigned int queue)
            : m_kVisitor(visitor), m_pModifier(modifier), m_uQueue(queue)
        {
            if constexpr (requires(const Visitor& v) { v.GetRemainingTime(); })
                this->SetDelay(static_cast<float>(m_kVisitor.GetRemainingTime()));
        }

        unsigned int GetQueue() const override { return m_uQueue; }
        bool DoWork(Renderer*) override
        {
            if (m_pModifier) m_pModifier->Accept(m_kVisitor);
            return true;
        }
        void TickDelay(float seconds) override
        {
            if constexpr (requires(Visitor& v) { v.Tick(seconds); }) m_kVisitor.Tick(seconds);
        }
        void* GetTarget() const override { return m_pModifier ? m_pModifier->GetOwner() : nullptr; }

        const Visitor& GetVisitor() const { return m_kVisitor; }

    private:
        Visitor m_kVisitor{};
        Modifier* m_pModifier = nullptr;
        unsigned int m_uQueue = eUpdateQueue;
    };
}

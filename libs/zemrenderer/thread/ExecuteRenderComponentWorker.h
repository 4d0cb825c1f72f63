#pragma once
// Runs one render component alone on the render thread: the component is held by value
// and drawn with the Renderer, on the queue chosen by the caller.
#include <utility>

#include "zemrenderer/thread/PooledWorker.h"

namespace ZemRenderer
{
    class Camera;

    // What a component must offer to be run this way.
    template <class C>
    concept RenderComponentLike = requires(C& component, Renderer* renderer, Camera* camera) {
        component.Draw(renderer, camera, 0u, 0u);
    };

    template <RenderComponentLike Component>
    class ExecuteRenderComponentWorker : public PooledWorker<ExecuteRenderComponentWorker<Component>, Renderer>
    {
    public:
        ExecuteRenderComponentWorker() = default;
        ExecuteRenderComponentWorker(Component component, unsigned int queue)
            : m_kComponent(std::move(component)), m_uQueue(queue)
        {
        }

        unsigned int GetQueue() const override { return m_uQueue; }
        bool DoWork(Renderer* renderer) override
        {
            // Run alone, a component has no camera, flags or step of a flow.
            m_kComponent.Draw(renderer, static_cast<Camera*>(nullptr), 0u, 0u);
            return true;
        }

        Component& GetComponent() { return m_kComponent; }

    private:
        Component m_kComponent{};
        unsigned int m_uQueue = eRenderQueue;
    };
}

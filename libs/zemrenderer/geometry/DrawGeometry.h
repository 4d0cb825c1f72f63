#pragma once
// One thing to draw: a geometry with the property that holds its constants and the
// effect that picks its shaders. Its id sorts draws: bits 5 and up are the geometry's
// draw number, so draws of one geometry sit together and can be batched; bits 0 to 4
// are the draw's instance number among them, or its render bias when it has one.
#include <atomic>
#include <cstdint>

#include "common/utils/pool/TPool.h"
#include "zemrenderer/serialization/Serializable.h"

namespace ZemRenderer
{
    class Effect;
    class Geometry;
    class Property;
    class Renderer;
    class SerializationManager;
    class Serializer;

    inline constexpr uint32_t g_ciNumInstanceBits = 5;

    class DrawGeometry
    {
    public:
        ZEM_SERIALIZABLE_CLASS("ZemRenderer::DrawGeometry")
        static constexpr uint32_t kMaxBias = 1u << g_ciNumInstanceBits;

        DrawGeometry() = default;
        DrawGeometry(const DrawGeometry&) = delete;
        DrawGeometry& operator=(const DrawGeometry&) = delete;

        // Takes a count on the geometry and its instance number.
        bool Init(Geometry* geometry, Property* property = nullptr, Effect* effect = nullptr);

        Geometry* GetGeometry() const { return m_pGeometry; }
        Property* GetProperty() const { return m_pProperty; }
        Effect* GetEffect() const { return m_pEffect; }
        uint32_t GetID() const { return m_uiID; }
        uint32_t GetInstance() const { return m_uiInstance; }
        // Below 32: "Render bias can only handle %i bias value" beyond, and 31 is kept.
        void SetBias(uint32_t bias);
        uint32_t GetBias() const { return m_uiBias; }

        void AddRef() { m_iRefCount.fetch_add(1, std::memory_order_relaxed); }
        // At 0, on the render thread: lets go of the geometry and frees itself.
        int Release(Renderer* renderer);
        int GetRefCount() const { return m_iRefCount.load(std::memory_order_acquire); }
        void SetPool(TPool<DrawGeometry>* pool) { m_pPool = pool; }

        // The geometry, then the property and effect keys (which must be null until those
        // can be read), then the bias.
        void Serialize(Serializer& serializer);
        void PostLoad(SerializationManager& manager);

    private:
        void RebuildID();

        Geometry* m_pGeometry = nullptr;
        Property* m_pProperty = nullptr;
        Effect* m_pEffect = nullptr;
        uint32_t m_uiID = 0;
        uint32_t m_uiInstance = 0;
        uint32_t m_uiBias = 0;
        std::atomic<int> m_iRefCount{0};
        TPool<DrawGeometry>* m_pPool = nullptr;
    };
}

#include "zemrenderer/geometry/DrawGeometry.h"

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/geometry/Geometry.h"
#include "zemrenderer/serialization/Serializer.h"

namespace ZemRenderer
{
    bool DrawGeometry::Init(Geometry* geometry, Property* property, Effect* effect)
    {
        if (!ZEM_ASSERT(geometry != nullptr, "Null geometry")) return false;
        if (!ZEM_ASSERT(m_pGeometry == nullptr, "DrawGeometry already initialized")) return false;
        geometry->AddRef();
        m_pGeometry = geometry;
        m_pProperty = property;
        m_pEffect = effect;
        m_uiInstance = geometry->TakeInstance();
        RebuildID();
        return true;
    }

    void DrawGeometry::SetBias(uint32_t bias)
    {
        if (!ZEM_ASSERT(bias < kMaxBias, "Render bias can only handle %i bias value", static_cast<int>(kMaxBias)))
            bias = kMaxBias - 1;
        m_uiBias = bias;
        RebuildID();
    }

    void DrawGeometry::RebuildID()
    {
        const uint32_t number = m_pGeometry ? m_pGeometry->GetDrawNumber() : 0;
        const uint32_t low = m_uiBias ? m_uiBias : m_uiInstance;
        m_uiID = (number << g_ciNumInstanceBits) | (low & (kMaxBias - 1));
    }

    int DrawGeometry::Release(Renderer* renderer)
    {
        const int count = m_iRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count > 0) return count;
        if (!ZEM_ASSERT(count == 0, "Too much DrawGeometry Release"))
        {
            m_iRefCount.store(0);
            return 0;
        }
        if (Geometry* geometry = m_pGeometry)
        {
            m_pGeometry = nullptr;
            geometry->Release(renderer);
        }
        if (TPool<DrawGeometry>* pool = m_pPool)
            pool->Release(this);
        else
            MEM_DELETE(this);
        return 0;
    }

    void DrawGeometry::Serialize(Serializer& s)
    {
        SerializationManager& m = s.GetManager();
        s.SerializePointer(m_pGeometry);
        unsigned long long property = reinterpret_cast<uintptr_t>(m_pProperty);
        unsigned long long effect = reinterpret_cast<uintptr_t>(m_pEffect);
        if (!s.IsReading() && (property || effect))
            return m.Fail("Draw geometry with a property or an effect cannot be written yet.");
        m.MoveRaw(&property, sizeof(property));
        m.MoveRaw(&effect, sizeof(effect));
        if (s.IsLoading() && !m.HasFailed() && (property || effect))
            return m.Fail("Draw geometry with a property or an effect in Zemora Engine File: not supported by this engine!");
        s.Serialize(m_uiBias);
        if (s.IsLoading() && !m.HasFailed() && m_uiBias >= kMaxBias)
            return m.Fail("Render bias can only handle %i bias value", static_cast<int>(kMaxBias));
    }

    void DrawGeometry::PostLoad(SerializationManager&)
    {
        if (!m_pGeometry) return;
        m_pGeometry->AddRef();
        m_uiInstance = m_pGeometry->TakeInstance();
        RebuildID();
    }
}

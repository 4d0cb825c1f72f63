#include "zemrenderer/buffer/BufferReference.h"

#include <cstring>
#include <utility>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/buffer/Buffer.h"
#include "zemrenderer/buffer/InputLayout.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/serialization/Serializer.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    BufferReference* BufferReference::Create(uint32_t size, uint32_t flags, InputLayout* layout)
    {
        BufferReference* reference = MEM_NEW(BufferReference);
        if (reference) reference->Init(size, flags, layout);
        return reference;
    }

    void BufferReference::Destroy(BufferReference* reference)
    {
        if (!reference) return;
        ZEM_ASSERT(!reference->IsAllocated(), "BufferReference destroyed with its device object");
        MEM_DELETE(reference);
    }

    BufferReference::~BufferReference()
    {
        SetLayout(nullptr);
        Buffer::Destroy(m_pCpuCopy);
        Buffer::Destroy(m_pReadBlock);
        Buffer::Destroy(m_pLockBlock);
    }

    void BufferReference::Init(uint32_t size, uint32_t flags, InputLayout* layout)
    {
        m_flags = flags;
        m_size = size;
        SetLayout(layout);
        const UsageDecision usage = ClassifyBufferUsage(flags);
        if (usage.szReport) ZEM_ASSERT(usage.szReport == nullptr, "%s", usage.szReport);
        m_eUsage = usage.eUsage;
        m_streamstatus.store(InitialStreamStatus(flags), std::memory_order_release);
    }

    int BufferReference::ReleaseRef(Renderer* renderer)
    {
        int count = m_refcount.load(std::memory_order_acquire);
        if (count <= 0)
        {
            ZEM_ASSERT(!IsAllocated(), "Null refcount but handle valid");
            return 0;
        }
        count = m_refcount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count != 0) return count;
        if (renderer)
            renderer->DeleteBuffer(this);
        else
        {
            // No device any more: whatever it held went with it.
            m_handle = 0;
            m_pMapped = nullptr;
            Destroy(this);
        }
        return 0;
    }

    uint32_t BufferReference::GetElementCount() const
    {
        const uint32_t stride = m_pLayout ? m_pLayout->GetStride() : 0;
        return stride ? m_size / stride : m_size;
    }

    void BufferReference::SetLayout(InputLayout* layout)
    {
        if (layout == m_pLayout) return;
        if (layout) layout->AddRef();
        if (m_pLayout) m_pLayout->Release();
        m_pLayout = layout;
    }

    void BufferReference::SetCpuCopy(Buffer* block)
    {
        if (block == m_pCpuCopy) return;
        Buffer::Destroy(m_pCpuCopy);
        m_pCpuCopy = block;
    }

    void BufferReference::Serialize(Serializer& s)
    {
        SerializationManager& m = s.GetManager();
        s.Serialize(m_flags);
        // Read into a fresh record; the count on the layout is taken at PostLoad.
        s.SerializePointer(m_pLayout);
        s.Serialize(m_width);
        s.Serialize(m_height);
        s.Serialize(m_mipcount);
        s.Serialize(m_format);
        s.Serialize(m_size);
        if (m.HasFailed() || (m_flags & BBF_NOT_SERIALIZED) || s.IsSkipping()) return;
        if (s.IsLoading())
        {
            m_handle = 0;
            m_pMapped = nullptr;
            if (m_size > m.GetRemainingBytes())
                return m.Fail("A buffer of %u bytes runs past the end of the Zemora Engine File!", m_size);
            Buffer::Destroy(m_pReadBlock);
            m_pReadBlock = Buffer::Create(this, m_size, 0);
            if (!m_pReadBlock) return m.Fail("No memory for a buffer of %u bytes of a Zemora Engine File!", m_size);
            m.MoveBytes(m_pReadBlock->GetData(), m_size);
            return;
        }
        // Writing: the content has to be on the CPU.
        if (!m_pCpuCopy || m_pCpuCopy->GetSize() != m_size)
            return m.Fail("Buffer content of %u bytes is not kept on the CPU: it can't be written.", m_size);
        m.MoveBytes(m_pCpuCopy->GetData(), m_size);
    }

    void BufferReference::PostLoad(SerializationManager& m)
    {
        // The layout read with this reference is shared by whoever read the same key.
        InputLayout* layout = std::exchange(m_pLayout, nullptr);
        SetLayout(layout);
        Init(m_size, m_flags, m_pLayout);
        Buffer* block = std::exchange(m_pReadBlock, nullptr);
        if (!block) return;
        // The content stays on the CPU, where a save finds it; the device gets a copy.
        SetCpuCopy(block);
        Bucket* bucket = m.GetOwner();
        RenderThread* thread = bucket ? bucket->GetRenderThread() : nullptr;
        if (thread && !(m_flags & BBF_CPU_MEMORY)) thread->AddUpdateBufferWork(block, false, true);
    }
}

#include "zemrenderer/buffer/BufferDevice.h"

#include <cstring>
#include <utility>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/Buffer.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/buffer/InputLayout.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    BufferDevice::BufferDevice(Renderer* owner) : m_pOwner(owner), m_pBackend(&m_kMemoryBackend), m_kManager(this) {}

    BufferDevice::~BufferDevice()
    {
        ZEM_ASSERT(m_iLive.load() == 0, "%i device buffers still alive at the end of their device", m_iLive.load());
    }

    void BufferDevice::SetBackend(BufferBackend* backend)
    {
        if (!ZEM_ASSERT(m_iLive.load() == 0, "Buffer backend changed while %i buffers live", m_iLive.load())) return;
        m_pBackend = backend ? backend : &m_kMemoryBackend;
    }

    bool BufferDevice::IsDeviceThread() const
    {
        if (!m_pBackend->IsOwnerThread()) return false;
        RenderThread* thread = m_pOwner ? m_pOwner->GetRenderThread() : nullptr;
        return !thread || thread->IsInMyThread();
    }

    bool BufferDevice::CheckThread(const char* operation) const
    {
        return ZEM_ASSERT(IsDeviceThread(), "Wrong thread access ! must be called by RenderThread only (%s)", operation);
    }

    bool BufferDevice::CheckCreation(BufferReference& r) const
    {
        const uint32_t flags = r.GetFlags();
        if (!ZEM_ASSERT(r.GetUsage() != BufferUsage::CpuMemory, "This is not a DirectX resource")) return false;
        if (flags & BBF_CONSTANT)
            return ZEM_ASSERT(r.GetSize() > 0 && r.GetSize() <= 65536, "Can't create constant buffer of size %d",
                              static_cast<int>(r.GetSize()));
        if (flags & BBF_TEXTURE_BUFFER)
        {
            InputLayout* layout = r.GetLayout();
            const uint32_t count = layout ? layout->GetNumElements() : 0;
            if (!ZEM_ASSERT(count == 1, "Texture Buffer must have one element in layout and not %d", static_cast<int>(count)))
                return false;
            if (!ZEM_ASSERT(layout->GetElement(0).uiType == IET_FLOAT4, "Texture Buffer suport only  ARGB32F format"))
                return false;
        }
        return ZEM_ASSERT(r.GetSize() > 0, "Bad rawbuffer size. Maybe a GetBufferSize missing on a PropertyModifier");
    }

    bool BufferDevice::CreateObject(BufferReference& reference, const void* initial)
    {
        if (!m_pBackend->Create(reference, initial))
        {
            ZEM_ASSERT(reference.IsAllocated(), "hr=%d : device buffer of %u bytes not made", -1, reference.GetSize());
            return false;
        }
        m_iLive.fetch_add(1, std::memory_order_relaxed);
        return true;
    }

    bool BufferDevice::AllocateDeviceBuffer(BufferReference* reference)
    {
        if (!ZEM_ASSERT(reference != nullptr, "Null buffer !")) return false;
        if (!IsDeviceThread())
        {
            ZEM_ASSERT(IsDeviceThread(), "ALlocateDeviceBuffer must be called by RenderThread.");
            return false;
        }
        if (reference->IsAllocated()) return true;
        if (!CheckCreation(*reference)) return false;
        // Immutable storage takes its content at creation; it comes with the first fill.
        if (reference->GetUsage() == BufferUsage::Immutable) return true;
        return CreateObject(*reference, nullptr);
    }

    void* BufferDevice::LockBuffer(BufferReference* reference, uint16_t sub1, uint16_t sub2, uint32_t mode)
    {
        (void)sub1;
        (void)sub2;
        if (!ZEM_ASSERT(reference != nullptr, "Null buffer !")) return nullptr;
        if (!CheckThread("LockBuffer")) return nullptr;
        if (!ZEM_ASSERT(!reference->IsLocked(), "Buffer already locked")) return nullptr;
        BufferReference& r = *reference;
        void* address = nullptr;
        switch (r.GetUsage())
        {
        case BufferUsage::CpuMemory:
            if (!r.GetCpuCopy()) r.SetCpuCopy(Buffer::Create(&r, r.GetSize(), 0));
            if (Buffer* copy = r.GetCpuCopy()) address = copy->GetData();
            break;
        case BufferUsage::Immutable:
            if (!ZEM_ASSERT(!r.IsAllocated() && r.GetLockCount() == 0 && !r.GetLockBlock(),
                            "Immutable ressource can't be locled twice. Resource must be filled at init time."))
                return nullptr;
            if (!CheckCreation(r)) return nullptr;
            r.SetLockBlock(Buffer::Create(&r, r.GetSize(), 0));
            if (Buffer* block = r.GetLockBlock())
            {
                std::memset(block->GetData(), 0, r.GetSize());
                address = block->GetData();
            }
            break;
        case BufferUsage::Default:
            ZEM_ASSERT(r.GetUsage() != BufferUsage::Default, "Not dynamic resource");
            return nullptr;
        case BufferUsage::Dynamic:
        case BufferUsage::Staging:
            if (!r.IsAllocated() && !AllocateDeviceBuffer(&r)) return nullptr;
            address = m_pBackend->Map(r, 0, r.GetSize(), static_cast<BufferMapMode>(mode));
            break;
        }
        if (!ZEM_ASSERT(address != nullptr, "LockBuffer map has failed")) return nullptr;
        r.SetLocked(true);
        r.SetLockCount(r.GetLockCount() + 1);
        return address;
    }

    void BufferDevice::UnlockBuffer(BufferReference* reference)
    {
        if (!ZEM_ASSERT(reference != nullptr, "Null buffer !")) return;
        if (!CheckThread("UnlockBuffer")) return;
        BufferReference& r = *reference;
        if (!ZEM_ASSERT(r.IsLocked(), "UnlockBuffer without LockBuffer")) return;
        r.SetLocked(false);
        if (Buffer* block = r.GetLockBlock())
        {
            r.SetLockBlock(nullptr);
            CreateObject(r, block->GetData());
            Buffer::Destroy(block);
            return;
        }
        if (r.GetUsage() == BufferUsage::Dynamic || r.GetUsage() == BufferUsage::Staging) m_pBackend->Unmap(r);
    }

    void BufferDevice::ReleaseHandle(BufferReference* reference)
    {
        if (!reference || !CheckThread("ReleaseHandle")) return;
        if (reference->IsAllocated())
        {
            m_pBackend->Destroy(*reference);
            m_iLive.fetch_sub(1, std::memory_order_relaxed);
        }
        Buffer::Destroy(reference->GetLockBlock());
        reference->SetLockBlock(nullptr);
        reference->SetLocked(false);
        reference->SetLockCount(0);
    }

    void BufferDevice::DeleteBuffer(BufferReference* reference)
    {
        if (!reference || !CheckThread("DeleteBuffer")) return;
        ReleaseHandle(reference);
        BufferReference::Destroy(reference);
    }

    bool BufferDevice::WriteRange(BufferReference& r, uint32_t offset, const void* data, uint32_t size, uint32_t mode)
    {
        if (r.GetUsage() == BufferUsage::Dynamic)
        {
            void* address = m_pBackend->Map(r, offset, size, static_cast<BufferMapMode>(mode));
            if (!ZEM_ASSERT(address != nullptr, "LockBuffer map has failed")) return false;
            std::memcpy(address, data, size);
            m_pBackend->Unmap(r);
            return true;
        }
        return ZEM_ASSERT(m_pBackend->Write(r, offset, data, size), "Buffer write of %u bytes at %u failed", size, offset);
    }

    bool BufferDevice::UpdateBuffer(Buffer* block, bool reload, uint32_t mode)
    {
        if (!ZEM_ASSERT(block != nullptr, "Null buffer !")) return false;
        BufferReference* reference = block->GetReference();
        if (!ZEM_ASSERT(reference != nullptr, "Null buffer !") || !CheckThread("UpdateBuffer"))
        {
            Buffer::Destroy(block);
            return false;
        }
        BufferReference& r = *reference;
        const uint64_t end = static_cast<uint64_t>(block->GetOffset()) + block->GetSize();
        bool ok = ZEM_ASSERT(end <= r.GetSize(), "Buffer update of %u bytes at %u past the end of a buffer of %u bytes",
                             block->GetSize(), block->GetOffset(), r.GetSize());
        if (ok && r.GetUsage() == BufferUsage::CpuMemory)
        {
            if (!r.GetCpuCopy()) r.SetCpuCopy(Buffer::Create(&r, r.GetSize(), 0));
            Buffer* copy = r.GetCpuCopy();
            ok = copy != nullptr;
            if (ok && block->GetSize()) std::memcpy(static_cast<unsigned char*>(copy->GetData()) + block->GetOffset(),
                                                    block->GetData(), block->GetSize());
            if (ok) r.SetStreamStatus(BSS_UPDATED_RELOADABLE);
            Buffer::Destroy(block);
            return ok;
        }
        const bool whole = block->IsWhole();
        if (ok)
        {
            if (r.GetUsage() == BufferUsage::Immutable)
            {
                if (!ZEM_ASSERT(!r.IsAllocated() && !r.GetLockBlock(),
                                "Immutable ressource can't be locled twice. Resource must be filled at init time."))
                    ok = false;
                else if (whole)
                    ok = CheckCreation(r) && CreateObject(r, block->GetData());
                else if (void* address = LockBuffer(&r))
                {
                    std::memcpy(static_cast<unsigned char*>(address) + block->GetOffset(), block->GetData(),
                                block->GetSize());
                    UnlockBuffer(&r);
                    ok = r.IsAllocated();
                }
                else
                    ok = false;
            }
            else
            {
                ok = AllocateDeviceBuffer(&r) &&
                     WriteRange(r, block->GetOffset(), block->GetData(), block->GetSize(), whole ? mode : eMapWriteDiscard);
            }
        }
        if (!ok)
        {
            Buffer::Destroy(block);
            return false;
        }
        r.SetStreamStatus(reload ? BSS_UPDATED_RELOADABLE : BSS_UPDATED);
        if (reload && whole)
            r.SetCpuCopy(block);
        else
        {
            if (reload && r.GetCpuCopy() && r.GetCpuCopy()->GetSize() == r.GetSize())
                std::memcpy(static_cast<unsigned char*>(r.GetCpuCopy()->GetData()) + block->GetOffset(),
                            block->GetData(), block->GetSize());
            Buffer::Destroy(block);
        }
        return true;
    }

    bool BufferDevice::ReadBuffer(BufferReference* reference, uint32_t offset, void* dest, uint32_t size)
    {
        if (!ZEM_ASSERT(reference != nullptr, "Null buffer !") || !CheckThread("ReadBuffer")) return false;
        if (reference->GetUsage() == BufferUsage::CpuMemory)
        {
            Buffer* copy = reference->GetCpuCopy();
            if (!copy || static_cast<uint64_t>(offset) + size > copy->GetSize()) return false;
            std::memcpy(dest, static_cast<unsigned char*>(copy->GetData()) + offset, size);
            return true;
        }
        return reference->IsAllocated() && m_pBackend->Read(*reference, offset, dest, size);
    }

    BufferReference* BufferDevice::CreateManagedBuffer(uint32_t size, uint32_t stride, uint32_t flags)
    {
        if (!IsDeviceThread())
        {
            ZEM_ASSERT(IsDeviceThread(), "ALlocateDeviceBuffer must be called by RenderThread.");
            return nullptr;
        }
        // Recycled buffers are rewritten at each use.
        if (!HasCpuWriteUsage(flags) && !(flags & (BBF_CPU_ONLYACCESS | BBF_RANDOM_ACCESS))) flags |= BBF_CPU_WRITEACCESS;
        // A texture buffer is read as float4 texels.
        InputLayout* layout = (flags & BBF_TEXTURE_BUFFER) ? InputLayout::Create("DATA", IET_FLOAT4) : nullptr;
        BufferReference* reference = BufferReference::Create(size, flags, layout);
        if (!reference)
        {
            InputLayout::Destroy(layout);
            return nullptr;
        }
        if (stride) reference->SetQuantity(size / stride);
        reference->AddRef();
        if (!AllocateDeviceBuffer(reference))
        {
            BufferReference::Destroy(reference);
            return nullptr;
        }
        return reference;
    }
}

// What the usage flags decide, input layouts, and the buffer device's rules on the
// memory backend: locks, updates, creation checks and the thread that may call it.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/Buffer.h"
#include "zemrenderer/buffer/BufferDevice.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/buffer/GLBufferBackend.h"
#include "zemrenderer/buffer/InputLayout.h"
#include "zemrenderer/thread/ThreadId.h"

namespace ZemRenderer::BufferTest
{
    TEST(BufferFlags, UsageFollowsTheFlagsInTheirOrderWithTheirReports)
    {
        struct Case
        {
            uint32_t flags;
            BufferUsage usage;
            const char* report;
        };
        const Case cases[] = {
            {BBF_CPU_MEMORY | BBF_CPU_ONLYACCESS | BBF_RANDOM_ACCESS, BufferUsage::CpuMemory, nullptr},
            {BBF_CPU_ONLYACCESS | BBF_RANDOM_ACCESS | BBF_CPU_WRITEACCESS, BufferUsage::Staging, nullptr},
            {BBF_RANDOM_ACCESS, BufferUsage::Default, nullptr},
            {BBF_RANDOM_ACCESS | BBF_CPU_WRITEACCESS, BufferUsage::Default,
             "Random access buffer can't be mapped for CPU for writing"},
            {BBF_CPU_WRITEACCESS | BBF_VERTEX, BufferUsage::Dynamic, nullptr},
            {BBF_CPU_WRITEACCESS | BBF_CONSTANT, BufferUsage::Dynamic, nullptr},
            {BBF_RENDER_TARGET, BufferUsage::Default, nullptr},
            {BBF_DEPTH_STENCIL, BufferUsage::Default, nullptr},
            {BBF_SHADER_RESOURCE, BufferUsage::Default, nullptr},
            {BBF_DEVICE_WRITE | BBF_INDEX, BufferUsage::Default, nullptr},
            {BBF_VERTEX, BufferUsage::Immutable, nullptr},
            {0, BufferUsage::Immutable, nullptr},
            {BBF_RESOURCE_BUFFER, BufferUsage::Immutable,
             "A resource buffer must have at least a CPU access flag like BBF_CPU_WRITEACCESS"},
            {BBF_RENDER_TARGET | BBF_CPU_ONLYACCESS, BufferUsage::Staging,
             "RenderTarget can't be read by CPU : use resolve method to a buffer with read access"},
            {BBF_DEPTH_STENCIL | BBF_CPU_WRITEACCESS, BufferUsage::Dynamic,
             "RenderTarget can't be write by CPU : use resolve method to a buffer with write access"},
        };
        for (const Case& c : cases)
        {
            const UsageDecision d = ClassifyBufferUsage(c.flags);
            EXPECT_EQ(d.eUsage, c.usage) << std::hex << c.flags;
            EXPECT_STREQ(d.szReport ? d.szReport : "", c.report ? c.report : "") << std::hex << c.flags;
        }
    }

    TEST(BufferFlags, StatusClassAndSizesFollowTheFlags)
    {
        struct Case
        {
            uint32_t flags;
            uint32_t status;
            ManagerClass klass;
        };
        const Case cases[] = {
            {BBF_CONSTANT, BSS_FROM_DESCRIPTION, ManagerClass::Constant},
            {BBF_CONSTANT | BBF_TEXTURE_BUFFER, BSS_FROM_DESCRIPTION, ManagerClass::Constant},
            {BBF_TEXTURE_BUFFER, BSS_EMPTY, ManagerClass::TextureBuffer},
            {BBF_STRUCTURED, BSS_FROM_DESCRIPTION, ManagerClass::Structured},
            {BBF_RENDER_TARGET, BSS_FROM_DESCRIPTION, ManagerClass::Raw},
            {BBF_DEPTH_STENCIL, BSS_FROM_DESCRIPTION, ManagerClass::Raw},
            {BBF_SHADER_RESOURCE, BSS_FROM_DESCRIPTION, ManagerClass::Raw},
            {BBF_VERTEX, BSS_EMPTY, ManagerClass::Raw},
            {BBF_CPU_WRITEACCESS | BBF_RANDOM_ACCESS, BSS_EMPTY, ManagerClass::Raw},
        };
        for (const Case& c : cases)
        {
            EXPECT_EQ(InitialStreamStatus(c.flags), c.status) << std::hex << c.flags;
            EXPECT_EQ(ManagerClassOf(c.flags), c.klass) << std::hex << c.flags;
        }
        EXPECT_EQ(DeviceSizeOf(20, BBF_CONSTANT), 32u);
        EXPECT_EQ(DeviceSizeOf(20, BBF_VERTEX), 20u);
        EXPECT_EQ(DeviceSizeOf(32, BBF_CONSTANT), 32u);
        EXPECT_EQ(RoundUp16(0), 0u);
        EXPECT_EQ(RoundUp16(1), 16u);
    }

    TEST(BufferFlags, GLStorageGivesTheCpuOnlyWhatTheUsagePromises)
    {
        EXPECT_EQ(GLBufferBackend::StorageFlagsOf(static_cast<uint8_t>(BufferUsage::Immutable)), 0u);
        EXPECT_EQ(GLBufferBackend::StorageFlagsOf(static_cast<uint8_t>(BufferUsage::Default)), 0x0100u);
        // Dynamic: written through a map, never read.
        EXPECT_EQ(GLBufferBackend::StorageFlagsOf(static_cast<uint8_t>(BufferUsage::Dynamic)), 0x0100u | 0x0002u);
        // Staging: read and written through one mapping kept for its life.
        EXPECT_EQ(GLBufferBackend::StorageFlagsOf(static_cast<uint8_t>(BufferUsage::Staging)),
                  0x0100u | 0x0200u | 0x0001u | 0x0002u | 0x0040u | 0x0080u);
    }

    TEST(InputLayout, OffsetsStrideAndLookupsByName)
    {
        InputElementDesc elements[4];
        const char* names[] = {"POSITION", "TEXCOORD", "TEXCOORD", "COLOR"};
        const uint32_t types[] = {IET_FLOAT3, IET_FLOAT2, IET_FLOAT2, IET_FLOAT4};
        for (int i = 0; i < 4; ++i)
        {
            std::strcpy(elements[i].szSemantic, names[i]);
            elements[i].uiType = types[i];
        }
        // An explicit offset leaves a hole; the stride covers the furthest element.
        elements[3].uiOffset = 40;
        InputLayout* layout = InputLayout::Create(elements, 4);
        ASSERT_NE(layout, nullptr);
        EXPECT_EQ(layout->GetNumElements(), 4u);
        EXPECT_EQ(layout->GetStride(), 56u);
        struct Lookup
        {
            const char* name;
            uint32_t index;
            int offset;
            uint32_t size;
        };
        const Lookup lookups[] = {{"POSITION", 0, 0, 12}, {"TEXCOORD", 0, 12, 8}, {"TEXCOORD", 1, 20, 8},
                                  {"COLOR", 0, 40, 16},   {"NORMAL", 0, -1, 0}};
        for (const Lookup& l : lookups)
        {
            uint32_t size = 99;
            EXPECT_EQ(layout->GetOffsetAndSize(l.name, size, l.index), l.offset) << l.name << l.index;
            EXPECT_EQ(size, l.size) << l.name;
        }
        {
            Common::ScopedLogCapture capture;
            uint32_t size = 0;
            EXPECT_EQ(layout->GetOffsetAndSize("TEXCOORD", size, 2), -1);
            EXPECT_EQ(layout->GetOffset(4), -1);
            EXPECT_TRUE(capture.Contains("Invalid index for GetOffsetAndSize layout"));
        }
        // The id tells layouts apart by content.
        InputLayout* same = InputLayout::Create(elements, 4);
        elements[3].uiType = IET_FLOAT3;
        InputLayout* other = InputLayout::Create(elements, 4);
        ASSERT_NE(same, nullptr);
        ASSERT_NE(other, nullptr);
        EXPECT_TRUE(layout->IsSameAs(*same));
        EXPECT_FALSE(layout->IsSameAs(*other));
        for (InputLayout* l : {layout, same, other}) InputLayout::Destroy(l);
    }

    TEST(InputLayout, BadElementListsAreRefused)
    {
        Common::ScopedLogCapture capture;
        InputElementDesc bad;
        std::strcpy(bad.szSemantic, "WEIRD");
        bad.uiType = 12345;
        EXPECT_EQ(InputLayout::Create(&bad, 1), nullptr);
        EXPECT_TRUE(capture.Contains("Unknown format !"));
        EXPECT_EQ(InputLayout::Create(&bad, 0), nullptr);
        std::vector<InputElementDesc> many(InputLayout::kMaxElements + 1);
        EXPECT_EQ(InputLayout::Create(many.data(), static_cast<uint32_t>(many.size())), nullptr);
    }

    namespace
    {
        // Memory buffers that belong to the thread that made the backend, as a device's do.
        class ThreadBoundBackend : public MemoryBufferBackend
        {
        public:
            bool IsOwnerThread() const override { return CurrentThreadId() == m_iOwner; }

        private:
            int m_iOwner = CurrentThreadId();
        };

        BufferReference* Ref(uint32_t size, uint32_t flags, InputLayout* layout = nullptr)
        {
            BufferReference* r = BufferReference::Create(size, flags, layout);
            r->AddRef();
            return r;
        }

        std::vector<unsigned char> Read(BufferDevice& device, BufferReference* r)
        {
            std::vector<unsigned char> out(r->GetSize(), 0xEE);
            EXPECT_TRUE(device.ReadBuffer(r, 0, out.data(), r->GetSize()));
            return out;
        }

        Buffer* Block(BufferReference* r, uint32_t size, uint32_t offset, unsigned char fill)
        {
            Buffer* b = Buffer::Create(r, size, offset);
            std::memset(b->GetData(), fill, size);
            return b;
        }
    }

    TEST(BufferDevice, LockRulesByUsage)
    {
        BufferDevice device;
        struct Case
        {
            uint32_t flags;
            bool firstLock;
            bool secondLock;
            const char* report;
        };
        const Case cases[] = {
            {BBF_VERTEX, true, false, "Immutable ressource can't be locled twice. Resource must be filled at init time."},
            {BBF_SHADER_RESOURCE, false, false, "Not dynamic resource"},
            {BBF_CPU_WRITEACCESS | BBF_VERTEX, true, true, nullptr},
            {BBF_CPU_ONLYACCESS, true, true, nullptr},
            {BBF_CPU_MEMORY, true, true, nullptr},
        };
        for (const Case& c : cases)
        {
            BufferReference* r = Ref(64, c.flags);
            Common::ScopedLogCapture capture;
            void* first = device.LockBuffer(r);
            EXPECT_EQ(first != nullptr, c.firstLock) << std::hex << c.flags;
            if (first)
            {
                std::memset(first, 0x5A, 64);
                EXPECT_EQ(device.LockBuffer(r), nullptr) << "a locked buffer is not locked again";
                EXPECT_TRUE(capture.Contains("Buffer already locked"));
                device.UnlockBuffer(r);
                EXPECT_EQ(Read(device, r), std::vector<unsigned char>(64, 0x5A)) << std::hex << c.flags;
            }
            void* second = device.LockBuffer(r);
            EXPECT_EQ(second != nullptr, c.secondLock) << std::hex << c.flags;
            if (second) device.UnlockBuffer(r);
            if (c.report)
            {
                EXPECT_TRUE(capture.Contains(c.report)) << c.report;
            }
            device.DeleteBuffer(r);
        }
        EXPECT_EQ(device.GetLiveCount(), 0);
    }

    TEST(BufferDevice, UpdatesFillWholeOrPartAndSetTheStatus)
    {
        BufferDevice device;
        for (uint32_t flags : {uint32_t(BBF_VERTEX), uint32_t(BBF_VERTEX | BBF_CPU_WRITEACCESS),
                               uint32_t(BBF_VERTEX | BBF_DEVICE_WRITE), uint32_t(BBF_CPU_ONLYACCESS)})
        {
            BufferReference* r = Ref(48, flags);
            // Part first: an immutable buffer is made from zeros and the part, once.
            ASSERT_TRUE(device.UpdateBuffer(Block(r, 16, 16, 0x22))) << std::hex << flags;
            std::vector<unsigned char> want(48, 0);
            std::memset(want.data() + 16, 0x22, 16);
            EXPECT_EQ(Read(device, r), want) << std::hex << flags;
            EXPECT_EQ(r->GetStreamStatus(), uint32_t(BSS_UPDATED));
            if (r->GetUsage() == BufferUsage::Immutable)
            {
                Common::ScopedLogCapture capture;
                EXPECT_FALSE(device.UpdateBuffer(Block(r, 48, 0, 0x33)));
                EXPECT_TRUE(capture.Contains("Immutable ressource can't be locled twice"));
                EXPECT_EQ(Read(device, r), want);
            }
            else
            {
                ASSERT_TRUE(device.UpdateBuffer(Block(r, 48, 0, 0x33), true));
                EXPECT_EQ(Read(device, r), std::vector<unsigned char>(48, 0x33));
                EXPECT_EQ(r->GetStreamStatus(), uint32_t(BSS_UPDATED_RELOADABLE));
                ASSERT_NE(r->GetCpuCopy(), nullptr) << "data kept for a reload";
                ASSERT_TRUE(device.UpdateBuffer(Block(r, 8, 40, 0x44), true));
                EXPECT_EQ(static_cast<unsigned char*>(r->GetCpuCopy()->GetData())[44], 0x44) << "the copy follows";
            }
            {
                Common::ScopedLogCapture capture;
                EXPECT_FALSE(device.UpdateBuffer(Block(r, 16, 40, 0x55)));
                EXPECT_TRUE(capture.Contains("past the end"));
                EXPECT_FALSE(device.UpdateBuffer(nullptr));
                EXPECT_TRUE(capture.Contains("Null buffer !"));
            }
            device.DeleteBuffer(r);
        }
        EXPECT_EQ(device.GetLiveCount(), 0);
    }

    TEST(BufferDevice, CreationChecksOfConstantTextureAndRawBuffers)
    {
        BufferDevice device;
        InputLayout* float4 = InputLayout::Create("DATA", IET_FLOAT4);
        InputLayout* two = nullptr;
        {
            InputElementDesc e[2];
            std::strcpy(e[0].szSemantic, "A");
            std::strcpy(e[1].szSemantic, "B");
            two = InputLayout::Create(e, 2);
        }
        InputLayout* float3 = InputLayout::Create("DATA", IET_FLOAT3);
        struct Case
        {
            uint32_t size;
            uint32_t flags;
            InputLayout* layout;
            bool made;
            const char* report;
        };
        const Case cases[] = {
            {20, BBF_CONSTANT | BBF_CPU_WRITEACCESS, nullptr, true, nullptr},
            {0, BBF_CONSTANT | BBF_CPU_WRITEACCESS, nullptr, false, "Can't create constant buffer of size 0"},
            {64, BBF_TEXTURE_BUFFER | BBF_CPU_WRITEACCESS, float4, true, nullptr},
            {64, BBF_TEXTURE_BUFFER | BBF_CPU_WRITEACCESS, two, false,
             "Texture Buffer must have one element in layout and not 2"},
            {64, BBF_TEXTURE_BUFFER | BBF_CPU_WRITEACCESS, nullptr, false,
             "Texture Buffer must have one element in layout and not 0"},
            {48, BBF_TEXTURE_BUFFER | BBF_CPU_WRITEACCESS, float3, false, "Texture Buffer suport only  ARGB32F format"},
            {0, BBF_RANDOM_ACCESS, nullptr, false, "Bad rawbuffer size. Maybe a GetBufferSize missing on a PropertyModifier"},
            {64, BBF_CPU_MEMORY, nullptr, false, "This is not a DirectX resource"},
        };
        for (const Case& c : cases)
        {
            BufferReference* r = Ref(c.size, c.flags, c.layout);
            Common::ScopedLogCapture capture;
            EXPECT_EQ(device.AllocateDeviceBuffer(r), c.made) << std::hex << c.flags;
            EXPECT_EQ(r->IsAllocated(), c.made);
            if (c.report)
            {
                EXPECT_TRUE(capture.Contains(c.report)) << c.report << "\n" << capture.Text();
            }
            device.DeleteBuffer(r);
        }
        EXPECT_EQ(device.GetLiveCount(), 0);
    }

    TEST(BufferDevice, AnotherThreadIsRefusedAndMakesNothing)
    {
        BufferDevice device;
        ThreadBoundBackend backend;
        device.SetBackend(&backend);
        BufferReference* r = Ref(64, BBF_CPU_WRITEACCESS);
        BufferReference* made = Ref(64, BBF_CPU_WRITEACCESS);
        ASSERT_TRUE(device.AllocateDeviceBuffer(made));
        std::string text;
        std::thread other([&] {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(device.AllocateDeviceBuffer(r));
            EXPECT_EQ(device.LockBuffer(made), nullptr);
            EXPECT_FALSE(device.UpdateBuffer(Block(made, 64, 0, 1)));
            device.DeleteBuffer(made);
            EXPECT_EQ(device.GetManager().Allocate(64, 0, BBF_CONSTANT), nullptr);
            text = capture.Text();
        });
        other.join();
        EXPECT_NE(text.find("ALlocateDeviceBuffer must be called by RenderThread."), std::string::npos) << text;
        EXPECT_NE(text.find("Wrong thread access ! must be called by RenderThread only"), std::string::npos) << text;
        EXPECT_FALSE(r->IsAllocated());
        EXPECT_TRUE(made->IsAllocated()) << "a refused delete leaves the buffer";
        EXPECT_EQ(device.GetLiveCount(), 1);
        device.DeleteBuffer(made);
        device.DeleteBuffer(r);
        device.GetManager().Clear();
        EXPECT_EQ(device.GetLiveCount(), 0);
        device.SetBackend(nullptr);
    }

    TEST(BufferReference, CountsAndTheLastReleaseDeletesTheDeviceObject)
    {
        BufferDevice device;
        BufferReference* r = Ref(32, BBF_CPU_WRITEACCESS);
        ASSERT_TRUE(device.AllocateDeviceBuffer(r));
        r->AddRef();
        EXPECT_EQ(device.GetLiveCount(), 1);
        // The renderer's DeleteBuffer is the device's; here the device itself is asked.
        EXPECT_EQ(r->GetRefCount(), 2);
        device.ReleaseHandle(r);
        EXPECT_FALSE(r->IsAllocated()) << "the handle went, the record stays";
        EXPECT_EQ(device.GetLiveCount(), 0);
        EXPECT_EQ(r->ReleaseRef(nullptr), 1);
        EXPECT_EQ(r->ReleaseRef(nullptr), 0);
    }
}

// Buffers on an OpenGL context: each usage locked or updated, filled, and read back with
// glGetNamedBufferSubData; no GL error is left behind; another thread is refused.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/Buffer.h"
#include "zemrenderer/buffer/BufferDevice.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/buffer/tests/GLTestContext.h"

namespace ZemRenderer::BufferTest
{
    namespace
    {
        std::vector<unsigned char> ReadGL(BufferReference* r)
        {
            std::vector<unsigned char> out(r->GetSize(), 0xEE);
            glGetNamedBufferSubData(GLBufferBackend::GetName(*r), 0, r->GetSize(), out.data());
            return out;
        }
        std::vector<unsigned char> Pattern(uint32_t size, unsigned char seed)
        {
            std::vector<unsigned char> v(size);
            for (uint32_t i = 0; i < size; ++i) v[i] = static_cast<unsigned char>(seed + i * 7);
            return v;
        }
        BufferReference* Ref(uint32_t size, uint32_t flags)
        {
            BufferReference* r = BufferReference::Create(size, flags, nullptr);
            r->AddRef();
            return r;
        }
        Buffer* Block(BufferReference* r, const std::vector<unsigned char>& data, uint32_t offset)
        {
            Buffer* b = Buffer::Create(r, static_cast<uint32_t>(data.size()), offset);
            std::memcpy(b->GetData(), data.data(), data.size());
            return b;
        }

        class GLBuffers : public ::testing::Test
        {
        protected:
            void SetUp() override
            {
                ZEM_REQUIRE_GL(m_kContext);
                m_pBackend = new GLBufferBackend();
                m_kDevice.SetBackend(m_pBackend);
            }
            void TearDown() override
            {
                if (!m_pBackend) return;
                m_kDevice.GetManager().Clear();
                EXPECT_EQ(m_kDevice.GetLiveCount(), 0);
                EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
                m_kDevice.SetBackend(nullptr);
                delete m_pBackend;
            }

            GLTestContext m_kContext;
            GLBufferBackend* m_pBackend = nullptr;
            BufferDevice m_kDevice;
        };
    }

    TEST_F(GLBuffers, EveryUsageRoundTripsWholeAndPartialUpdates)
    {
        const uint32_t usages[] = {BBF_VERTEX, BBF_VERTEX | BBF_DEVICE_WRITE, BBF_VERTEX | BBF_CPU_WRITEACCESS,
                                   BBF_CPU_ONLYACCESS, BBF_CONSTANT | BBF_CPU_WRITEACCESS};
        for (uint32_t flags : usages)
        {
            BufferReference* r = Ref(100, flags);
            const std::vector<unsigned char> whole = Pattern(100, 3);
            ASSERT_TRUE(m_kDevice.UpdateBuffer(Block(r, whole, 0))) << std::hex << flags;
            ASSERT_NE(GLBufferBackend::GetName(*r), 0u);
            EXPECT_EQ(ReadGL(r), whole) << std::hex << flags;
            if (r->GetUsage() != BufferUsage::Immutable)
            {
                // A part changes that part only.
                const std::vector<unsigned char> part = Pattern(24, 90);
                ASSERT_TRUE(m_kDevice.UpdateBuffer(Block(r, part, 40))) << std::hex << flags;
                std::vector<unsigned char> want = whole;
                std::memcpy(want.data() + 40, part.data(), part.size());
                EXPECT_EQ(ReadGL(r), want) << std::hex << flags;
                std::vector<unsigned char> back(100);
                EXPECT_TRUE(m_kDevice.ReadBuffer(r, 0, back.data(), 100));
                EXPECT_EQ(back, want);
            }
            EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)) << std::hex << flags;
            m_kDevice.DeleteBuffer(r);
        }
    }

    TEST_F(GLBuffers, LockFillUnlockThenReadBack)
    {
        // Dynamic: written through a map that discards the old content.
        BufferReference* dynamic = Ref(256, BBF_VERTEX | BBF_CPU_WRITEACCESS);
        for (unsigned char seed : {1, 2, 3})
        {
            void* p = m_kDevice.LockBuffer(dynamic);
            ASSERT_NE(p, nullptr);
            const std::vector<unsigned char> data = Pattern(256, seed);
            std::memcpy(p, data.data(), data.size());
            m_kDevice.UnlockBuffer(dynamic);
            EXPECT_EQ(ReadGL(dynamic), data);
        }
        // Immutable: one lock makes it, with what was written.
        BufferReference* immutable = Ref(64, BBF_INDEX);
        void* p = m_kDevice.LockBuffer(immutable);
        ASSERT_NE(p, nullptr);
        EXPECT_FALSE(immutable->IsAllocated()) << "made at the unlock, with its data";
        std::memset(p, 0x7C, 64);
        m_kDevice.UnlockBuffer(immutable);
        EXPECT_EQ(ReadGL(immutable), std::vector<unsigned char>(64, 0x7C));
        {
            Common::ScopedLogCapture capture;
            EXPECT_EQ(m_kDevice.LockBuffer(immutable), nullptr);
            EXPECT_TRUE(capture.Contains("Immutable ressource can't be locled twice. Resource must be filled at init time."));
        }
        // Staging: mapped for its whole life; a lock reads what the device wrote.
        BufferReference* staging = Ref(64, BBF_CPU_ONLYACCESS);
        ASSERT_TRUE(m_kDevice.AllocateDeviceBuffer(staging));
        ASSERT_NE(staging->GetMapped(), nullptr);
        glCopyNamedBufferSubData(GLBufferBackend::GetName(*immutable), GLBufferBackend::GetName(*staging), 0, 0, 64);
        const unsigned char* read = static_cast<const unsigned char*>(m_kDevice.LockBuffer(staging, 0, 0, eMapRead));
        ASSERT_NE(read, nullptr);
        EXPECT_EQ(std::vector<unsigned char>(read, read + 64), std::vector<unsigned char>(64, 0x7C));
        m_kDevice.UnlockBuffer(staging);
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        for (BufferReference* r : {dynamic, immutable, staging}) m_kDevice.DeleteBuffer(r);
    }

    TEST_F(GLBuffers, ABufferOnTheWrongThreadIsRefusedNotHalfMade)
    {
        BufferReference* r = Ref(64, BBF_VERTEX | BBF_CPU_WRITEACCESS);
        BufferReference* immutable = Ref(64, BBF_VERTEX);
        std::string text;
        std::thread other([&] {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(m_kDevice.AllocateDeviceBuffer(r));
            EXPECT_FALSE(m_kDevice.UpdateBuffer(Block(immutable, Pattern(64, 1), 0)));
            EXPECT_EQ(m_kDevice.LockBuffer(r), nullptr);
            text = capture.Text();
        });
        other.join();
        EXPECT_NE(text.find("ALlocateDeviceBuffer must be called by RenderThread."), std::string::npos);
        EXPECT_FALSE(r->IsAllocated());
        EXPECT_FALSE(immutable->IsAllocated());
        EXPECT_EQ(m_kDevice.GetLiveCount(), 0);
        // On the right thread the same calls work.
        EXPECT_TRUE(m_kDevice.UpdateBuffer(Block(immutable, Pattern(64, 1), 0)));
        EXPECT_EQ(ReadGL(immutable), Pattern(64, 1));
        m_kDevice.DeleteBuffer(r);
        m_kDevice.DeleteBuffer(immutable);
    }

    TEST_F(GLBuffers, ManagedBuffersAreRealObjectsReusedAfterAFrame)
    {
        BufferManager& manager = m_kDevice.GetManager();
        BufferReference* a = manager.Allocate(40, 0, BBF_CONSTANT);
        ASSERT_NE(a, nullptr);
        EXPECT_EQ(a->GetUsage(), BufferUsage::Dynamic) << "recycled buffers are rewritten at each use";
        GLint64 size = 0;
        glGetNamedBufferParameteri64v(GLBufferBackend::GetName(*a), GL_BUFFER_SIZE, &size);
        EXPECT_EQ(size, 48) << "pool sizes go by 16";
        manager.Release(a, 40, 0, BBF_CONSTANT);
        BufferReference* b = manager.Allocate(48, 0, BBF_CONSTANT);
        EXPECT_NE(b, a);
        manager.EndOfFrame();
        EXPECT_EQ(manager.Allocate(33, 0, BBF_CONSTANT), a);
        manager.Release(a, 48, 0, BBF_CONSTANT);
        manager.Release(b, 48, 0, BBF_CONSTANT);
    }
}

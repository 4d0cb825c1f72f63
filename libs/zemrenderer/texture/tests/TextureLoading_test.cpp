// Textures by name through the data provider and the loaders, onto a GL device on the
// render thread: read back to their pictures, shared by name, a fallback for files that
// can't be read, rectangle updates and reloads.
#include <gtest/gtest.h>

#include <epoxy/gl.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemrenderer/device/PngImage.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/device/gl/GLContext.h"
#include "zemrenderer/device/gl/GLRenderer.h"
#include "zemrenderer/loading/tests/LoadingTestKit.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/scene/tests/SceneTestKit.h"
#include "zemrenderer/texture/TextureWorkers.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    using LoadingTest::FolderProvider;
    using SceneTest::WaitUntil;

    namespace
    {
        std::vector<uint8_t> ReadData(const std::string& name)
        {
            std::ifstream in(std::string(ZEM_TEXTURE_TEST_DATA) + "/" + name, std::ios::binary);
            return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        }

        RgbaImage ReadPattern(const std::string& name)
        {
            RgbaImage image;
            ReadPng((std::string(ZEM_TEXTURE_TEST_DATA) + "/" + name).c_str(), image);
            return image;
        }

        // A render thread with the GL device, off-screen.
        class GLEngine
        {
        public:
            GLEngine()
            {
                setenv("LP_NUM_THREADS", "2", 0);
                std::string reason;
                if (!GL::IsGLAllowed(reason))
                {
                    m_szSkip = "no EGL device on this machine (" + reason + ")";
                    return;
                }
                m_pThread = MEM_NEW(RenderThread);
                m_pThread->SetRenderer(&m_kDevice);
                RendererInitRecord record;
                record.bNoWindow = 1;
                record.uWidth = record.uHeight = 64;
                m_pThread->SetInitParameters(record);
                if (!m_pThread->Init()) m_szSkip = "the GL device did not start (see the log)";
            }
            ~GLEngine()
            {
                if (!m_pThread) return;
                m_pThread->Stop();
                m_pThread->WaitForStop();
                MEM_DELETE(m_pThread);
            }
            RenderThread* Get() const { return m_pThread; }
            const std::string& SkipReason() const { return m_szSkip; }

        private:
            GLRenderer m_kDevice;
            RenderThread* m_pThread = nullptr;
            std::string m_szSkip;
        };

        // Reads one level back as 8-bit RGBA on the render thread.
        class ReadBackWorker : public PooledWorker<ReadBackWorker, Renderer>
        {
        public:
            ReadBackWorker() = default;
            ReadBackWorker(Texture* texture, std::vector<uint8_t>* out, std::atomic<bool>* done)
                : m_pTexture(texture), m_pOut(out), m_pDone(done)
            {
            }
            unsigned int GetQueue() const override { return eUpdateQueue; }
            bool DoWork(Renderer*) override
            {
                const uint32_t w = m_pTexture->GetWidth(), h = m_pTexture->GetHeight();
                m_pOut->assign(size_t(w) * h * 4, 0);
                if (m_pTexture->GetDeviceObject())
                {
                    glPixelStorei(GL_PACK_ALIGNMENT, 1);
                    glGetTextureImage(m_pTexture->GetDeviceObject(), 0, GL_RGBA, GL_UNSIGNED_BYTE,
                                      GLsizei(m_pOut->size()), m_pOut->data());
                    glPixelStorei(GL_PACK_ALIGNMENT, 4);
                }
                m_pDone->store(true);
                return true;
            }
            void OnCancel() override { m_pDone->store(true); }

        private:
            Texture* m_pTexture = nullptr;
            std::vector<uint8_t>* m_pOut = nullptr;
            std::atomic<bool>* m_pDone = nullptr;
        };

        std::vector<uint8_t> ReadBack(RenderThread* thread, Texture* texture)
        {
            std::vector<uint8_t> pixels;
            std::atomic<bool> done{false};
            thread->AddWork(ReadBackWorker::New(texture, &pixels, &done));
            EXPECT_TRUE(WaitUntil([&] { return done.load(); }));
            return pixels;
        }

        struct Landing
        {
            std::atomic<int> iCalls{0};
            std::atomic<bool> bLoaded{false};
            static void OnLoaded(Texture*, bool loaded, void* user)
            {
                auto* self = static_cast<Landing*>(user);
                self->bLoaded = loaded;
                self->iCalls.fetch_add(1);
            }
            bool Wait() { return WaitUntil([&] { return iCalls.load() > 0; }); }
        };

        int MaxDifference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, int channels)
        {
            if (a.size() != b.size()) return 256;
            int worst = 0;
            for (size_t i = 0; i < a.size(); ++i)
                if (int(i % 4) < channels) worst = std::max(worst, std::abs(int(a[i]) - int(b[i])));
            return worst;
        }
    }

    class TextureLoading : public ::testing::Test
    {
    protected:
        void SetUp() override
        {
            if (!m_kEngine.SkipReason().empty()) GTEST_SKIP() << "GL test skipped: " << m_kEngine.SkipReason();
        }
        Texture* Load(Bucket& bucket, const char* name, Landing& landing, QueryPtr query = QueryPtr())
        {
            Texture* texture = bucket.AddTextureLoading(name, query, &Landing::OnLoaded, &landing);
            EXPECT_TRUE(landing.Wait()) << name;
            return texture;
        }

        FolderProvider m_kProvider;
        GLEngine m_kEngine;
    };

    TEST_F(TextureLoading, FilesByNameReadBackToTheirPicturesAndAreShared)
    {
        const std::vector<uint8_t> bc1 = ReadData("format_bc3.dds"), bgra = ReadData("format_bgra8.dds");
        m_kProvider.Write("textures/skin.dds", bc1.data(), bc1.size());
        m_kProvider.Write("textures/plain.dds", bgra.data(), bgra.size());
        const RgbaImage pattern = ReadPattern("pattern_8x8.png");
        Bucket bucket(m_kEngine.Get(), "level");
        Landing a, b, again;
        QueryPtr query(Query::Create());
        Texture* skin = Load(bucket, "textures/skin.dds", a, query);
        Texture* plain = Load(bucket, "textures/plain.dds", b);
        ASSERT_TRUE(skin && plain);
        EXPECT_TRUE(a.bLoaded);
        EXPECT_EQ(query->GetState(), Query::eDone);
        EXPECT_EQ(skin->GetLoadState(), Texture::eLoaded);
        EXPECT_EQ(skin->GetFormat(), uint32_t(TFMT_LIN_BC3));
        EXPECT_LE(MaxDifference(ReadBack(m_kEngine.Get(), skin), pattern.aPixels, 4), 72);
        EXPECT_EQ(MaxDifference(ReadBack(m_kEngine.Get(), plain), pattern.aPixels, 4), 0);

        Texture* shared = Load(bucket, "textures/skin.dds", again);
        EXPECT_EQ(shared, skin) << "one texture for a name";
        EXPECT_EQ(bucket.GetTextureLibrary().GetCount(), 2u);
        EXPECT_EQ(bucket.GetPendingCount(), 0);
        for (Texture* t : {skin, plain, shared}) t->Release();
    }

    TEST_F(TextureLoading, FilesThatCannotBeReadShowTheFallbackAndSaySo)
    {
        const std::vector<uint8_t> broken = ReadData("broken_unknown_fourcc.dds");
        m_kProvider.Write("textures/broken.dds", broken.data(), broken.size());
        Bucket bucket(m_kEngine.Get(), "level");
        struct Case
        {
            const char* name;
            const char* why;
        } cases[] = {{"textures/missing.dds", "file not found"}, {"textures/broken.dds", "Unknown format !"}};
        for (const Case& c : cases)
        {
            Common::ScopedLogCapture log;
            Landing landing;
            QueryPtr query(Query::Create());
            Texture* texture = Load(bucket, c.name, landing, query);
            ASSERT_TRUE(texture);
            EXPECT_FALSE(landing.bLoaded) << c.name;
            EXPECT_EQ(query->GetState(), Query::eCancelled) << c.name;
            ASSERT_TRUE(WaitUntil([&] { return texture->GetLoadState() == Texture::eFallback; })) << c.name;
            EXPECT_TRUE(log.Contains((std::string("Texture \"") + c.name + "\" could not be loaded: " + c.why).c_str()))
                << log.Text();
            // Magenta and black squares of 4 texels.
            const std::vector<uint8_t> pixels = ReadBack(m_kEngine.Get(), texture);
            ASSERT_EQ(pixels.size(), 8u * 8 * 4);
            const uint8_t* black = &pixels[0];
            const uint8_t* magenta = &pixels[(0 * 8 + 4) * 4];
            EXPECT_EQ(black[0] + black[1] + black[2], 0);
            EXPECT_EQ(magenta[0], 255);
            EXPECT_EQ(magenta[1], 0);
            EXPECT_EQ(magenta[2], 255);
            texture->Release();
        }

        Common::ScopedLogCapture log;
        TextureDesc desc;
        desc.uWidth = desc.uHeight = 4;
        Texture* made = bucket.CreateTexture("made", desc);
        ASSERT_TRUE(made);
        EXPECT_EQ(bucket.CreateTexture("made", desc), nullptr);
        EXPECT_TRUE(log.Contains("Texture already created => use update texture instead"));
        EXPECT_EQ(bucket.CreateTexture("textures/broken.dds", desc), nullptr) << "loaded names count too";
        made->Release();
    }

    TEST_F(TextureLoading, ARectangleUpdateChangesOnlyThatRectangle)
    {
        std::vector<uint8_t> first = ReadData("format_bgra8.dds");
        m_kProvider.Write("textures/page.dds", first.data(), first.size());
        Bucket bucket(m_kEngine.Get(), "level");
        Landing landing;
        Texture* texture = Load(bucket, "textures/page.dds", landing);
        ASSERT_TRUE(landing.bLoaded);
        const std::vector<uint8_t> before = ReadBack(m_kEngine.Get(), texture);

        // The file changes everywhere; only the box (2,4) 4x2 goes to the texture.
        std::vector<uint8_t> second = first;
        for (size_t i = Dds::kHeaderSize; i < second.size(); ++i) second[i] = static_cast<uint8_t>(255 - second[i]);
        m_kProvider.Write("textures/page.dds", second.data(), second.size());
        QueryPtr query(Query::Create());
        const TextureBox box{2, 4, 0, 4, 2, 1};
        ASSERT_TRUE(UpdateTextureWorker::Post(m_kEngine.Get(), texture, box, box, 0, 0, query));
        ASSERT_TRUE(WaitUntil([&] { return query->GetState() >= Query::eDone; }));
        EXPECT_EQ(query->GetState(), Query::eDone);
        const std::vector<uint8_t> after = ReadBack(m_kEngine.Get(), texture);
        ASSERT_EQ(after.size(), before.size());
        for (uint32_t y = 0; y < 8; ++y)
            for (uint32_t x = 0; x < 8; ++x)
            {
                const bool inside = x >= 2 && x < 6 && y >= 4 && y < 6;
                for (int c = 0; c < 4; ++c)
                {
                    const size_t i = (y * 8 + x) * 4 + c;
                    if (inside)
                        ASSERT_EQ(after[i], 255 - before[i]) << x << "," << y;
                    else
                        ASSERT_EQ(after[i], before[i]) << x << "," << y;
                }
            }

        // A reload takes the whole new file.
        QueryPtr reload(Query::Create());
        ASSERT_TRUE(ReloadTextureWorker::Post(&bucket, texture, reload));
        ASSERT_TRUE(WaitUntil([&] { return reload->GetState() >= Query::eDone; }));
        EXPECT_EQ(reload->GetState(), Query::eDone);
        const std::vector<uint8_t> reloaded = ReadBack(m_kEngine.Get(), texture);
        for (size_t i = 0; i < reloaded.size(); ++i) ASSERT_EQ(reloaded[i], 255 - before[i]) << i;
        texture->Release();
    }
}

#pragma once
// Shared pieces of the scene tests: a running render thread on the recording null
// device, links with known content, and a handler that records what it was given.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "zemrenderer/device/null/NullRenderer.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/scene/LOctreeRoot.h"
#include "zemrenderer/scene/Link.h"
#include "zemrenderer/thread/RenderThread.h"
#include "zemrenderer/thread/tests/WorkerTestKit.h"

namespace ZemRenderer::SceneTest
{
    // The worker kit's engine thread, stopped by its scene-test name.
    class Engine : public Testing::Engine
    {
    public:
        void Stop() { StopAndDelete(); }
    };
    using Testing::WaitUntil;

    // A file name of this process under the temporary folder, removed at the end.
    class TempFile
    {
    public:
        explicit TempFile(const char* stem)
        {
            const char* dir = std::getenv("TMPDIR");
            m_sPath = std::string(dir && *dir ? dir : "/tmp") + "/zemora_" + stem + "_" + std::to_string(getpid()) + ".zef";
        }
        ~TempFile() { std::remove(m_sPath.c_str()); }
        const char* Path() const { return m_sPath.c_str(); }
        void Write(const std::vector<unsigned char>& bytes) const
        {
            FILE* f = std::fopen(m_sPath.c_str(), "wb");
            ASSERT_NE(f, nullptr);
            if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), f);
            std::fclose(f);
        }

    private:
        std::string m_sPath;
    };

    // Two nodes and two tagged blocks ("MESH" first, then "LIGH" at the head).
    inline void FillLink(Link& link)
    {
        TArray<Node>& nodes = link.GetRenderNode().m_nodes;
        nodes.Resize(2);
        nodes[0].m_kPosition = {1.5f, -2.0f, 3.25f};
        nodes[0].m_kRotation = {0.0f, 0.0f, 0.70710678f, 0.70710678f};
        nodes[0].m_uiDrawGroup = 7;
        nodes[0].m_fRadius = 4.5f;
        nodes[0].m_uiKey = 0xA1B2C3D4u;
        nodes[0].m_usDistanceMin = 0x3C00;
        nodes[0].m_usDistanceMax = 0x5640;
        nodes[0].m_uiFlags = Node::eVisible | Node::eOccluder;
        nodes[1].m_kPosition = {-8.0f, 0.5f, 0.0f};
        nodes[1].m_uiFlags = Node::eAlwaysVisible;
        link.SetFlags(0x5A | Link::eStoredBit);
        UserData* mesh = UserData::Create(link.GetBucket(), UserDataTag::MESH, 5);
        std::memcpy(mesh->m_pBuffer, "abcde", 5);
        link.AddUserData(mesh);
        UserData* light = UserData::Create(link.GetBucket(), UserDataTag::LIGH, 8);
        const uint32_t words[2] = {0x01020304u, 0xCAFEF00Du};
        std::memcpy(light->m_pBuffer, words, 8);
        link.AddUserData(light);
    }

    // The bytes a memory stream holds.
    inline std::vector<unsigned char> Bytes(IOSTreamMemory& stream)
    {
        std::vector<unsigned char> out;
        for (const IOSTreamMemory::Block* b = stream.GetFirstBlock(); b && out.size() < stream.GetSize(); b = b->pNext)
        {
            const size_t n = std::min(IOSTreamMemory::kBlockSize, stream.GetSize() - out.size());
            out.insert(out.end(), b->aData, b->aData + n);
        }
        return out;
    }

    // The link engine file of a FillLink link, in either byte order.
    inline std::vector<unsigned char> SavedLink(bool swap = false)
    {
        Bucket bucket(nullptr, "writer");
        Link link(&bucket, "source");
        FillLink(link);
        IOSTreamMemory out;
        out.OpenToWrite(nullptr);
        EXPECT_TRUE(link.Save(out, swap));
        return Bytes(out);
    }

    inline bool SameNodes(const Link& a, const Link& b)
    {
        const TArray<Node>& x = a.GetRenderNode().m_nodes;
        const TArray<Node>& y = b.GetRenderNode().m_nodes;
        if (x.GetSize() != y.GetSize()) return false;
        for (unsigned int i = 0; i < x.GetSize(); ++i)
        {
            const Node& p = x[i];
            const Node& q = y[i];
            if (std::memcmp(&p.m_kPosition, &q.m_kPosition, sizeof(p.m_kPosition)) != 0 ||
                std::memcmp(&p.m_kRotation, &q.m_kRotation, sizeof(p.m_kRotation)) != 0 ||
                p.m_uiDrawGroup != q.m_uiDrawGroup || p.m_fRadius != q.m_fRadius || p.m_uiKey != q.m_uiKey ||
                p.m_usDistanceMin != q.m_usDistanceMin || p.m_usDistanceMax != q.m_usDistanceMax ||
                p.m_uiFlags != q.m_uiFlags)
                return false;
        }
        return true;
    }

    // Tag and bytes of each block, head first.
    inline std::vector<std::string> UserDataOf(const Link& link)
    {
        std::vector<std::string> out;
        for (const UserData* b = link.GetUserData(); b; b = b->m_pNext)
        {
            std::string entry(reinterpret_cast<const char*>(&b->m_uiTag), 4);
            entry += ':';
            if (b->m_uiSize) entry.append(static_cast<const char*>(b->m_pBuffer), b->m_uiSize);
            out.push_back(entry);
        }
        return out;
    }

    class RecordingHandler : public IUserDataHandler
    {
    public:
        void SetUserData(UserData* block) override { m_pCurrent = block; }
        void ApplyToLink(Link* link) override
        {
            aCalls.push_back(std::string(link->GetName()) + "/" +
                             std::string(reinterpret_cast<const char*>(&m_pCurrent->m_uiTag), 4));
        }
        std::vector<std::string> aCalls;

    private:
        UserData* m_pCurrent = nullptr;
    };

    // Registers a handler for a render thread for the length of a scope.
    class ScopedHandler
    {
    public:
        ScopedHandler(RenderThread* thread, IUserDataHandler* handler) : m_pThread(thread)
        {
            UserDataDispatch::SetHandler(thread, handler);
        }
        ~ScopedHandler() { UserDataDispatch::SetHandler(m_pThread, nullptr); }

    private:
        RenderThread* m_pThread;
    };
}

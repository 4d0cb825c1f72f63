#pragma once
// Loading thread: opens a file, named as it is on disk, into the caller's stream.
#include "zemrenderer/thread/PooledWorker.h"

namespace ZemRenderer
{
    class IOSTreamBase;

    class LoadFileWorker : public PooledWorker<LoadFileWorker, RenderThread>
    {
    public:
        static constexpr unsigned int kNameSize = 260;

        LoadFileWorker() = default;
        // The name is cut to kNameSize - 1 characters; callers check its length first.
        LoadFileWorker(IOSTreamBase* stream, const char* name);

        unsigned int GetQueue() const override { return 0; }
        bool DoWork(RenderThread* context) override;

    private:
        IOSTreamBase* m_pStream = nullptr;
        char m_szName[kNameSize] = {};
    };
}

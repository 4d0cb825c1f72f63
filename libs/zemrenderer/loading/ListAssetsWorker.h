#pragma once
// Loading thread: the provider's list of cooked assets, then one less on the caller's
// counter, so that a caller can wait for several lists at once.
#include <atomic>

#include "common/utils/String.h"
#include "common/utils/TArray.h"
#include "zemrenderer/thread/PooledWorker.h"

namespace ZemRenderer
{
    class ListAssetsWorker : public PooledWorker<ListAssetsWorker, RenderThread>
    {
    public:
        ListAssetsWorker() = default;
        ListAssetsWorker(const char* platform, const char* filter, TArray<Common::String>* out,
                         std::atomic<int>* counter)
            : m_kPlatform(platform ? platform : ""), m_kFilter(filter ? filter : ""), m_pOut(out), m_pCounter(counter)
        {
        }

        unsigned int GetQueue() const override { return 0; }
        bool DoWork(RenderThread* context) override;
        // A list that will not be made still counts down, so that nobody waits for it.
        void OnCancel() override;

    private:
        Common::String m_kPlatform;
        Common::String m_kFilter;
        TArray<Common::String>* m_pOut = nullptr;
        std::atomic<int>* m_pCounter = nullptr;
    };
}

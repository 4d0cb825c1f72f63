#include "zemrenderer/loading/LoadFileWorker.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/IOSTreamBase.h"

namespace ZemRenderer
{
    LoadFileWorker::LoadFileWorker(IOSTreamBase* stream, const char* name) : m_pStream(stream)
    {
        if (name) std::strncpy(m_szName, name, kNameSize - 1);
    }

    bool LoadFileWorker::DoWork(RenderThread*)
    {
        if (!m_pStream || !m_pStream->OpenToRead(m_szName))
        {
            Common::Log("LoadFileWorker::DoWork: failed to load: %s\n", m_szName);
            if (spQuery) spQuery->SetState(Query::eCancelled);
        }
        return true;
    }
}

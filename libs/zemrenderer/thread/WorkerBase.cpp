#include "zemrenderer/thread/WorkerBase.h"

namespace ZemRenderer
{
    WorkerFields::WorkerFields(WorkerContext context) : m_eContext(context)
    {
        // The tag that was active where the worker was made is the one it runs under.
        const Common::Mem::TagList* tags = Common::Mem::CMemoryManager::GetInstance()->GetThreadTagList();
        if (tags && tags->m_uCount > 0) m_uMemoryTag = tags->m_aTags[tags->m_uCount - 1];
    }
}

#include "zemrenderer/scene/Bucket.h"

#include <cstring>

namespace ZemRenderer
{
    namespace
    {
        void CopyText(char* dest, const char* text)
        {
            if (!text) text = "";
            std::strncpy(dest, text, Bucket::kNameSize - 1);
            dest[Bucket::kNameSize - 1] = '\0';
        }
    }

    Bucket::Bucket(RenderThread* renderThread, const char* name) : m_pRenderThread(renderThread)
    {
        CopyText(m_szName, name);
        CopyText(m_szPath, ".\\");
    }

    void Bucket::SetPath(const char* path) { CopyText(m_szPath, path); }
}

#include "zemrenderer/texture/TextureLibrary.h"

#include "common/utils/Hash.h"
#include "zemrenderer/device/Texture.h"

namespace ZemRenderer
{
    namespace
    {
        struct Hold
        {
            explicit Hold(Common::CMutex& m) : rMutex(m) { rMutex.Lock(); }
            ~Hold() { rMutex.Unlock(); }
            Common::CMutex& rMutex;
        };
    }

    TextureLibrary::~TextureLibrary()
    {
        for (auto& pair : m_dTextures) pair.value->Release();
        m_dTextures.Clear();
    }

    Texture* TextureLibrary::Find(const char* name)
    {
        if (!name) return nullptr;
        Hold hold(m_kMutex);
        Texture* texture = m_dTextures.Find(GenerateUIntIdFromString(name));
        if (texture) texture->AddRef();
        return texture;
    }

    bool TextureLibrary::Add(const char* name, Texture* texture)
    {
        if (!name || !texture) return false;
        const unsigned int id = GenerateUIntIdFromString(name);
        Hold hold(m_kMutex);
        if (m_dTextures.Contains(id)) return false;
        texture->AddRef();
        m_dTextures.Insert(id, texture);
        return true;
    }

    bool TextureLibrary::Remove(const char* name)
    {
        if (!name) return false;
        Texture* texture = nullptr;
        {
            Hold hold(m_kMutex);
            const unsigned int id = GenerateUIntIdFromString(name);
            texture = m_dTextures.Find(id);
            if (!texture) return false;
            m_dTextures.Remove(id);
        }
        texture->Release();
        return true;
    }

    unsigned int TextureLibrary::GetCount() const
    {
        Hold hold(m_kMutex);
        return m_dTextures.GetSize();
    }
}

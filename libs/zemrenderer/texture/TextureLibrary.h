#pragma once
// The textures of a bucket, shared by name: every request for a name gets the one
// texture, which the library holds a reference on until the bucket goes.
#include <cstdint>

#include "common/system/mutex/Mutex.h"
#include "common/utils/TMap.h"

namespace ZemRenderer
{
    class Texture;

    class TextureLibrary
    {
    public:
        TextureLibrary() = default;
        // Drops the library's references.
        ~TextureLibrary();
        TextureLibrary(const TextureLibrary&) = delete;
        TextureLibrary& operator=(const TextureLibrary&) = delete;

        // The texture of `name` with a reference for the caller, or null.
        Texture* Find(const char* name);
        // Takes one reference of `texture` under `name`; false if the name is taken.
        bool Add(const char* name, Texture* texture);
        // Forgets the name and drops the library's reference.
        bool Remove(const char* name);
        unsigned int GetCount() const;

    private:
        mutable Common::CMutex m_kMutex;
        TMap<unsigned int, Texture*> m_dTextures;
    };
}

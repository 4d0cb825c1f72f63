#pragma once
// Textures on the load road. The file is not copied into memory on the loading thread:
// the process thread reads it from disk straight into the update buffers, so a texture
// costs one copy between the file and the device.
#include "common/utils/Hash.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/io/IOSTreamDisk.h"
#include "zemrenderer/loading/LoadTraits.h"
#include "zemrenderer/loading/LoadingHelper.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/texture/TextureUpload.h"

namespace ZemRenderer
{
    template <>
    struct LoadTraits<Texture>
    {
        static unsigned int TypeId() { return ::GenerateUIntIdFromString("ZemRenderer::Texture"); }
        static bool Load(Texture& texture, IOSTreamBase& stream, Bucket* owner)
        {
            return LoadTextureFile(texture, stream, owner ? owner->GetRenderThread() : nullptr);
        }
        // A file that was not found shows the fallback; a closing owner wants nothing.
        static void Abort(Texture* texture, Bucket* owner)
        {
            if (!texture || !owner || owner->IsClosing()) return;
            UseFallbackTexture(*texture, owner->GetRenderThread(), "file not found");
        }
    };

    template <>
    struct LoadingHelper<0, Texture>
    {
        static bool Load(const char* path, LoadTicket<Texture>& ticket, bool, RenderThread* context)
        {
            IOSTreamDisk* stream = MEM_NEW(IOSTreamDisk);
            if (!stream || !stream->OpenToRead(path))
            {
                Common::Log("File not found 2: \"%s\"\n", path);
                MEM_DELETE(stream);
                return false;
            }
            ProcessThread* processor = context ? context->GetProcessor() : nullptr;
            if (!processor || !processor->IsAcceptingWork())
            {
                MEM_DELETE(stream);
                return false;
            }
            QueryPtr query = ticket.spQuery;
            ProcessT<Texture>* worker = ProcessT<Texture>::New(std::move(ticket), stream);
            if (!worker)
            {
                MEM_DELETE(stream);
                return false;
            }
            if (query) processor->SetQuery(query);
            processor->AddWorkBatched(worker);
            return true;
        }
    };
}

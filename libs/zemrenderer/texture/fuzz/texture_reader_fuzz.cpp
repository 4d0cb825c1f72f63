// Texture files from arbitrary bytes: the header checks, a whole load, a mip range with
// boxes and a page update must stay inside the data and never crash; a bad file is refused.
#include <cstdint>
#include <cstring>

#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/texture/TextureReader.h"

using namespace ZemRenderer;

namespace
{
    class CountingTarget : public ITextureUpdateTarget
    {
    public:
        bool Commit(TextureInfo&, TextureUpdateBuffer* buffer, bool) override
        {
            // Touch every byte the reader claims to have written.
            for (size_t i = 0; i < buffer->GetUsed(); ++i) m_uSum += buffer->GetData()[i];
            MEM_DELETE(buffer);
            return true;
        }
        size_t m_uSum = 0;
    };
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CountingTarget target;
    {
        IOSTreamExistingMemory stream(data, size);
        DdsDescription desc;
        TextureReader::ReadDescription(&stream, desc);
    }
    TextureInfo texture;
    {
        IOSTreamExistingMemory stream(data, size);
        TextureReader::LoadTexture(&texture, &stream, {}, target);
    }
    // The last bytes choose a mip range and boxes for a second load into the same texture.
    if (size >= 8)
    {
        const uint8_t* k = data + size - 8;
        TextureBox source{k[0] * 4u, k[1] * 4u, k[2] & 7u, k[3] * 8u + 1, k[4] * 8u + 1, (k[2] >> 3) + 1u};
        TextureBox dest{k[5] * 2u, k[6] * 2u, 0, k[3] * 4u + 1, k[4] * 4u + 1, 1};
        TextureLoadParams params;
        params.uFirstMip = k[7] & 15;
        params.uLastMip = k[7] >> 4;
        params.pSourceBox = &source;
        params.pTargetBox = (k[7] & 1) ? &dest : nullptr;
        params.bCreate = (k[6] & 1) != 0;
        IOSTreamExistingMemory stream(data, size);
        TextureReader::LoadTexture(&texture, &stream, params, target);

        IOSTreamExistingMemory pages(data, size);
        TextureReader::UpdatePage(&texture, &pages, source, k[7] & 3, k[0], k[1] * 16u, target);
    }
    return 0;
}

#pragma once
// The 11 bytes in front of every engine file: "ZEF", version 1.2.3, the swap flag and
// the object type (the class's id). The header itself is never byte-swapped.
#include "zemrenderer/serialization/Serializable.h"

namespace ZemRenderer
{
    class Serializer;

    class ZefHeader
    {
    public:
        static constexpr unsigned char kVersionMajor = 1;
        static constexpr unsigned char kVersionMinor = 2;
        static constexpr unsigned char kVersionPatch = 3;
        static constexpr size_t kSize = 11;

        struct stIdent
        {
            char acMagic[3];
            unsigned char uiMajor;
            unsigned char uiMinor;
            unsigned char uiPatch;
            unsigned char uiSwap;
        };
        static_assert(sizeof(stIdent) == 7, "the header's first block is 7 bytes");

        // `type` is what a reader expects and what a writer writes.
        explicit ZefHeader(unsigned int type, bool swap = false);

        // Reads or writes the header; on reading checks magic, then type, then version.
        void Serialize(Serializer& serializer);

        bool IsValid() const { return m_bValid; }
        bool GetSwap() const { return m_kIdent.uiSwap != 0; }
        unsigned int GetType() const { return m_uiType; }
        const stIdent& GetIdent() const { return m_kIdent; }

    private:
        stIdent m_kIdent;
        unsigned int m_uiType;
        bool m_bValid = false;
        unsigned int m_uiExpectedType;
    };
}

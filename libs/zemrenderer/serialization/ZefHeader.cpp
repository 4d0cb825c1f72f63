#include "zemrenderer/serialization/ZefHeader.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/serialization/Serializer.h"

namespace ZemRenderer
{
    ZefHeader::ZefHeader(unsigned int type, bool swap) : m_uiType(type), m_uiExpectedType(type)
    {
        std::memcpy(m_kIdent.acMagic, "ZEF", 3);
        m_kIdent.uiMajor = kVersionMajor;
        m_kIdent.uiMinor = kVersionMinor;
        m_kIdent.uiPatch = kVersionPatch;
        m_kIdent.uiSwap = swap ? 1 : 0;
    }

    void ZefHeader::Serialize(Serializer& serializer)
    {
        SerializationManager& manager = serializer.GetManager();
        const bool reading = serializer.IsReading();
        const bool fromData = reading && !manager.GetStream()->SkipsData();
        if (fromData)
        {
            // A file too short for the header must not pass as the defaults.
            std::memset(&m_kIdent, 0, sizeof(m_kIdent));
            m_uiType = 0;
        }
        serializer.Serialize(m_kIdent);
        serializer.Serialize(m_uiType);
        if (!reading) return;
        m_bValid = false;
        if (std::memcmp(m_kIdent.acMagic, "ZEF", 3) != 0)
        {
            Common::Log("Not a valid Zemora Engine File!\n");
            return;
        }
        if (m_uiType != m_uiExpectedType)
        {
            Common::Log("Wrong Object Type in Zemora Engine File!\n");
            return;
        }
        if (m_kIdent.uiMajor != kVersionMajor || m_kIdent.uiMinor != kVersionMinor || m_kIdent.uiPatch != kVersionPatch)
        {
            Common::Log("Wrong Zemora Engine File version!\n");
            return;
        }
        m_bValid = true;
    }
}

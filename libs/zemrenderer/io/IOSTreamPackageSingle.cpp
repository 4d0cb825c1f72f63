#include "zemrenderer/io/IOSTreamPackageSingle.h"

#include "zemrenderer/io/IOStreamPackage.h"

namespace ZemRenderer
{
    IOSTreamPackageSingle::IOSTreamPackageSingle(IOStreamPackage* package, const stFileDesc* desc)
        : m_pPackage(desc ? package : nullptr), m_pDesc(desc), m_uiOffset(desc ? desc->uiOffset : 0),
          m_uiSize(desc ? desc->uiSize : 0)
    {
    }

    IOSTreamPackageSingle::~IOSTreamPackageSingle() { Close(); }

    bool IOSTreamPackageSingle::Close()
    {
        if (!m_pPackage) return false;
        IOStreamPackage* package = m_pPackage;
        Detach();
        package->CloseFile(this);
        return true;
    }

    size_t IOSTreamPackageSingle::Read(void* out, size_t bytes)
    {
        if (!m_pPackage || !out) return 0;
        m_uiPosition = static_cast<size_t>(static_cast<int64_t>(m_uiPosition) + m_iPendingSkip);
        m_iPendingSkip = 0;
        if (bytes > m_uiSize - m_uiPosition) bytes = m_uiSize - m_uiPosition;
        if (bytes == 0) return 0;
        const size_t n = m_pPackage->ReadAt(m_uiOffset + m_uiPosition, out, bytes);
        m_uiPosition += n;
        return n;
    }

    bool IOSTreamPackageSingle::Skip(int64_t bytes)
    {
        int64_t target = static_cast<int64_t>(m_uiPosition) + m_iPendingSkip + bytes;
        if (target < 0) target = 0;
        if (static_cast<uint64_t>(target) > m_uiSize) target = static_cast<int64_t>(m_uiSize);
        m_iPendingSkip = target - static_cast<int64_t>(m_uiPosition);
        return true;
    }
}

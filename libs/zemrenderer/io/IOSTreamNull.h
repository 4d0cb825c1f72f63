#pragma once
// A stream without data: reads report the size asked and move nothing, writes only
// count. It measures output, and with skipsData set it lets a serializer walk live
// objects without moving any value.
#include "zemrenderer/io/IOSTreamBase.h"

namespace ZemRenderer
{
    class IOSTreamNull : public IOSTreamBase
    {
    public:
        explicit IOSTreamNull(bool skipsData = false) : m_bSkipsData(skipsData) {}

        bool OpenToRead(const char*) override
        {
            m_uiPosition = m_uiSize = 0;
            m_bReadable = true;
            return true;
        }
        bool OpenToWrite(const char*) override
        {
            m_uiPosition = m_uiSize = 0;
            m_bReadable = false;
            return true;
        }
        bool Close() override
        {
            m_uiPosition = m_uiSize = 0;
            m_bReadable = false;
            return true;
        }
        bool Rewind() override
        {
            m_uiPosition = 0;
            return true;
        }
        bool IsReadable() override { return m_bReadable; }
        size_t Read(void*, size_t bytes) override
        {
            if (!m_bReadable) return 0;
            Advance(bytes);
            return bytes;
        }
        size_t Write(const void*, size_t bytes) override
        {
            if (m_bReadable) return 0;
            Advance(bytes);
            return bytes;
        }
        bool Skip(int64_t bytes) override
        {
            const int64_t target = static_cast<int64_t>(m_uiPosition) + bytes;
            if (target < 0)
            {
                m_uiPosition = 0;
                return false;
            }
            m_uiPosition = static_cast<size_t>(target);
            if (m_uiPosition > m_uiSize) m_uiSize = m_uiPosition;
            return true;
        }
        bool SkipsData() override { return m_bSkipsData; }
        // The furthest position reached: the size of what was counted.
        size_t GetSize() override { return m_uiSize; }
        size_t GetPosition() override { return m_uiPosition; }

    private:
        void Advance(size_t bytes)
        {
            m_uiPosition += bytes;
            if (m_uiPosition > m_uiSize) m_uiSize = m_uiPosition;
        }

        size_t m_uiPosition = 0;
        size_t m_uiSize = 0;
        bool m_bSkipsData;
        bool m_bReadable = false;
    };
}

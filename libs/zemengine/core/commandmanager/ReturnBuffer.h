#pragma once
// Where a result crosses back to the thread that answers the client: a growing,
// zero-filled text block that a JSON writer fills byte by byte.
#include <cstddef>
#include <cstdint>

namespace ZemEngine
{
    // The byte sink of the result writer (JSonParamReader::RetWriter).
    class CJSonRetWriter
    {
    public:
        typedef char Ch;

        virtual ~CJSonRetWriter() = default;
        virtual void Put(char c) = 0;
        virtual void Flush() = 0;
    };

    class CReturnBuffer : public CJSonRetWriter
    {
    public:
        static constexpr uint64_t kInitialCapacity = 256;

        CReturnBuffer();
        CReturnBuffer(const CReturnBuffer& other);
        ~CReturnBuffer() override;

        // Copies the other buffer's text.
        CReturnBuffer& operator=(const CReturnBuffer& other);

        void Put(char c) override;
        void Flush() override {}

        // Empties the buffer back to a zeroed block of 256 bytes.
        void Clear();

        // Always zero-terminated.
        const char* GetText() const { return m_pBuffer ? m_pBuffer : ""; }
        uint64_t GetLength() const { return m_uPosition; }
        uint64_t GetCapacity() const { return m_uCapacity; }

    private:
        bool Allocate(uint64_t capacity);

        uint64_t m_uPosition = 0;
        uint64_t m_uCapacity = 0;
        char* m_pBuffer = nullptr;
    };
}

#pragma once
// The byte stream every piece of engine data is read from and written to. The
// direction is a property of the stream: serializers ask IsReadable().
#include <cstddef>
#include <cstdint>

namespace ZemRenderer
{
    class IOSTreamBase
    {
    public:
        virtual bool OpenToRead(const char* path) = 0;
        virtual bool OpenToWrite(const char* path) = 0;
        virtual bool Close() = 0;
        virtual bool Rewind() = 0;
        virtual bool IsReadable() = 0;
        // Bytes read; 0 at the end or when the stream is not open for reading.
        virtual size_t Read(void* out, size_t bytes) = 0;
        // Bytes written; 0 when the stream is not open for writing.
        virtual size_t Write(const void* in, size_t bytes) = 0;
        virtual bool Skip(int64_t bytes) = 0;
        // True for a stream that a serializer walks without moving any values.
        virtual bool SkipsData() { return false; }
        virtual size_t GetSize() = 0;
        // Reads a block that several callers may ask for again; FreeCache forgets it.
        virtual bool ReadAndCache(void* out, size_t bytes) { return Read(out, bytes) > 0; }
        virtual void FreeCache() {}
        virtual size_t GetPosition() = 0;
        virtual ~IOSTreamBase() = default;
    };
}

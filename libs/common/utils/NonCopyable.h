#pragma once

namespace Common
{
    // Base of objects that must not be copied; moving stays allowed where a class says so.
    class CNonCopyable
    {
    protected:
        CNonCopyable() = default;
        ~CNonCopyable() = default;
        CNonCopyable(CNonCopyable&&) = default;
        CNonCopyable& operator=(CNonCopyable&&) = default;

    public:
        CNonCopyable(const CNonCopyable&) = delete;
        CNonCopyable& operator=(const CNonCopyable&) = delete;
    };
}

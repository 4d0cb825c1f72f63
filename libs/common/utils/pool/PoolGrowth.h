#pragma once
// How many blocks a pool adds at a time.

namespace Common::Pool
{
    class CPoolGrowth
    {
    public:
        explicit CPoolGrowth(unsigned int initialCount = 0) : m_uInitialCount(initialCount) {}
        virtual ~CPoolGrowth() = default;
        virtual unsigned int GetInitialCount() const { return m_uInitialCount; }
        virtual unsigned int GetGrowth(unsigned int blocksInUse) const = 0;

    protected:
        unsigned int m_uInitialCount;
    };

    class CPoolGrowthConstant : public CPoolGrowth
    {
    public:
        CPoolGrowthConstant(unsigned int initialCount, unsigned int growth)
            : CPoolGrowth(initialCount), m_uGrowth(growth)
        {
        }
        unsigned int GetGrowth(unsigned int) const override { return m_uGrowth; }

    protected:
        unsigned int m_uGrowth;
    };

    // Nothing up front, N blocks per growth.
    template <unsigned int N>
    class CPoolGrowthConstantN : public CPoolGrowthConstant
    {
    public:
        CPoolGrowthConstantN() : CPoolGrowthConstant(0, N) {}
    };
}

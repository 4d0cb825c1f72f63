#pragma once
// The unit of recomputation. A change marks an updater dirty; the object's pass runs its
// updaters in a fixed order and each recomputes what it owns. The owner keeps a count of
// its dirty updaters, so an object with nothing to do costs one test in the pass.
namespace ZemGui
{
    class BaseObj;

    class ObjUpdater
    {
    public:
        explicit ObjUpdater(BaseObj* owner) : m_pOwner(owner) {}
        virtual ~ObjUpdater();
        ObjUpdater(const ObjUpdater&) = delete;
        ObjUpdater& operator=(const ObjUpdater&) = delete;

        virtual void Update() = 0;
        virtual void MarkDirty() { SetDirty(); }

        bool IsDirty() const { return m_bDirty; }
        BaseObj* GetOwner() const { return m_pOwner; }
        // The object's own updaters also show their flag in a bit of the pass header, so
        // that the pass finds the dirty ones without reading each updater.
        void SetHeaderBit(unsigned int bit) { m_uHeaderBit = bit; }
        unsigned int GetHeaderBit() const { return m_uHeaderBit; }

    protected:
        // Sets the flag; true when it was clear (the caller then walks its dependants).
        bool SetDirty();
        // Clears the flag; true when it was set (the caller then recomputes).
        bool TakeDirty();

        BaseObj* m_pOwner;
        unsigned int m_uHeaderBit = 0;
        bool m_bDirty = false;
    };

    // Calls a member of the owner's class when dirty: the matrix of every object, and the
    // layouts of widgets.
    template <class T>
    class FctUpdater : public ObjUpdater
    {
    public:
        typedef void (T::*Method)();
        FctUpdater(T* owner, Method method) : ObjUpdater(owner), m_pTarget(owner), m_pfnMethod(method) {}
        void Update() override
        {
            if (TakeDirty()) (m_pTarget->*m_pfnMethod)();
        }

    private:
        T* m_pTarget;
        Method m_pfnMethod;
    };
}

#pragma once
// Named events of an object and the callbacks connected to them. An object keeps its
// own copies of the callbacks; a slot emptied while its event fires is closed up by
// that firing, so callbacks may connect and disconnect freely from inside a call.
#include <cstring>

#include "zemgui/EventArgs.h"

namespace ZemGui
{
    class EventCallbackFunctorBase
    {
    public:
        virtual ~EventCallbackFunctorBase() = default;
        virtual bool operator()(EventArgs& args) = 0;
        // Same target: connecting it twice is once, disconnecting finds it.
        virtual bool IsSame(const EventCallbackFunctorBase& other) const = 0;
        virtual EventCallbackFunctorBase* Clone() const = 0;
    };

    // An object and one of its members, `bool (T::*)(EventArgs&)`.
    template <class T>
    class EventCallbackFunctorMember : public EventCallbackFunctorBase
    {
    public:
        typedef bool (T::*Method)(EventArgs&);
        EventCallbackFunctorMember(T* object, Method method) : m_pObject(object), m_pfnMethod(method) {}

        bool operator()(EventArgs& args) override { return (m_pObject->*m_pfnMethod)(args); }
        bool IsSame(const EventCallbackFunctorBase& other) const override
        {
            const auto* o = dynamic_cast<const EventCallbackFunctorMember*>(&other);
            return o && o->m_pObject == m_pObject && o->m_pfnMethod == m_pfnMethod;
        }
        EventCallbackFunctorBase* Clone() const override;

    private:
        T* m_pObject;
        Method m_pfnMethod;
    };

    // A plain function with a context pointer, for code that has no object to call.
    class EventCallbackFunctorFree : public EventCallbackFunctorBase
    {
    public:
        typedef bool (*Function)(void* context, EventArgs& args);
        EventCallbackFunctorFree(Function fn, void* context) : m_pfnFunction(fn), m_pContext(context) {}

        bool operator()(EventArgs& args) override { return m_pfnFunction ? m_pfnFunction(m_pContext, args) : false; }
        bool IsSame(const EventCallbackFunctorBase& other) const override
        {
            const auto* o = dynamic_cast<const EventCallbackFunctorFree*>(&other);
            return o && o->m_pfnFunction == m_pfnFunction && o->m_pContext == m_pContext;
        }
        EventCallbackFunctorBase* Clone() const override;

    private:
        Function m_pfnFunction;
        void* m_pContext;
    };

    // One named event: up to five callbacks, in connection order.
    struct EventEntry
    {
        char szName[kNameCapacity] = {};
        EventCallbackFunctorBase* apCallbacks[kMaxCallbacks] = {};
        unsigned int uCount = 0;  // slots in use, nulls included while a firing closes the gaps
    };
}

#include "common/system/memorymanager/MemoryManager.h"

namespace ZemGui
{
    template <class T>
    EventCallbackFunctorBase* EventCallbackFunctorMember<T>::Clone() const
    {
        return MEM_NEW(EventCallbackFunctorMember<T>, *this);
    }

    inline EventCallbackFunctorBase* EventCallbackFunctorFree::Clone() const
    {
        return MEM_NEW(EventCallbackFunctorFree, *this);
    }
}

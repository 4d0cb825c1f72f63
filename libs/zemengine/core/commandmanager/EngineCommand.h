#pragma once
// The typed invokers behind command names. EngineCommandT0 to T6 call a member function
// of a remote class with 0 to 6 arguments read from the command; the target is found by
// instance id for an instance class, by its class alone for a singleton class.
#include <tuple>
#include <type_traits>

#include "common/system/debug/Log.h"
#include "zemengine/core/commandmanager/InstanceManager.h"
#include "zemengine/core/commandmanager/JSonParamReader.h"
#include "zemengine/core/commandmanager/TextParamReader.h"

namespace ZemEngine
{
    class EngineCommand
    {
    public:
        // Each returns 1 on success.
        virtual int Execute(unsigned int instanceId, JSonParamReader& reader) = 0;
        virtual int ExecuteText(unsigned int instanceId, CTextParamReader& reader) = 0;

    protected:
        // Invokers hold no resources: the table frees them as plain memory.
        ~EngineCommand() = default;
    };

    // The object a command runs on, or null after the resolver's report.
    template <class Stub>
    Stub* ResolveCommandTarget(unsigned int instanceId)
    {
        typedef typename Stub::StubType Base;
        Base* object = nullptr;
        if constexpr (Stub::kIsSingleton)
        {
            object = CSingletonManager<Base>::GetInstance();
            if (!ZEM_ASSERT(object != nullptr, "Couldn't retrieve singleton pointer when executing command"))
                return nullptr;
        }
        else
        {
            object = CInstanceManager<Base>::GetInstance(instanceId);
            if (!object) return nullptr;
        }
        if constexpr (std::is_same_v<Stub, Base>)
            return object;
        else
            return dynamic_cast<Stub*>(object);
    }

    template <class Stub, class Ret, class... Args>
    class EngineCommandN : public EngineCommand
    {
    public:
        typedef Ret (Stub::*Method)(Args...);

        int Execute(unsigned int instanceId, JSonParamReader& reader) override { return Run(instanceId, reader); }
        int ExecuteText(unsigned int instanceId, CTextParamReader& reader) override { return Run(instanceId, reader); }

        Method m_pfnMethod = nullptr;

    private:
        template <class Reader>
        int Run(unsigned int instanceId, Reader& reader)
        {
            Stub* object = ResolveCommandTarget<Stub>(instanceId);
            if (!object || !m_pfnMethod) return 0;
            // The values live here until the method returns: texts point into the
            // command's document.
            std::tuple<std::remove_cvref_t<Args>...> args{};
            const bool read = std::apply([&](auto&... a) { return (true && ... && reader.Read(a)); }, args);
            if (!read) return 0;
            if constexpr (std::is_void_v<Ret>)
            {
                std::apply([&](auto&... a) { (object->*m_pfnMethod)(a...); }, args);
            }
            else
            {
                std::remove_cvref_t<Ret> result = std::apply([&](auto&... a) { return (object->*m_pfnMethod)(a...); }, args);
                if constexpr (requires { reader.Write("Res", result); })
                {
                    if (reader.WantsReturn())
                    {
                        reader.Write("Res", result);
                        reader.Finish();
                    }
                }
            }
            return 1;
        }
    };

    template <class Stub, class Ret>
    class EngineCommandT0 : public EngineCommandN<Stub, Ret>
    {
    };
    template <class Stub, class Ret, class A0>
    class EngineCommandT1 : public EngineCommandN<Stub, Ret, A0>
    {
    };
    template <class Stub, class Ret, class A0, class A1>
    class EngineCommandT2 : public EngineCommandN<Stub, Ret, A0, A1>
    {
    };
    template <class Stub, class Ret, class A0, class A1, class A2>
    class EngineCommandT3 : public EngineCommandN<Stub, Ret, A0, A1, A2>
    {
    };
    template <class Stub, class Ret, class A0, class A1, class A2, class A3>
    class EngineCommandT4 : public EngineCommandN<Stub, Ret, A0, A1, A2, A3>
    {
    };
    template <class Stub, class Ret, class A0, class A1, class A2, class A3, class A4>
    class EngineCommandT5 : public EngineCommandN<Stub, Ret, A0, A1, A2, A3, A4>
    {
    };
    template <class Stub, class Ret, class A0, class A1, class A2, class A3, class A4, class A5>
    class EngineCommandT6 : public EngineCommandN<Stub, Ret, A0, A1, A2, A3, A4, A5>
    {
    };

    // "GetRPCSingleton": hands the client its reference on the singleton (instance id 0).
    template <class Stub>
    class EngineCommandSingleton : public EngineCommand
    {
    public:
        int Execute(unsigned int, JSonParamReader& reader) override
        {
            static_assert(Stub::kIsSingleton, "GetRPCSingleton is for singleton classes");
            Stub* singleton = ResolveCommandTarget<Stub>(0);
            if (!singleton) return 0;
            if (reader.WantsReturn())
            {
                reader.Write("Res", singleton);
                reader.Finish();
            }
            return 1;
        }
        int ExecuteText(unsigned int, CTextParamReader&) override
        {
            return ResolveCommandTarget<Stub>(0) ? 1 : 0;
        }
    };
}

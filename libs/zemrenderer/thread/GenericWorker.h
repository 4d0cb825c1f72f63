#pragma once
// A worker that calls a free function with up to five stored arguments, for jobs too
// small to deserve a class. The arguments are copied into the worker.
#include <cstddef>
#include <tuple>
#include <utility>

#include "zemrenderer/thread/PooledWorker.h"

namespace ZemRenderer
{
    template <class... Args>
    class GenericWorker : public PooledWorker<GenericWorker<Args...>, RenderThread>
    {
        static_assert(sizeof...(Args) >= 1 && sizeof...(Args) <= 5, "a generic worker stores one to five arguments");

    public:
        typedef void (*Function)(Args...);

        GenericWorker() = default;
        GenericWorker(Function function, Args... args) : m_pfnFunction(function), m_kArgs(std::move(args)...) {}

        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(RenderThread*) override
        {
            if (m_pfnFunction) std::apply(m_pfnFunction, m_kArgs);
            return true;
        }

    private:
        Function m_pfnFunction = nullptr;
        std::tuple<Args...> m_kArgs;
    };

    template <class A1>
    using GenericWorker1 = GenericWorker<A1>;
    template <class A1, class A2>
    using GenericWorker2 = GenericWorker<A1, A2>;
    template <class A1, class A2, class A3>
    using GenericWorker3 = GenericWorker<A1, A2, A3>;
    template <class A1, class A2, class A3, class A4>
    using GenericWorker4 = GenericWorker<A1, A2, A3, A4>;
    template <class A1, class A2, class A3, class A4, class A5>
    using GenericWorker5 = GenericWorker<A1, A2, A3, A4, A5>;

    // MakeGenericWorker(&Function, a, b) takes a GenericWorker2 from its pool.
    template <class... Args, class... Values>
    GenericWorker<Args...>* MakeGenericWorker(void (*function)(Args...), Values&&... values)
    {
        return GenericWorker<Args...>::New(function, Args(std::forward<Values>(values))...);
    }
}

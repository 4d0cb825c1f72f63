#pragma once
// Remote classes for tests and fuzzers: a singleton "Root" and an instance class
// "TestObject", whose commands cover every invoker arity and every wire value type.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <string>
#include <mutex>
#include <thread>

#include "common/system/memorymanager/MemoryManager.h"
#include "zemengine/core/commandmanager/CommandManager.h"

namespace RPC::Test
{
    class IRPCStub_TestObject : public ZemEngine::CInstanceManager<IRPCStub_TestObject>
    {
    public:
        virtual const char* GetName() = 0;
        virtual int GetValue() = 0;
        virtual void SetValue(int value) = 0;
        virtual IRPCStub_TestObject* GetSelf() = 0;
        virtual bool IsSame(IRPCStub_TestObject* other) = 0;
    };

    class CTestRoot;

    class CTestObject : public IRPCStub_TestObject
    {
    public:
        CTestObject(const char* name, CTestRoot* owner) : m_pOwner(owner) { m_szName = name; }
        ~CTestObject() override;

        const char* GetName() override { return m_szName.c_str(); }
        int GetValue() override { return m_iValue; }
        void SetValue(int value) override { m_iValue = value; }
        IRPCStub_TestObject* GetSelf() override { return this; }
        bool IsSame(IRPCStub_TestObject* other) override { return other == this; }

        static inline std::atomic<int> s_iDestroyed{0};

    private:
        CTestRoot* m_pOwner;
        Common::String m_szName;
        int m_iValue = 0;
    };

    typedef EditInfoT<IRPCStub_TestObject> TestEditInfo;

    inline unsigned long long ThreadTag() { return std::hash<std::thread::id>()(std::this_thread::get_id()); }

    class IRPCStub_TestRoot : public ZemEngine::CSingletonManager<IRPCStub_TestRoot>
    {
    public:
        // T0
        virtual int GetCounter() = 0;
        virtual void Ping() = 0;
        virtual float GetNaN() = 0;
        virtual double GetInfinity() = 0;
        virtual unsigned long long GetThreadTag() = 0;
        virtual ZemRenderer::TArray<IRPCStub_TestObject*> GetObjects() = 0;
        // T1
        virtual IRPCStub_TestObject* CreateObject(const char* name) = 0;
        virtual void SetCounter(int value) = 0;
        virtual Common::String Echo(Common::String text) = 0;
        virtual int SleepMs(int ms) = 0;
        // T2
        virtual long long Add(int a, long long b) = 0;
        // T3
        virtual RPCTransform MakeTransform(Math::Float3 translation, const Math::Quaternion& rotation,
                                           Math::Float3 scale) = 0;
        // T4
        virtual ZemRenderer::TArray<RUserID> MakeIDs(RUserID a, RUserID b, bool reverse, unsigned int repeat) = 0;
        // T5
        virtual BoundingSphere MakeSphere(float x, float y, float z, float radius, stBoneEditingParams bone) = 0;
        // T6
        virtual Common::String Describe(bool flag, unsigned long long big, double ratio, const char* text,
                                        const TestEditInfo& info, const ZemRenderer::TArray<float>& values) = 0;
    };

    class CTestRoot : public IRPCStub_TestRoot
    {
    public:
        int GetCounter() override { return m_iCounter; }
        void Ping() override { ++m_iPings; }
        float GetNaN() override { return __builtin_nanf(""); }
        double GetInfinity() override { return __builtin_inf(); }
        unsigned long long GetThreadTag() override { return ThreadTag(); }
        ZemRenderer::TArray<IRPCStub_TestObject*> GetObjects() override
        {
            std::lock_guard<std::mutex> lock(m_kObjectsLock);
            return m_aObjects;
        }
        IRPCStub_TestObject* CreateObject(const char* name) override
        {
            CTestObject* object = MEM_NEW(CTestObject, name, this);
            std::lock_guard<std::mutex> lock(m_kObjectsLock);
            m_aObjects.Add(object);
            return object;
        }
        void SetCounter(int value) override { m_iCounter = value; }
        Common::String Echo(Common::String text) override { return text; }
        int SleepMs(int ms) override
        {
            const int most = s_iMaxSleepMs.load();
            ms = ms < 0 ? 0 : (ms > most ? most : ms);
            std::this_thread::sleep_for(std::chrono::milliseconds(ms));
            return ms;
        }
        long long Add(int a, long long b) override { return a + b; }
        RPCTransform MakeTransform(Math::Float3 translation, const Math::Quaternion& rotation, Math::Float3 scale) override
        {
            return RPCTransform{translation, rotation, scale};
        }
        ZemRenderer::TArray<RUserID> MakeIDs(RUserID a, RUserID b, bool reverse, unsigned int repeat) override
        {
            ZemRenderer::TArray<RUserID> out;
            for (unsigned int i = 0; i < repeat; ++i)
            {
                out.Add(reverse ? b : a);
                out.Add(reverse ? a : b);
            }
            return out;
        }
        BoundingSphere MakeSphere(float x, float y, float z, float radius, stBoneEditingParams bone) override
        {
            m_kLastBone = bone;
            return BoundingSphere{{x, y, z}, radius};
        }
        Common::String Describe(bool flag, unsigned long long big, double ratio, const char* text,
                                const TestEditInfo& info, const ZemRenderer::TArray<float>& values) override
        {
            char buffer[512];
            std::snprintf(buffer, sizeof(buffer), "%d %llu %g [%s] %g %u %d %s %u", flag ? 1 : 0, big, ratio, text,
                          static_cast<double>(info.m_kPosition.y), info.m_uGizmoFlags, info.m_iEType,
                          info.m_pPrefab ? info.m_pPrefab->GetName() : "-", values.GetSize());
            return Common::String(buffer);
        }

        void Forget(IRPCStub_TestObject* object)
        {
            std::lock_guard<std::mutex> lock(m_kObjectsLock);
            m_aObjects.RemoveValue(object);
        }
        unsigned int GetObjectCount()
        {
            std::lock_guard<std::mutex> lock(m_kObjectsLock);
            return m_aObjects.GetSize();
        }
        // Frees the objects that clients have not released.
        void FreeObjects()
        {
            for (;;)
            {
                IRPCStub_TestObject* object = nullptr;
                {
                    std::lock_guard<std::mutex> lock(m_kObjectsLock);
                    if (m_aObjects.IsEmpty()) return;
                    object = m_aObjects.GetLast();
                }
                MEM_DELETE(static_cast<CTestObject*>(object));
            }
        }

        // Fuzzers set it to 0: no input may stall them.
        static inline std::atomic<int> s_iMaxSleepMs{10000};

        // Objects made for clients and still alive.
        std::mutex m_kObjectsLock;
        ZemRenderer::TArray<IRPCStub_TestObject*> m_aObjects;
        std::atomic<int> m_iPings{0};
        stBoneEditingParams m_kLastBone;

    private:
        int m_iCounter = 0;
    };

    inline CTestObject::~CTestObject()
    {
        ++s_iDestroyed;
        if (m_pOwner) m_pOwner->Forget(this);
    }

    inline void RegisterTestClasses(ZemEngine::CommandManager& m)
    {
        typedef IRPCStub_TestRoot R;
        m.RegisterSingleton<R>("Root");
        m.RegisterReleaseRef<R>("Root");
        m.Register("Root", "GetCounter", &R::GetCounter);
        m.Register("Root", "Ping", &R::Ping);
        m.Register("Root", "GetNaN", &R::GetNaN);
        m.Register("Root", "GetInfinity", &R::GetInfinity);
        m.Register("Root", "GetThreadTag", &R::GetThreadTag);
        m.Register("Root", "GetObjects", &R::GetObjects);
        m.Register("Root", "CreateObject", &R::CreateObject);
        m.Register("Root", "SetCounter", &R::SetCounter);
        m.Register("Root", "Echo", &R::Echo);
        m.Register("Root", "SleepMs", &R::SleepMs);
        m.Register("Root", "Add", &R::Add);
        m.Register("Root", "MakeTransform", &R::MakeTransform);
        m.Register("Root", "MakeIDs", &R::MakeIDs);
        m.Register("Root", "MakeSphere", &R::MakeSphere);
        // Registered through the implementing class: its target is found by downcast.
        m.Register("Root", "Describe", &CTestRoot::Describe);

        typedef IRPCStub_TestObject O;
        m.RegisterReleaseRef<O>("TestObject");
        m.Register("TestObject", "GetName", &O::GetName);
        m.Register("TestObject", "GetValue", &O::GetValue);
        m.Register("TestObject", "SetValue", &O::SetValue);
        m.Register("TestObject", "GetSelf", &O::GetSelf);
        m.Register("TestObject", "IsSame", &O::IsSame);
    }

    // "Arg0":a0,"Arg1":a1,... from JSON texts.
    inline std::string Args(std::initializer_list<std::string> values)
    {
        std::string out;
        int i = 0;
        for (const std::string& v : values)
        {
            if (i) out += ",";
            out += "\"Arg" + std::to_string(i++) + "\":" + v;
        }
        return out;
    }

    // The wire form of a command, members in the order clients send them.
    inline std::string MakeCommand(const std::string& className, const std::string& method, const std::string& args = "",
                                   bool useTcpThread = false, bool waitAck = true, unsigned int instance = 0)
    {
        std::string s = "{\"ClassName\":\"" + className + "\",\"InstanceID\":" + std::to_string(instance) +
                        ",\"MethodName\":\"" + method + "\",\"UseTcpThread\":" + (useTcpThread ? "true" : "false") +
                        ",\"WaitAck\":" + (waitAck ? "true" : "false");
        if (!args.empty()) s += "," + args;
        return s + "}";
    }
}

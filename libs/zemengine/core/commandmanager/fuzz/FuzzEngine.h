#pragma once
// One command manager with the test remote classes for a fuzzer process; the queue runs
// inline because the fuzzer's thread is its main thread.
#include <fcntl.h>
#include <unistd.h>

#include "zemengine/core/commandmanager/CommandManager.h"
#include "zemengine/core/commandmanager/CommandWakeup.h"
#include "zemengine/core/commandmanager/tests/TestRemoteClasses.h"

namespace ZemEngine::Fuzz
{
    struct CFuzzEngine
    {
        CFuzzEngine() : m_kWakeup(&m_kManager.GetQueue())
        {
            m_kManager.Init();
            RPC::Test::RegisterTestClasses(m_kManager);
            m_kManager.GetQueue().SetWakeup(&m_kWakeup);
            RPC::Test::CTestRoot::s_iMaxSleepMs = 0;
            m_pRoot = MEM_NEW(RPC::Test::CTestRoot);
        }

        // Objects that inputs made and never released are let go now and then.
        void Trim()
        {
            if (m_pRoot->GetObjectCount() > 256) m_pRoot->FreeObjects();
        }

        static CFuzzEngine& Get()
        {
            static CFuzzEngine* s_pEngine = new CFuzzEngine();
            return *s_pEngine;
        }

        CommandManager m_kManager;
        CInlineCommandWakeup m_kWakeup;
        RPC::Test::CTestRoot* m_pRoot = nullptr;
    };

    // The engine logs every refused input; under libFuzzer that output only slows it.
    inline void SilenceStandardOutput()
    {
        const int devnull = open("/dev/null", O_WRONLY);
        if (devnull >= 0)
        {
            dup2(devnull, STDOUT_FILENO);
            close(devnull);
        }
    }
}

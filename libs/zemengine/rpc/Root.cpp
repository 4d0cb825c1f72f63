#include "zemengine/rpc/Root.h"

#include <cmath>
#include <unistd.h>

#include "common/math/QuaternionMath.h"
#include "common/system/debug/Log.h"

#include "zemengine/plugins/CustomNodeDescJson.h"
#include "zemengine/plugins/IPluginManager.h"

namespace RPC
{
    using ZemEngine::CEngine;

    namespace
    {
        void QuitNow(int status) { _exit(status); }
        CRoot::PFNQuit s_pfnQuit = &QuitNow;

        ZemEngine::IPluginManager* Plugins()
        {
            CEngine* engine = CEngine::PeekInstance();
            return engine ? engine->GetPluginManager() : nullptr;
        }
    }

    void IRPCStub_CRoot::Register(ZemEngine::CommandManager& m)
    {
        typedef IRPCStub_CRoot R;
        m.RegisterSingleton<R>("Root");
        m.RegisterReleaseRef<R>("Root");
        m.Register("Root", "GetMode", &R::GetMode);
        m.Register("Root", "KeepAlive", &R::KeepAlive);
        m.Register("Root", "ForceQuit", &R::ForceQuit);
        m.Register("Root", "GetDropFileList", &R::GetDropFileList);
        m.Register("Root", "IgnoreDirtyFlag", &R::IgnoreDirtyFlag);
        m.Register("Root", "MarkEngineAsDirty", &R::MarkEngineAsDirty);
        m.Register("Root", "NeedUpdate", &R::NeedUpdate);
        m.Register("Root", "GetCustomNodeCount", &R::GetCustomNodeCount);
        m.Register("Root", "GetCustomNodeHeaderDesc", &R::GetCustomNodeHeaderDesc);
        m.Register("Root", "GetCustomNodeDesc", &R::GetCustomNodeDesc);
        m.Register("Root", "GetCustomNodeDependencies", &R::GetCustomNodeDependencies);
        m.Register("Root", "SetFocus", &R::SetFocus);
        m.Register("Root", "GetPositionFromStart", &R::GetPositionFromStart);
    }

    void CRoot::SetQuitFunction(PFNQuit quit) { s_pfnQuit = quit ? quit : &QuitNow; }

    ZemEngine::Mode::Type CRoot::GetMode()
    {
        CEngine* engine = CEngine::PeekInstance();
        return engine ? engine->GetMode() : ZemEngine::Mode::None;
    }

    bool CRoot::KeepAlive()
    {
        if (CEngine* engine = CEngine::PeekInstance()) engine->KeepAlive();
        return true;
    }

    bool CRoot::ForceQuit()
    {
        s_pfnQuit(0);
        return true;
    }

    ZemRenderer::TArray<Common::String> CRoot::GetDropFileList()
    {
        CEngine* engine = CEngine::PeekInstance();
        return engine ? engine->GetDropFiles() : ZemRenderer::TArray<Common::String>();
    }

    void CRoot::IgnoreDirtyFlag(bool ignore)
    {
        if (CEngine* engine = CEngine::PeekInstance()) engine->SetIgnoreDirty(ignore);
    }

    void CRoot::MarkEngineAsDirty()
    {
        if (CEngine* engine = CEngine::PeekInstance()) engine->RequestRepaint();
    }

    void CRoot::NeedUpdate()
    {
        if (CEngine* engine = CEngine::PeekInstance()) engine->PostCommandWakeup();
    }

    unsigned int CRoot::GetCustomNodeCount()
    {
        ZemEngine::IPluginManager* plugins = Plugins();
        return plugins ? plugins->GetNodeBuilderCount() : 0;
    }

    ZemEngine::CustomNodeHeaderDesc CRoot::GetCustomNodeHeaderDesc(unsigned int index)
    {
        ZemEngine::IPluginManager* plugins = Plugins();
        if (plugins) return plugins->GetCustomNodeHeaderDesc(index);
        // The empty record of an index that names no node.
        ZemEngine::CustomNodeHeaderDesc empty;
        empty.m_uMode = 0;
        return empty;
    }

    ZemRenderer::TArray<ZemEngine::CustomNodePropertyDesc> CRoot::GetCustomNodeDesc(unsigned int index)
    {
        ZemEngine::IPluginManager* plugins = Plugins();
        return plugins ? plugins->GetCustomNodeDesc(index) : ZemRenderer::TArray<ZemEngine::CustomNodePropertyDesc>();
    }

    ZemRenderer::TArray<Common::String> CRoot::GetCustomNodeDependencies(unsigned int index)
    {
        ZemEngine::IPluginManager* plugins = Plugins();
        return plugins ? plugins->GetCustomNodeDependencies(index) : ZemRenderer::TArray<Common::String>();
    }

    void CRoot::SetFocus(bool focus)
    {
        if (CEngine* engine = CEngine::PeekInstance()) engine->SetFocus(focus);
    }

    Math::LocalVector3 CRoot::GetPositionFromStart(Math::LocalVector3 position, Math::Quaternion rotation,
                                                   Math::LocalVector3 start)
    {
        const Math::LocalVector3 offset{start.x - position.x, start.y - position.y, start.z - position.z};
        const float length = std::sqrt(rotation.x * rotation.x + rotation.y * rotation.y + rotation.z * rotation.z +
                                       rotation.w * rotation.w);
        if (!(length > 0.0f) || !std::isfinite(length))
        {
            Common::Log("[Root] GetPositionFromStart: the rotation has no length, taken as none\n");
            return offset;
        }
        // The inverse of a unit rotation is its conjugate.
        const Math::Quaternion inverse{-rotation.x / length, -rotation.y / length, -rotation.z / length,
                                       rotation.w / length};
        return Math::Rotate(inverse, offset);
    }
}

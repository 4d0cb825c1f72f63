#pragma once
// "Root": the one remote singleton a client starts from. Its commands read and write
// engine state on the main thread; those that reach subsystems the engine does not carry
// yet are not registered, so the command table answers them as unknown.
#include "common/math/MathTypes.h"
#include "common/math/WorldVector3.h"
#include "common/utils/String.h"
#include "common/utils/TArray.h"
#include "zemengine/core/commandmanager/CommandManager.h"
#include "zemengine/engine/Engine.h"
#include "zemengine/plugins/CustomNodeDesc.h"

namespace RPC
{
    class IRPCStub_CRoot : public ZemEngine::CSingletonManager<IRPCStub_CRoot>
    {
    public:
        virtual ZemEngine::Mode::Type GetMode() = 0;
        virtual bool KeepAlive() = 0;
        virtual bool ForceQuit() = 0;
        virtual ZemRenderer::TArray<Common::String> GetDropFileList() = 0;
        virtual void IgnoreDirtyFlag(bool ignore) = 0;
        virtual void MarkEngineAsDirty() = 0;
        virtual void NeedUpdate() = 0;
        virtual unsigned int GetCustomNodeCount() = 0;
        virtual ZemEngine::CustomNodeHeaderDesc GetCustomNodeHeaderDesc(unsigned int index) = 0;
        virtual ZemRenderer::TArray<ZemEngine::CustomNodePropertyDesc> GetCustomNodeDesc(unsigned int index) = 0;
        virtual ZemRenderer::TArray<Common::String> GetCustomNodeDependencies(unsigned int index) = 0;
        virtual void SetFocus(bool focus) = 0;
        virtual Math::LocalVector3 GetPositionFromStart(Math::LocalVector3 position, Math::Quaternion rotation,
                                                        Math::LocalVector3 start) = 0;

        // Enters "Root" and its commands in the table.
        static void Register(ZemEngine::CommandManager& manager);
    };

    // Works on the engine singleton when there is one; without an engine (a bare command
    // host) it answers the neutral values: mode 0, empty lists, no custom nodes.
    class CRoot : public IRPCStub_CRoot
    {
    public:
        typedef void (*PFNQuit)(int status);

        ZemEngine::Mode::Type GetMode() override;
        bool KeepAlive() override;
        // Ends the process at once with status 0; nothing is shut down.
        bool ForceQuit() override;
        ZemRenderer::TArray<Common::String> GetDropFileList() override;
        void IgnoreDirtyFlag(bool ignore) override;
        void MarkEngineAsDirty() override;
        void NeedUpdate() override;
        unsigned int GetCustomNodeCount() override;
        ZemEngine::CustomNodeHeaderDesc GetCustomNodeHeaderDesc(unsigned int index) override;
        ZemRenderer::TArray<ZemEngine::CustomNodePropertyDesc> GetCustomNodeDesc(unsigned int index) override;
        ZemRenderer::TArray<Common::String> GetCustomNodeDependencies(unsigned int index) override;
        void SetFocus(bool focus) override;
        // `start` in the frame placed at `position` with `rotation`: the difference rotated
        // back. A rotation of length 0 is reported and taken as none; others are normalised.
        Math::LocalVector3 GetPositionFromStart(Math::LocalVector3 position, Math::Quaternion rotation,
                                                Math::LocalVector3 start) override;

        // How ForceQuit ends the process; tests put a recorder here.
        static void SetQuitFunction(PFNQuit quit);
    };
}

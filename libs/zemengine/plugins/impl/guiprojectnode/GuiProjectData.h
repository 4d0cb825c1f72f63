#pragma once
// The value that travels from a GuiProjectNode's JSON into its build step, and that its
// remote object embeds.
#include <cstddef>

#include "zemengine/core/commandmanager/PointerResolver.h"

namespace ZemGui
{
    class BaseObj;
    class ZemGuiProject;
}
namespace RPC
{
    class CGuiProjectNode;
}

namespace Plugin
{
    // An owning text on the memory manager's heap, of any length.
    class DynString
    {
    public:
        DynString() = default;
        DynString(const char* text) { Assign(text); }
        DynString(const DynString& other) { Assign(other.c_str()); }
        DynString(DynString&& other) noexcept : m_pText(other.m_pText) { other.m_pText = nullptr; }
        DynString& operator=(const DynString& other)
        {
            if (this != &other) Assign(other.c_str());
            return *this;
        }
        DynString& operator=(DynString&& other) noexcept;
        DynString& operator=(const char* text)
        {
            Assign(text);
            return *this;
        }
        ~DynString();

        // False (and the text left empty) when memory runs out.
        bool Assign(const char* text);
        const char* c_str() const { return m_pText ? m_pText : ""; }
        bool empty() const { return !m_pText || !m_pText[0]; }
        bool operator==(const char* text) const;

    private:
        char* m_pText = nullptr;
    };

    struct GuiProjectData
    {
        DynString m_kPageName;
        DynString m_kFileName;
        DynString m_kElementId;
        // Not owned.
        ZemGui::BaseObj* m_pPage = nullptr;
        ZemGui::BaseObj* m_pElement = nullptr;
        ZemGui::ZemGuiProject* m_pProject = nullptr;
        // The remote object of this node. A client may release it while this data lives
        // on, so it is only reached through CGuiProjectNodeBuilder, which checks that the
        // object with this instance id is still there (ids are never reused).
        RPC::CGuiProjectNode* m_pRpcNode = nullptr;
        unsigned int m_uRpcNodeId = ZemEngine::CPointerResolver::kInvalidID;
    };
}

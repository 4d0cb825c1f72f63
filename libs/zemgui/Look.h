#pragma once
// A named library of prototypes: its root node lies under the private tree, and every
// direct child of the root is a prototype that objects are cloned from.
#include "zemgui/OwnedText.h"

namespace ZemGui
{
    class BaseObj;

    class Look
    {
    public:
        Look(const char* name, BaseObj* root) : m_kName(name), m_pRoot(root) {}

        const char* GetName() const { return m_kName.Get(); }
        BaseObj* GetRoot() const { return m_pRoot; }
        BaseObj* GetProto(const char* name) const;
        // A clone of `source` as the prototype `name`; null when the name is taken.
        BaseObj* AddProto(const char* name, const BaseObj* source);
        void DeleteProto(const char* name);

    private:
        friend class ObjManager;
        OwnedText m_kName;
        BaseObj* m_pRoot;
    };
}

// The type names of the object classes, in the order the clone chain tests them.
#include <cstring>

#include "zemgui/ObjManager.h"
#include "zemgui/obj/ButtonObj.h"
#include "zemgui/obj/PointerObj.h"
#include "zemgui/obj/WidgetClasses.h"

namespace ZemGui
{
    namespace
    {
        template <class T>
        BaseObj* Make(const char* name, BaseObj* parent, const char* look, const char* proto)
        {
            return MEM_NEW(T, name, parent, look, proto);
        }

        // "BaseObj" names the abstract root: it has a place in the chain but builds nothing.
        const struct
        {
            const char* szTypeName;
            ObjManager::Factory pfnMake;
        } kTypes[] = {
            {"BaseObj", nullptr},
            {"ButtonObj", &Make<ButtonObj>},
            {"CheckboxObj", &Make<CheckboxObj>},
            {"ClockObj", &Make<ClockObj>},
            {"ComboboxObj", &Make<ComboboxObj>},
            {"DatagridObj", &Make<DatagridObj>},
            {"EditboxObj", &Make<EditboxObj>},
            {"ImageObj", &Make<ImageObj>},
            {"ItemListboxObj", &Make<ItemListboxObj>},
            {"LabelObj", &Make<LabelObj>},
            {"ListboxObj", &Make<ListboxObj>},
            {"Node", &Make<Node>},
            {"PointerObj", &Make<PointerObj>},
            {"ScrollbarObj", &Make<ScrollbarObj>},
            {"SliderObj", &Make<SliderObj>},
            {"TooltipObj", &Make<TooltipObj>},
        };
    }

    ObjManager::Factory ObjManager::FindFactory(const char* typeName)
    {
        if (!typeName) return nullptr;
        for (const auto& t : kTypes)
            if (std::strcmp(t.szTypeName, typeName) == 0) return t.pfnMake;
        return nullptr;
    }

    unsigned int ObjManager::GetTypeCount() { return sizeof(kTypes) / sizeof(kTypes[0]); }

    const char* ObjManager::GetTypeNameAt(unsigned int i) { return i < GetTypeCount() ? kTypes[i].szTypeName : nullptr; }
}

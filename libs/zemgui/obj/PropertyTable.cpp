#include "zemgui/obj/PropertyTable.h"

#include <cstring>

namespace ZemGui
{
    PropertyValue PropertyValue::Bool(bool v)
    {
        PropertyValue r;
        r.eForm = PropertyForm::Bool;
        r.b = v;
        return r;
    }
    PropertyValue PropertyValue::Integer(int v)
    {
        PropertyValue r;
        r.eForm = PropertyForm::Integer;
        r.i = v;
        return r;
    }
    PropertyValue PropertyValue::Float(float v)
    {
        PropertyValue r;
        r.eForm = PropertyForm::Float;
        r.f = v;
        return r;
    }
    PropertyValue PropertyValue::Text(const char* v)
    {
        PropertyValue r;
        r.eForm = PropertyForm::Text;
        r.text = v ? v : "";
        return r;
    }
    PropertyValue PropertyValue::Dim(const UDim& v)
    {
        PropertyValue r;
        r.eForm = PropertyForm::UDim;
        r.udim2.x = v;
        return r;
    }
    PropertyValue PropertyValue::Dim2(const UDim2& v)
    {
        PropertyValue r;
        r.eForm = PropertyForm::UDim2;
        r.udim2 = v;
        return r;
    }
    PropertyValue PropertyValue::Dir(Direction v)
    {
        PropertyValue r;
        r.eForm = PropertyForm::Direction;
        r.e = v;
        return r;
    }
    PropertyValue PropertyValue::Align(Alignment v)
    {
        PropertyValue r;
        r.eForm = PropertyForm::Alignment;
        r.e = v;
        return r;
    }

    bool PropertyValue::operator==(const PropertyValue& o) const
    {
        if (eForm != o.eForm) return false;
        switch (eForm)
        {
            case PropertyForm::Bool: return b == o.b;
            case PropertyForm::Integer: return i == o.i;
            case PropertyForm::Float: return f == o.f;
            case PropertyForm::Text: return std::strcmp(text ? text : "", o.text ? o.text : "") == 0;
            case PropertyForm::UDim: return udim2.x == o.udim2.x;
            case PropertyForm::UDim2: return udim2 == o.udim2;
            case PropertyForm::Direction:
            case PropertyForm::Alignment: return e == o.e;
        }
        return false;
    }

    void PropertyTable::Add(const PropertyRow& row)
    {
        for (PropertyRow& r : m_aRows)
            if (std::strcmp(r.szName, row.szName) == 0)
            {
                r = row;
                return;
            }
        m_aRows.Add(row);
    }

    bool PropertyTable::SetDefault(const char* name, const PropertyValue& value)
    {
        for (PropertyRow& r : m_aRows)
            if (std::strcmp(r.szName, name) == 0)
            {
                r.kDefault = value;
                return true;
            }
        return false;
    }

    const PropertyRow* PropertyTable::Find(const char* name) const
    {
        if (!name) return nullptr;
        for (const PropertyRow& r : m_aRows)
            if (std::strcmp(r.szName, name) == 0) return &r;
        return nullptr;
    }

    void PropertyList::ResetProperties()
    {
        const PropertyTable& table = GetPropertyTable();
        for (unsigned int i = 0; i < table.GetSize(); ++i) table[i].pfnSet(this, table[i].kDefault);
    }

    void PropertyList::CopyProperties(const PropertyList* source)
    {
        if (!source) return;
        const PropertyTable& table = GetPropertyTable();
        const PropertyTable& sourceTable = source->GetPropertyTable();
        for (unsigned int i = 0; i < table.GetSize(); ++i)
        {
            // A source of another class copies only the rows both know.
            if (&table != &sourceTable && !sourceTable.Find(table[i].szName)) continue;
            PropertyValue v;
            table[i].pfnGet(source, v);
            table[i].pfnSet(this, v);
        }
    }

    const PropertyTable& PropertyList::GetPropertyTable() const
    {
        static const PropertyTable kEmpty;
        return kEmpty;
    }

    bool PropertyList::GetProperty(const char* name, PropertyValue& out) const
    {
        const PropertyRow* row = GetPropertyTable().Find(name);
        if (!row) return false;
        row->pfnGet(this, out);
        return true;
    }

    bool PropertyList::SetProperty(const char* name, const PropertyValue& value)
    {
        const PropertyRow* row = GetPropertyTable().Find(name);
        if (!row || row->eForm != value.eForm) return false;
        row->pfnSet(this, value);
        return true;
    }
}

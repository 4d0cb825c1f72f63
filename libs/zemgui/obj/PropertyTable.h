#pragma once
// Table-driven properties. A class keeps one static table of rows: name, form, default,
// and how to read and write the value through the class's own getter and setter. A
// derived class starts from a copy of its base's table; a row added under a name that is
// already there replaces that row in place, so an override keeps its position.
#include "common/utils/TArray.h"
#include "zemgui/GuiTypes.h"

namespace ZemGui
{
    class PropertyList;

    // How a value is stored in files.
    enum class PropertyForm : unsigned int
    {
        Bool,
        Integer,
        Float,
        Text,
        UDim,
        UDim2,
        Direction,
        Alignment,
    };

    struct PropertyValue
    {
        PropertyForm eForm = PropertyForm::Bool;
        bool b = false;
        int i = 0;
        float f = 0.0f;
        UDim2 udim2;             // UDim form: x only
        const char* text = "";   // valid until the owner's value changes
        unsigned int e = 0;      // Direction and Alignment

        static PropertyValue Bool(bool v);
        static PropertyValue Integer(int v);
        static PropertyValue Float(float v);
        static PropertyValue Text(const char* v);
        static PropertyValue Dim(const UDim& v);
        static PropertyValue Dim2(const UDim2& v);
        static PropertyValue Dir(Direction v);
        static PropertyValue Align(Alignment v);

        bool operator==(const PropertyValue& o) const;
        bool operator!=(const PropertyValue& o) const { return !(*this == o); }
    };

    struct PropertyRow
    {
        const char* szName = "";
        PropertyForm eForm = PropertyForm::Bool;
        PropertyValue kDefault;
        void (*pfnGet)(const PropertyList* owner, PropertyValue& out) = nullptr;
        void (*pfnSet)(PropertyList* owner, const PropertyValue& value) = nullptr;
    };

    class PropertyTable
    {
    public:
        PropertyTable() = default;
        PropertyTable(const PropertyTable& base) = default;

        // Appends, or replaces the row of the same name where it stands.
        void Add(const PropertyRow& row);
        // Changes the default of an inherited row; false when there is no such row.
        bool SetDefault(const char* name, const PropertyValue& value);

        const PropertyRow* Find(const char* name) const;
        unsigned int GetSize() const { return m_aRows.GetSize(); }
        const PropertyRow& operator[](unsigned int i) const { return m_aRows[i]; }

    private:
        ZemRenderer::TArray<PropertyRow> m_aRows;
    };

    // Tables are walked by these; the object model supplies the class's table.
    class PropertyList
    {
    public:
        virtual ~PropertyList() = default;
        // Every row to its default, through the setters.
        virtual void ResetProperties();
        // Every row from `source`, through the setters.
        virtual void CopyProperties(const PropertyList* source);
        virtual const PropertyTable& GetPropertyTable() const;

        // One property by name: false when the class has no such row.
        bool GetProperty(const char* name, PropertyValue& out) const;
        bool SetProperty(const char* name, const PropertyValue& value);
    };
}

// Row builders for a class C with getter G and setter S.
#define ZEM_PROPERTY_ROW(C, NAME, FORM, DEFAULT, FIELD, CAST, GET, SET)                                     \
    ::ZemGui::PropertyRow                                                                                    \
    {                                                                                                        \
        NAME, ::ZemGui::PropertyForm::FORM, DEFAULT,                                                         \
            [](const ::ZemGui::PropertyList* o, ::ZemGui::PropertyValue& v) {                                \
                v.eForm = ::ZemGui::PropertyForm::FORM;                                                      \
                v.FIELD = static_cast<const C*>(o)->GET;                                                     \
            },                                                                                               \
            [](::ZemGui::PropertyList* o, const ::ZemGui::PropertyValue& v) { static_cast<C*>(o)->SET(CAST(v.FIELD)); } \
    }
#define ZEM_PROP_NOCAST(x) x
#define ZEM_PROP_BOOL(C, NAME, DEF, GET, SET) \
    ZEM_PROPERTY_ROW(C, NAME, Bool, ::ZemGui::PropertyValue::Bool(DEF), b, ZEM_PROP_NOCAST, GET, SET)
#define ZEM_PROP_INT(C, NAME, DEF, GET, SET) \
    ZEM_PROPERTY_ROW(C, NAME, Integer, ::ZemGui::PropertyValue::Integer(DEF), i, ZEM_PROP_NOCAST, GET, SET)
#define ZEM_PROP_FLOAT(C, NAME, DEF, GET, SET) \
    ZEM_PROPERTY_ROW(C, NAME, Float, ::ZemGui::PropertyValue::Float(DEF), f, ZEM_PROP_NOCAST, GET, SET)
#define ZEM_PROP_TEXT(C, NAME, DEF, GET, SET) \
    ZEM_PROPERTY_ROW(C, NAME, Text, ::ZemGui::PropertyValue::Text(DEF), text, ZEM_PROP_NOCAST, GET, SET)
#define ZEM_PROP_UDIM2(C, NAME, DEF, GET, SET) \
    ZEM_PROPERTY_ROW(C, NAME, UDim2, ::ZemGui::PropertyValue::Dim2(DEF), udim2, ZEM_PROP_NOCAST, GET, SET)
#define ZEM_PROP_DIRECTION(C, NAME, DEF, GET, SET) \
    ZEM_PROPERTY_ROW(C, NAME, Direction, ::ZemGui::PropertyValue::Dir(DEF), e, static_cast<::ZemGui::Direction>, GET, SET)
#define ZEM_PROP_ALIGNMENT(C, NAME, DEF, GET, SET) \
    ZEM_PROPERTY_ROW(C, NAME, Alignment, ::ZemGui::PropertyValue::Align(DEF), e, static_cast<::ZemGui::Alignment>, GET, SET)

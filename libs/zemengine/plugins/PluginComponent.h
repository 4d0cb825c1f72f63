#pragma once
// The second plugin kind: objects attached to a prefab that take part in updates by
// themselves, made by builders that the engine calls by role only.
#include "zemengine/core/json/Json.h"

namespace ZemEngine
{
    class PluginComponent
    {
    public:
        PluginComponent() = default;
        PluginComponent(const PluginComponent&) = delete;
        PluginComponent& operator=(const PluginComponent&) = delete;

        virtual ~PluginComponent() = default;
        virtual void Update() {}
        virtual unsigned int Query(unsigned int) { return 0; }
        virtual void Set(unsigned int) {}
        virtual bool IsSet(unsigned int) { return false; }
        virtual void SetBool(bool) {}
    };

    struct PluginComponentDesc
    {
        static constexpr unsigned int kTextSize = 127;

        char m_szName[kTextSize] = {};
        // Matched against the "Type" of an AddInObjects entry.
        char m_szTypeName[kTextSize] = {};
        // The id of the name: the builder's key.
        unsigned int m_uId = 0;
    };

    class PluginComponentBuilder
    {
    public:
        PluginComponentBuilder() = default;
        PluginComponentBuilder(const PluginComponentBuilder&) = delete;
        PluginComponentBuilder& operator=(const PluginComponentBuilder&) = delete;

        virtual ~PluginComponentBuilder() = default;
        virtual PluginComponent* Build(void* arg0, void* arg1, void* arg2) = 0;
        virtual void Release(PluginComponent* component) = 0;
        virtual const PluginComponentDesc& GetDesc() const = 0;
        virtual PluginComponent* BuildFromJson(const Json::Value& json, void* context1, void* context2) = 0;
        virtual void OnResize(void* world, unsigned int width, unsigned int height) = 0;
        virtual unsigned int Query(unsigned int what) = 0;
    };
}

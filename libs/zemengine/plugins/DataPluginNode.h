#pragma once
// The data-driven build logic of a custom node, so that a plugin writes only a data
// type, a JSON parse and a build function. T (which derives from DataPluginNode<T, N>)
// supplies, all static:
//   typedef ... DataType;                        copyable, default-constructible
//   bool ParseData(const Json::Value&, DataType&);                 false refuses
//   bool IsDataReady(const DataType&, Collection*);
//   void BuildData(Link*, Collection*, const DataType&, void* userData, TransitionEngine*);
//   CustomNodeDesc& GetDesc();                   the plugin's one description record
// and, when its data can be not ready, the thread that may touch the collection's links:
//   ZemRenderer::RenderThread* GetRenderThread(Collection*);
// and, when the node marks its links, the tag of its user-data record and the type of
// one element of it:
//   static constexpr uint32_t kUserDataTag;  typedef ... LinkElement;
#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemengine/plugins/CustomNodeDesc.h"
#include "zemengine/plugins/PluginNode.h"
#include "zemrenderer/scene/Link.h"
#include "zemrenderer/scene/UserData.h"
#include "zemrenderer/thread/GenericWorker.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemEngine
{
    template <class T, int N>
    class DataPluginNode : public PluginNode
    {
    public:
        void Build(ZemRenderer::Link* link, Collection* collection, const Json::Value& json,
                   ZemAnim::TransitionEngine* transitionEngine) override
        {
            typename T::DataType data;
            if (!T::ParseData(json, data)) return;
            BuildFromData(link, collection, &data, transitionEngine);
        }

        void BuildFromData(ZemRenderer::Link* link, Collection* collection, const void* data,
                           ZemAnim::TransitionEngine* transitionEngine) override
        {
            if (!ZEM_ASSERT(data != nullptr, "If this is default constructor expected, empty json should be sended"))
                return;
            const typename T::DataType copy(*static_cast<const typename T::DataType*>(data));
            DoBuild(link, collection, copy, transitionEngine);
        }

        // Builds now if the data is ready; else hands a copy to the render side, where
        // it is tried again.
        template <class D>
        static void DoBuild(ZemRenderer::Link* link, Collection* collection, const D& data,
                            ZemAnim::TransitionEngine* transitionEngine)
        {
            if (T::IsDataReady(data, collection))
            {
                // The record says the link already is such a node: it is added once.
                void* userData = nullptr;
                if constexpr (requires { T::kUserDataTag; })
                {
                    if (link)
                    {
                        ZemRenderer::UserData* record = link->FindUserData(T::kUserDataTag);
                        if (!record)
                            record = ZemRenderer::UserDataHelper::Add(link, nullptr, T::kUserDataTag,
                                                                      typename T::LinkElement{});
                        if (record) userData = ZemRenderer::UserDataHelper::GetElements(record);
                    }
                }
                T::BuildData(link, collection, data, userData, transitionEngine);
                return;
            }
            ZemRenderer::RenderThread* renderThread = nullptr;
            if constexpr (requires { T::GetRenderThread(collection); }) renderThread = T::GetRenderThread(collection);
            if (!ZEM_ASSERT(renderThread != nullptr, "No render thread to finish a custom node that is not ready"))
                return;
            renderThread->AddWork(ZemRenderer::MakeGenericWorker(&DoBuildLater<D>, link, collection, data, transitionEngine));
        }

        class DefaultBuilder : public PluginBuilder
        {
        public:
            DefaultBuilder() : PluginBuilder(&T::GetDesc()) {}

            PluginNode* BuildNode() override { return MEM_NEW(T); }
            void* BuildNodeData(const Json::Value& json, Collection*, ZemAnim::TransitionEngine*) override
            {
                typename T::DataType data;
                if (!T::ParseData(json, data)) return nullptr;
                return MEM_NEW(typename T::DataType, data);
            }
            void ReleaseNodeData(void* data) override { MEM_DELETE(static_cast<typename T::DataType*>(data)); }

            // One builder per library, made on first use.
            static DefaultBuilder& Get()
            {
                static DefaultBuilder s_kBuilder;
                return s_kBuilder;
            }
        };

    private:
        template <class D>
        static void DoBuildLater(ZemRenderer::Link* link, Collection* collection, D data,
                                 ZemAnim::TransitionEngine* transitionEngine)
        {
            DoBuild(link, collection, data, transitionEngine);
        }
    };
}

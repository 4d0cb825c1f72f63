#pragma once
// Wire forms of the custom node records, for the remote commands that publish them:
//   header   {"Name", "Description", "IconPath", "WatchLabelProperty", "Mode": ["WorldNode", ...]}
//   property {"Name", "Type", "Group", ["DefaultValue",] "Order", "UserFlags"}
// Include this before registering a command that returns one of them. Arrays of them
// find Encode by argument lookup; a lone header goes through the Write specialisation.
#include "zemengine/core/commandmanager/JSonParamReader.h"
#include "zemengine/plugins/CustomNodeDesc.h"

namespace ZemEngine
{
    Json::Value Encode(const CustomNodeHeaderDesc& header, Json::PoolAllocator& a, bool& nonFinite);
    Json::Value Encode(const CustomNodePropertyDesc& property, Json::PoolAllocator& a, bool& nonFinite);

    template <>
    void JSonParamReader::Write<CustomNodeHeaderDesc>(const char* name, const CustomNodeHeaderDesc& value);
}

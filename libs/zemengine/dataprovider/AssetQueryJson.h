#pragma once
// Wire forms of the asset manager's records and commands:
//   query  {"Cooked", "Synchronous", "SendData", "TypeID", "Platform", "FilePath", "Params"}
//   result {"Succeeded", "FilePath", "ListenPort"}
// Include this before registering a command that takes a query or returns a result.
#include "zemengine/core/commandmanager/JSonParamReader.h"
#include "zemrenderer/dataprovider/DataPoviderInterface.h"

namespace DataProvider
{
    constexpr const char* kAssetManagerClass = "AssetManagerInterface";

    // Each texts fits its field with its terminator, or the decode fails naming what it
    // expected.
    bool DecodeAssetQuery(const ZemEngine::Json::Value& v, AssetQuery& out, const char*& expected);
    bool DecodeAssetResult(const ZemEngine::Json::Value& v, AssetResult& out, const char*& expected);
    ZemEngine::Json::Value EncodeAssetQuery(const AssetQuery& query, ZemEngine::Json::PoolAllocator& a);
    ZemEngine::Json::Value EncodeAssetResult(const AssetResult& result, ZemEngine::Json::PoolAllocator& a);

    // The text of one asset manager command: "UseTcpThread" and "WaitAck" true, "Arg0"
    // the query, or the platform text when `query` is null; no argument when both are.
    void WriteAssetManagerCommand(ZemEngine::Json::StringBuffer& out, const char* method, unsigned int instanceId,
                                  const AssetQuery* query, const char* platform = nullptr);
}

namespace ZemEngine
{
    template <>
    bool JSonParamReader::Read<DataProvider::AssetQuery>(DataProvider::AssetQuery& out);
    template <>
    void JSonParamReader::Write<DataProvider::AssetResult>(const char* name, const DataProvider::AssetResult& value);
}

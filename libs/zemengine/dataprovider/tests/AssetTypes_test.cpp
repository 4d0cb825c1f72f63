// Type tables, asset keys and cooked paths, the configuration file, and the wire form
// of queries and results.
#include <gtest/gtest.h>

#include "common/system/debug/Log.h"
#include "common/utils/Hash.h"
#include "zemengine/dataprovider/AssetQueryJson.h"
#include "zemengine/dataprovider/AssetTypes.h"
#include "zemengine/dataprovider/DataProviderConfig.h"
#include "zemengine/dataprovider/tests/DataProviderTestKit.h"

using namespace DataProvider;
using namespace DataProviderTest;

namespace
{
    TEST(AssetTypes, EntriesFromText)
    {
        CAssetTypeTable table;
        Common::ScopedLogCapture log;
        const std::string text =
            "[{\"EngineClassId\": 7, \"EngineClassName\": \"Ignored\", \"Name\": \"Tex\", \"OutputExt\": \".dds\","
            "  \"ImportTypeExtensions\": [\"PNG\", \"tga\"]},"
            " {\"EngineClassName\": \"ZemRenderer::Link\", \"Name\": \"Link\", \"ImportTypeExtensions\": [\"zef\"]},"
            " {\"Name\": \"NoClass\", \"ImportTypeExtensions\": [\"x\"]},"
            " {\"EngineClassId\": 9, \"ImportTypeExtensions\": [\"y\"]},"
            " {\"EngineClassId\": 9, \"Name\": \"BadExt\", \"ImportTypeExtensions\": [3, \"ok\"]},"
            " {\"EngineClassId\": 9, \"Name\": \"NoExtensions\"},"
            " 12]";
        EXPECT_EQ(table.AddFromText(text.data(), text.size(), "t.assetInfos"), 4);
        ASSERT_EQ(table.GetSize(), 4u);
        // The id given wins over the name; extensions are kept lower-case without a dot.
        EXPECT_EQ(table.Get(0).m_uEngineClassId, 7u);
        EXPECT_EQ(table.Get(0).m_uExtensionId, GenerateUIntIdFromString("png"));
        EXPECT_EQ(table.Get(0).m_kOutputExt, "dds");
        EXPECT_STREQ(table.Get(1).m_szName, "Tex");
        EXPECT_EQ(table.Get(2).m_uEngineClassId, kLinkType);
        EXPECT_TRUE(table.Get(2).m_kOutputExt.empty());
        EXPECT_STREQ(table.Get(3).m_szName, "BadExt");
        EXPECT_EQ(table.Find(GenerateUIntIdFromString("tga"), 7), &table.Get(1));
        EXPECT_EQ(table.Find(GenerateUIntIdFromString("tga"), 8), nullptr);
        for (const char* report : {"entry 2 (NoClass) needs \"EngineClassId\"", "entry 3 needs \"Name\"",
                                   "BadExt: an import extension must be a short text", "entry 6 is not an object"})
            EXPECT_TRUE(log.Contains(report)) << report << "\n" << log.Text();
    }

    TEST(AssetTypes, TextsThatAreNoTableAddNothing)
    {
        struct Case
        {
            const char* text;
            const char* report;
        };
        for (const Case& c : {Case{"", "Couldn't parse asset infos file bad.assetInfos"},
                              Case{"[{\"Name\": ", "Couldn't parse asset infos file bad.assetInfos"},
                              Case{"{\"Name\": \"A\"}", "must hold a JSON array of asset types, not an object"},
                              Case{"\"zef\"", "not a string"}})
        {
            CAssetTypeTable table;
            Common::ScopedLogCapture log;
            EXPECT_EQ(table.AddFromText(c.text, std::strlen(c.text), "bad.assetInfos"), -1) << c.text;
            EXPECT_EQ(table.GetSize(), 0u);
            EXPECT_TRUE(log.Contains(c.report)) << c.text << "\n" << log.Text();
        }
    }

    TEST(AssetTypes, FilesOfTheTypesFolder)
    {
        CTempRoot root;
        const fs::path folder = root.Path() / "Toolchain/TypesInfos";
        // Read in name order, whatever the case of the extension; other files are left.
        WriteFile(folder / "B.ASSETINFOS", "[{\"EngineClassId\": 1, \"Name\": \"B\", \"ImportTypeExtensions\": [\"zef\"]}]");
        WriteFile(folder / "Broken.assetInfos", "not json");
        WriteFile(folder / "notes.txt", "[{\"EngineClassId\": 1, \"Name\": \"T\", \"ImportTypeExtensions\": [\"zef\"]}]");
        CAssetTypeTable table;
        Common::ScopedLogCapture log;
        EXPECT_EQ(table.LoadFromRoot(root.Str().c_str()), 2u);
        ASSERT_EQ(table.GetSize(), 4u);
        EXPECT_STREQ(table.Get(0).m_szName, "B");
        EXPECT_STREQ(table.Get(1).m_szName, "Link");
        EXPECT_TRUE(log.Contains("Couldn't parse asset infos file")) << log.Text();

        CTempRoot empty;
        fs::remove_all(empty.Path() / "Toolchain");
        CAssetTypeTable none;
        EXPECT_EQ(none.LoadFromRoot(empty.Str().c_str()), 0u);
        EXPECT_TRUE(log.Contains(("Unable to find any *.assetInfos with path " + empty.Str() + "/Toolchain/TypesInfos").c_str()))
            << log.Text();
    }

    TEST(AssetTypes, KeysAndCookedPaths)
    {
        CTempRoot root;
        CAssetTypeTable table;
        table.LoadFromRoot(root.Str().c_str());
        struct Case
        {
            const char* path;
            const char* params;
            unsigned int type;
            const char* keyText;
            const char* cooked;
        };
        const std::string paramsId = std::to_string(GenerateUIntIdFromString("-lod 2"));
        const std::string emptyId = std::to_string(GenerateUIntIdFromString(""));
        const Case cases[] = {
            {"Meshes/Box.zef", "", kLinkType, "meshes/box.zef  Link", "Meshes/Box_0.zef"},
            // The source extension picks the entry; the key names the cooked extension.
            {"Meshes/Crate.FBX", "", kMeshType, "meshes/crate.zef  Mesh", "Meshes/Crate_0.zef"},
            {"Meshes/Crate.fbx", "-lod 2", kMeshType, "meshes/crate.zef -lod 2 Mesh", nullptr},
            {"Dir.v2/NoExt", "", kLinkType, "dir.v2/noext  ", "Dir.v2/NoExt"},
        };
        for (const Case& c : cases)
        {
            AssetKeyInfo info;
            ASSERT_TRUE(table.Describe(c.path, c.params, c.type, info)) << c.path;
            EXPECT_STREQ(info.m_szKeyText, c.keyText) << c.path;
            EXPECT_EQ(info.m_uKey, GenerateUIntIdFromString(c.keyText)) << c.path;
            if (c.cooked)
            {
                EXPECT_STREQ(info.m_szCookedPath, c.cooked) << c.path;
            }
        }
        EXPECT_EQ(emptyId, "0");
        AssetKeyInfo lod;
        table.Describe("Meshes/Crate.fbx", "-lod 2", kMeshType, lod);
        EXPECT_EQ(std::string(lod.m_szCookedPath), "Meshes/Crate_" + paramsId + ".zef");

        // Another class with the same extension is unknown: reported, taken as it is.
        Common::ScopedLogCapture log;
        AssetKeyInfo unknown;
        ASSERT_TRUE(table.Describe("Data/Level.zef", "", kMeshType, unknown));
        EXPECT_FALSE(unknown.m_bKnownType);
        EXPECT_STREQ(unknown.m_szCookedPath, "Data/Level.zef");
        EXPECT_TRUE(log.Contains("DataProvider : Couldn't compute type for Data/Level.zef"));
    }

    TEST(AssetTypes, PathHelpers)
    {
        char out[64];
        struct Normal
        {
            const char* in;
            const char* out;
        };
        for (const Normal& c : {Normal{"Meshes\\Sub\\\\Box.zef", "Meshes/Sub/Box.zef"}, Normal{"/a//b/", "a/b/"},
                                Normal{"\\\\server\\x", "server/x"}, Normal{"", ""}})
        {
            ASSERT_TRUE(NormalizeAssetPath(c.in, out, sizeof(out))) << c.in;
            EXPECT_STREQ(out, c.out);
        }
        EXPECT_FALSE(NormalizeAssetPath(std::string(100, 'a').c_str(), out, sizeof(out)));
        EXPECT_STREQ(out, "");

        for (const char* inside : {"a/b.zef", "a..b/c", "..a/b", "a/...", "."}) EXPECT_TRUE(IsContainedPath(inside)) << inside;
        for (const char* outside : {"..", "../a", "a/../../b", "a/.."}) EXPECT_FALSE(IsContainedPath(outside)) << outside;

        struct Join
        {
            const char* root;
            const char* rel;
            const char* out;
        };
        for (const Join& c : {Join{"/r", "a", "/r/a"}, Join{"/r/", "/a", "/r/a"}, Join{"./Data/", "x/y", "./Data/x/y"},
                              Join{"/", "a", "/a"}, Join{"", "a", "a"}})
        {
            ASSERT_TRUE(JoinPath(c.root, c.rel, out, sizeof(out))) << c.root;
            EXPECT_STREQ(out, c.out);
        }
        EXPECT_FALSE(JoinPath("/r", std::string(70, 'a').c_str(), out, sizeof(out)));
    }

    // ---- configuration ---------------------------------------------------------------

    TEST(DataProviderConfig, DefaultsAndFaults)
    {
        struct Case
        {
            const char* name;
            const char* text;  // null: no file at all
            ConfigStatus status;
            const char* report;  // null: nothing may be asserted
        };
        const Case cases[] = {
            {"absent", nullptr, ConfigStatus::Absent, nullptr},
            {"empty", "", ConfigStatus::Empty, "Wrong file size"},
            {"not JSON", "Binary = AssetManagerApp", ConfigStatus::NotParsed, "Couldn't parse Asset Manager config file"},
            {"cut", "{\"Binary\": \"X\", ", ConfigStatus::NotParsed, "Couldn't parse Asset Manager config file"},
            {"array", "[1, 2]", ConfigStatus::NotParsed, "is an array, not an object"},
        };
        for (const Case& c : cases)
        {
            CTempRoot root;
            const fs::path path = root.Path() / "Toolchain/TypesInfos/DataProvider.config";
            if (c.text) WriteFile(path, c.text);
            DataProviderConfig config;
            Common::ScopedLogCapture log;
            EXPECT_EQ(LoadDataProviderConfig(path.c_str(), config), c.status) << c.name;
            EXPECT_STREQ(config.m_szBinary, "AssetManagerApp") << c.name;
            EXPECT_STREQ(config.m_szHost, "127.0.0.1") << c.name;
            EXPECT_EQ(config.m_uPort, 27674u) << c.name;
            EXPECT_FALSE(config.m_bLogPackage) << c.name;
            EXPECT_STREQ(config.m_szLogPackagePath, "PackageLog.txt") << c.name;
            if (c.report)
                EXPECT_TRUE(log.Contains(c.report)) << c.name << "\n" << log.Text();
            else
                EXPECT_FALSE(log.Contains("Assertion")) << c.name << "\n" << log.Text();
        }

        // A folder where the file should be can't be opened.
        CTempRoot root;
        const fs::path path = root.Path() / "Toolchain/TypesInfos/DataProvider.config";
        fs::create_directories(path);
        DataProviderConfig config;
        Common::ScopedLogCapture log;
        EXPECT_EQ(LoadDataProviderConfig(path.c_str(), config), ConfigStatus::Unreadable);
        EXPECT_TRUE(log.Contains("Couldn't open Asset Manager config file"));
    }

    TEST(DataProviderConfig, KeysReadAndKeysKept)
    {
        DataProviderConfig config;
        const std::string full = "{\"Binary\": \"MyAM\", \"Host\": \"10.0.0.2\", \"Port\": 4000, \"LogPackage\": true,"
                                 " \"LogPackagePath\": \"logs/p.txt\"}";
        EXPECT_EQ(ParseDataProviderConfig(full.data(), full.size(), config), ConfigStatus::Read);
        EXPECT_STREQ(config.m_szBinary, "MyAM");
        EXPECT_STREQ(config.m_szHost, "10.0.0.2");
        EXPECT_EQ(config.m_uPort, 4000u);
        EXPECT_TRUE(config.m_bLogPackage);
        EXPECT_STREQ(config.m_szLogPackagePath, "logs/p.txt");

        // Keys that are missing or wrong keep their defaults; the right ones are read.
        DataProviderConfig partial;
        Common::ScopedLogCapture log;
        const std::string text = "{\"Host\": 12, \"Port\": 70000, \"LogPackage\": \"yes\", \"Binary\": \"Other\"}";
        EXPECT_EQ(ParseDataProviderConfig(text.data(), text.size(), partial), ConfigStatus::Read);
        EXPECT_STREQ(partial.m_szBinary, "Other");
        EXPECT_STREQ(partial.m_szHost, "127.0.0.1");
        EXPECT_EQ(partial.m_uPort, 27674u);
        EXPECT_FALSE(partial.m_bLogPackage);
        for (const char* report : {"\"Host\" must be a text", "\"Port\" must be a number from 1 to 65535",
                                   "\"LogPackage\" must be true or false"})
            EXPECT_TRUE(log.Contains(report)) << report;

        // "LogPackage" absent leaves the log off.
        DataProviderConfig quiet;
        const std::string noLog = "{\"Binary\": \"A\", \"Host\": \"h\", \"Port\": 1}";
        ParseDataProviderConfig(noLog.data(), noLog.size(), quiet);
        EXPECT_FALSE(quiet.m_bLogPackage);
    }

    // ---- wire form ---------------------------------------------------------------------

    TEST(AssetQueryJson, RoundTripAndRefusals)
    {
        AssetQuery query;
        ASSERT_TRUE(MakeAssetQuery(query, kLinkType, "Shaders/Basic.zff -param \"A=1\"", true));
        EXPECT_STREQ(query.m_szFilePath, "Shaders/Basic.zff");
        EXPECT_STREQ(query.m_szParams, "-param \"A=1\"");
        EXPECT_STREQ(query.m_szPlatform, "PC");
        query.m_bSynchronous = true;

        ZemEngine::Json::StringBuffer text;
        WriteAssetManagerCommand(text, "QueryAssetData", 3, &query);
        ZemEngine::Json::Document d;
        d.Parse(text.GetString());
        ASSERT_FALSE(d.HasParseError());
        EXPECT_STREQ(d["ClassName"].GetString(), "AssetManagerInterface");
        EXPECT_EQ(d["InstanceID"].GetUint(), 3u);
        EXPECT_TRUE(d["WaitAck"].GetBool() && d["UseTcpThread"].GetBool());
        AssetQuery back;
        const char* expected = nullptr;
        ASSERT_TRUE(DecodeAssetQuery(d["Arg0"], back, expected));
        EXPECT_EQ(std::memcmp(&back, &query, sizeof(query)), 0);

        const std::string longPath(512, 'a');
        for (const std::string& json :
             {std::string("{\"Succeeded\": true, \"FilePath\": \"a\"}"), std::string("{\"Succeeded\": 1, \"FilePath\": \"a\", \"ListenPort\": 0}"),
              "{\"Succeeded\": true, \"FilePath\": \"" + std::string(515, 'x') + "\", \"ListenPort\": 0}",
              std::string("{\"Succeeded\": true, \"FilePath\": \"a\\u0000b\", \"ListenPort\": 0}"), std::string("[]")})
        {
            ZemEngine::Json::Document r;
            r.Parse(json.c_str());
            AssetResult result;
            expected = nullptr;
            EXPECT_FALSE(DecodeAssetResult(r, result, expected)) << json;
            EXPECT_FALSE(result.m_bSucceeded);
            EXPECT_NE(expected, nullptr);
        }
        ZemEngine::Json::Document q;
        q.Parse(("{\"Cooked\":false,\"Synchronous\":false,\"SendData\":false,\"TypeID\":1,\"Platform\":\"PC\","
                 "\"FilePath\":\"" + longPath + "\",\"Params\":\"\"}").c_str());
        EXPECT_FALSE(DecodeAssetQuery(q, back, expected));

        Common::ScopedLogCapture log;
        EXPECT_FALSE(MakeAssetQuery(query, kLinkType, longPath.c_str()));
        EXPECT_TRUE(log.Contains("Asset path of 512 characters is too long"));
    }
}

namespace
{
    // The shipped tables parse and give the link engine file its designed cooked name.
    TEST(AssetTypes, ShippedContent)
    {
        const fs::path content = fs::path(ZEM_SOURCE_DIR) / "content";
        Common::ScopedLogCapture log;
        CAssetTypeTable table;
        EXPECT_GE(table.LoadFromRoot(content.c_str()), 1u);
        EXPECT_FALSE(log.Contains("Assertion")) << log.Text();
        AssetKeyInfo info;
        ASSERT_TRUE(table.Describe("Meshes/Box.zef", "", kLinkType, info));
        EXPECT_TRUE(info.m_bKnownType);
        EXPECT_STREQ(info.m_szCookedPath, "Meshes/Box_0.zef");

        DataProviderConfig config;
        const fs::path file = content / "Toolchain/TypesInfos/DataProvider.config";
        EXPECT_EQ(LoadDataProviderConfig(file.c_str(), config), ConfigStatus::Read);
        EXPECT_STREQ(config.m_szBinary, "AssetManagerApp");
        EXPECT_EQ(config.m_uPort, 27674u);
        // The sample project uses the same files.
        EXPECT_TRUE(fs::equivalent(content / "Toolchain/TypesInfos",
                                   content / "../samples/SampleProject/Toolchain/TypesInfos"));
    }
}

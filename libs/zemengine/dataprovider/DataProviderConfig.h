#pragma once
// The data provider's configuration, "/Toolchain/TypesInfos/DataProvider.config" under
// the assets root: which asset manager program to look for and where it listens, and
// whether queries go to the package log.
#include <cstddef>
#include <cstdint>

namespace DataProvider
{
    struct DataProviderConfig
    {
        static constexpr const char* kFileName = "/Toolchain/TypesInfos/DataProvider.config";
        static constexpr const char* kDefaultBinary = "AssetManagerApp";
        static constexpr const char* kDefaultHost = "127.0.0.1";
        static constexpr unsigned int kDefaultPort = 27674;
        static constexpr const char* kDefaultLogPackagePath = "PackageLog.txt";
        static constexpr size_t kTextSize = 1024;
        static constexpr size_t kHostSize = 128;

        // Name of the asset manager program, without extension.
        char m_szBinary[kTextSize] = {};
        char m_szHost[kHostSize] = {};
        unsigned int m_uPort = kDefaultPort;
        bool m_bLogPackage = false;
        char m_szLogPackagePath[kTextSize] = {};

        DataProviderConfig() { SetDefaults(); }
        void SetDefaults();
    };

    enum class ConfigStatus
    {
        Read,        // the file was read; keys it lacks or got wrong keep their defaults
        Absent,      // no file: defaults, nothing reported
        Unreadable,  // "Couldn't open Asset Manager config file"
        Empty,       // "Wrong file size"
        NotParsed,   // "Couldn't parse Asset Manager config file"
    };

    // Reads a configuration text over the defaults. Every fault is reported; none stops
    // the reading of the keys that are right.
    ConfigStatus ParseDataProviderConfig(const char* text, size_t length, DataProviderConfig& out);

    // The file at `path`; defaults for an absent file.
    ConfigStatus LoadDataProviderConfig(const char* path, DataProviderConfig& out);
}

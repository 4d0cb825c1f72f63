// Configuration texts from arbitrary bytes: whatever the text, the reading ends with a
// usable configuration (a binary name, a host, a port from 1 to 65535) and reports
// instead of failing.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "zemengine/core/commandmanager/fuzz/FuzzEngine.h"
#include "zemengine/dataprovider/DataProviderConfig.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    ZemEngine::Fuzz::SilenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    DataProvider::DataProviderConfig config;
    const DataProvider::ConfigStatus status =
        DataProvider::ParseDataProviderConfig(reinterpret_cast<const char*>(data), size, config);
    if (status == DataProvider::ConfigStatus::Absent || status == DataProvider::ConfigStatus::Unreadable) std::abort();
    if (size == 0 && status != DataProvider::ConfigStatus::Empty) std::abort();
    if (!config.m_szBinary[0] || !config.m_szHost[0] || !config.m_szLogPackagePath[0]) std::abort();
    if (std::strlen(config.m_szBinary) >= sizeof(config.m_szBinary) ||
        std::strlen(config.m_szHost) >= sizeof(config.m_szHost))
        std::abort();
    if (config.m_uPort < 1 || config.m_uPort > 65535) std::abort();
    // A text that is not a configuration changes nothing.
    if (status != DataProvider::ConfigStatus::Read)
    {
        const DataProvider::DataProviderConfig defaults;
        if (std::strcmp(config.m_szBinary, defaults.m_szBinary) || std::strcmp(config.m_szHost, defaults.m_szHost) ||
            config.m_uPort != defaults.m_uPort || config.m_bLogPackage != defaults.m_bLogPackage ||
            std::strcmp(config.m_szLogPackagePath, defaults.m_szLogPackagePath))
            std::abort();
    }
    return 0;
}

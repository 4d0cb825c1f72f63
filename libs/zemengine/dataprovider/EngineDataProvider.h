#pragma once
// The engine's part in the data provider's life: made and set as this library's provider
// at start, waited for before the first view, freed at the end.
#include "zemrenderer/dataprovider/DataPoviderInterface.h"

namespace DataProvider
{
    // A new provider, set as the process's provider. `address` ("-dpaddress": "host" or
    // "host:port"), when not empty, overrides the configuration's. Init is the caller's.
    DataPoviderInterface* CreateEngineDataProvider(const char* address);

    // Polls IsReady every `pollMs` until it answers true; once every `logEveryMs` logs what
    // it waits for. `limitMs` 0 waits without limit. True once ready.
    bool WaitForDataProvider(DataPoviderInterface* provider, unsigned int pollMs = 10, unsigned int logEveryMs = 1000,
                             unsigned int limitMs = 0);

    // Frees a provider made by CreateEngineDataProvider and unsets it if it is set.
    void DestroyEngineDataProvider(DataPoviderInterface* provider);
}

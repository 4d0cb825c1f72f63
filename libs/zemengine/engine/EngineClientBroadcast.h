#pragma once
// A call sent to several servers in turn (the asset manager's instances), each reply
// overwriting the last.
#include "common/system/net/TcpSocket.h"
#include "common/utils/TArray.h"
#include "zemengine/core/json/Json.h"

namespace ZemEngine
{
    class CEngineClientBroadcast
    {
    public:
        class IInterfaceSockets
        {
        public:
            IInterfaceSockets() = default;
            virtual ~IInterfaceSockets();
            IInterfaceSockets(const IInterfaceSockets&) = delete;
            IInterfaceSockets& operator=(const IInterfaceSockets&) = delete;

            // Up to `retries` attempts, `delayMs` apart; "Unable to connect to interface
            // at %s port %i !" when all fail.
            bool AddConnection(const char* address, int port, int retries, unsigned int delayMs);
            // Sends to every connection; with a document, reads each reply into it.
            // False if any connection failed.
            bool CallMethod(const char* json, Json::Document* document);

            unsigned int GetConnectionCount() const { return m_aSockets.GetSize(); }
            // Limit on the wait for each reply in milliseconds; 0 waits without limit.
            void SetTimeout(unsigned int ms) { m_uTimeoutMs = ms; }

        protected:
            ZemRenderer::TArray<Common::TcpSocket*> m_aSockets;
            unsigned int m_uTimeoutMs = 0;
        };

        template <class AssetManagerInterface>
        class CInterfaceSockets : public IInterfaceSockets
        {
        };
    };
}

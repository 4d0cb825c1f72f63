#pragma once
// The client side of the remote command protocol: one connection, one call in flight at
// a time. Frames go out in one write with TCP_NODELAY set.
#include "common/system/net/TcpSocket.h"
#include "common/utils/TArray.h"
#include "zemengine/core/json/Json.h"
#include "zemengine/engine/NetFrame.h"

namespace ZemEngine
{
    class CEngineClientCommon
    {
    public:
        class CNetEngineMethodCaller
        {
        public:
            // Sends `json`; with a document, waits for the reply and parses it into it.
            virtual bool DoCall(const char* json, Json::Document* document) = 0;
            virtual ~CNetEngineMethodCaller() = default;
        };
    };

    class CEngineClientRPC : public CEngineClientCommon::CNetEngineMethodCaller
    {
    public:
        // Called every few milliseconds while a reply is awaited.
        typedef IFrameWaitCallback IWaitCallback;

        CEngineClientRPC() = default;
        ~CEngineClientRPC() override;
        CEngineClientRPC(const CEngineClientRPC&) = delete;
        CEngineClientRPC& operator=(const CEngineClientRPC&) = delete;

        // One attempt; "Unable to connect to interface!" and false on failure.
        bool Connect(const char* address, int port);
        bool IsConnected() const { return m_pSocket != nullptr; }

        // False when the frame could not be sent, or, with a document, when no reply came
        // (see GetLastStatus) or it was not JSON. A void method sends no reply: call it
        // without a document.
        bool DoCall(const char* json, Json::Document* document) override;

        // Sends the goodbye frame and lets the connection go; frees the wait callback.
        void Disconnect();

        // Takes ownership; null removes it.
        void SetWaitCallback(IWaitCallback* callback);
        // Limit on the wait for a reply in milliseconds; 0 waits without limit.
        void SetTimeout(unsigned int ms) { m_uTimeoutMs = ms; }

        // Frame-level access, for clients that pace their own exchange.
        bool SendFrame(const char* text, uint32_t length);
        bool SendGoodbye();
        // The next frame into `body` (zero-terminated).
        FrameStatus ReadFrame(ZemRenderer::TArray<char>& body);

        FrameStatus GetLastStatus() const { return m_eLastStatus; }

    private:
        Common::TcpSocket* m_pSocket = nullptr;
        IWaitCallback* m_pWaitCallback = nullptr;
        unsigned int m_uTimeoutMs = 0;
        FrameStatus m_eLastStatus = FrameStatus::Ok;
        ZemRenderer::TArray<char> m_aSendBuffer;
        ZemRenderer::TArray<char> m_aReply;
    };
}

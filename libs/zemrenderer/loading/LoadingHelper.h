#pragma once
// The middle of the load road: the resolved file into memory on the loading thread, then
// a ProcessT to the process thread.
#include <utility>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/loading/ProcessT.h"
#include "zemrenderer/thread/ProcessThread.h"

namespace ZemRenderer
{
    template <int Variant, class T>
    struct LoadingHelper;

    template <class T>
    struct LoadingHelper<0, T>
    {
        // False, with the ticket untouched, when the file cannot be read or no process
        // thread takes the work; else the ticket has gone on with the bytes.
        static bool Load(const char* path, LoadTicket<T>& ticket, bool skipData, RenderThread* context)
        {
            IOSTreamMemory* stream = MEM_NEW(IOSTreamMemory, skipData);
            if (!stream || !stream->OpenToRead(path))
            {
                Common::Log("File not found 2: \"%s\"\n", path);
                MEM_DELETE(stream);
                return false;
            }
            ProcessThread* processor = context ? context->GetProcessor() : nullptr;
            if (!processor || !processor->IsAcceptingWork())
            {
                MEM_DELETE(stream);
                return false;
            }
            QueryPtr query = ticket.spQuery;
            ProcessT<T>* worker = ProcessT<T>::New(std::move(ticket), stream);
            if (!worker)
            {
                MEM_DELETE(stream);
                return false;
            }
            // The request's query runs with the process step; a refused worker is
            // cancelled, which ends the ticket.
            if (query) processor->SetQuery(query);
            processor->AddWorkBatched(worker);
            return true;
        }
    };
}

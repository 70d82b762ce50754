#pragma once

#include <memory>

#include "veltra/engine/request_records.h"

/** Tells whether a handler has both its parts, the record and the easy handle. */
inline bool IsComplete(const _REQ_HANDLER_t* ptReqHandler)
{
    return ptReqHandler != nullptr && ptReqHandler->ptReqInfo != nullptr && ptReqHandler->pEasyHandle != nullptr;
}

/** Frees the handler of an asynchronous transfer, its record and its easy handle. All three are on the heap. */
struct REQ_HANDLER_DELETER_t
{
    void operator()(_REQ_HANDLER_t* ptReqHandler) const
    {
        if (ptReqHandler->eReqType == REQ_TYPE_HTTP)
        {
            delete static_cast<_HTTP_REQ_INFO_t*>(ptReqHandler->ptReqInfo);
        }
        else
        {
            delete static_cast<_HTTP_REQ_FILE_t*>(ptReqHandler->ptReqInfo);
        }
        delete ptReqHandler->pEasyHandle;
        delete ptReqHandler;
    }
};

/** Owns the handler of an asynchronous transfer until m_SubmitRequest() hands it over to the worker. */
typedef std::unique_ptr<_REQ_HANDLER_t, REQ_HANDLER_DELETER_t> REQ_HANDLER_PTR_t;

#pragma once

#include <list>
#include <optional>

#include "veltra/engine/request_records.h"

/**
 * One transfer as the engine has it: the handler with what it points to, and its place in the request list. That of a
 * synchronous operation lives on its stack, over a record that belongs to somebody else.
 */
struct TRANSFER_t : _REQ_HANDLER_t
{
    TRANSFER_t(REQ_TYPE_e eType, void* pRecord) : _REQ_HANDLER_t{eType, &tEasyHandle, pRecord} {}
    TRANSFER_t(const TRANSFER_t&) = delete;
    TRANSFER_t& operator=(const TRANSFER_t&) = delete;

    /**
     * The transfer that a handler is the beginning of; null for a handler that the engine has not made, which alone
     * does not have its easy handle right behind it.
     */
    static TRANSFER_t* Of(_REQ_HANDLER_t* ptReqHandler)
    {
        auto* ptTransfer = static_cast<TRANSFER_t*>(ptReqHandler);
        const bool bOwn = ptReqHandler != nullptr && ptReqHandler->pEasyHandle == &ptTransfer->tEasyHandle;
        return bOwn ? ptTransfer : nullptr;
    }

    WQCurl::WQCurlEasy tEasyHandle;
    std::optional<std::list<_REQ_HANDLER_t*>::iterator> itListed = std::nullopt; /**< unless it is not listed */
};

/** A transfer with its record: one that the worker owns from m_SubmitRequest() to m_RemoveRequest(). */
template <class RECORD, REQ_TYPE_e TYPE> struct OWNED_TRANSFER_t : TRANSFER_t
{
    OWNED_TRANSFER_t() : TRANSFER_t(TYPE, &tRecord) {}
    // NOLINTNEXTLINE(modernize-pass-by-value): the original stays its owner's, so that there is a copy to be made
    explicit OWNED_TRANSFER_t(const RECORD& tOriginal) : TRANSFER_t(TYPE, &tRecord), tRecord(tOriginal) {}

    RECORD tRecord;
};

typedef OWNED_TRANSFER_t<_HTTP_REQ_INFO_t, REQ_TYPE_HTTP> ASYNC_REQUEST_t;
typedef OWNED_TRANSFER_t<_HTTP_REQ_FILE_t, REQ_TYPE_DOWNLOAD> ASYNC_DOWNLOAD_t;

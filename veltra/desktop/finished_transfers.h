#pragma once

#include <vector>

#include "veltra/platform/wqcurl.h"

namespace WQCurl
{

/** The messages of finished transfers, in the order of their ends, until InfoRead() returns them. Driving thread only.
 */
class CFinishedTransfers
{
public:
    void Add(WQCurlMulti::MultiMsg tMsg) { m_vecMessages.push_back(std::move(tMsg)); }

    /** Drops the unread message of a transfer. */
    void Remove(const WQCurlEasy* pEasyHandle);

    size_t CountUnread() const { return m_vecMessages.size() - m_nRead; }

    /** Takes out the first message; its handle is null if there is none. */
    WQCurlMulti::MultiMsg Take();

private:
    std::vector<WQCurlMulti::MultiMsg> m_vecMessages;
    size_t m_nRead = 0; /**< so many of them have been taken out */
};

} // namespace WQCurl

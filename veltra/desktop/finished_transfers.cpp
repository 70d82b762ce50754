#include "veltra/desktop/finished_transfers.h"

#include <algorithm>

namespace WQCurl
{

void CFinishedTransfers::Remove(const WQCurlEasy* pEasyHandle)
{
    const auto itUnread = m_vecMessages.begin() + static_cast<std::ptrdiff_t>(m_nRead);
    const auto fnIsIt = [pEasyHandle](const WQCurlMulti::MultiMsg& tMsg) { return tMsg.pEasyHandle == pEasyHandle; };
    m_vecMessages.erase(std::find_if(itUnread, m_vecMessages.end(), fnIsIt));
}

WQCurlMulti::MultiMsg CFinishedTransfers::Take()
{
    if (CountUnread() == 0)
    {
        m_vecMessages.clear();
        m_nRead = 0;
        return {};
    }
    return std::move(m_vecMessages[m_nRead++]);
}

} // namespace WQCurl

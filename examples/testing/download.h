#pragma once

#include <condition_variable>
#include <mutex>
#include <string>

#include "veltra/veltra.h"

/** A download of the manager. The network's failures are retried once. Any thread but the engine's worker. */
class CDownload
{
public:
    struct STATUS_t
    {
        int nStarts = 0;
        int nPercent = 0;
        bool bEnded = false;
        std::string strReason; /**< why it has failed, for the user; empty: it has not */
    };

    /** @param strSha256 the expected checksum; empty: any */
    CDownload(std::string strUrl, std::string strFile, std::string strSha256 = "");

    /** Cancels the download and waits for its end. */
    ~CDownload();

    CDownload(const CDownload&) = delete;
    CDownload& operator=(const CDownload&) = delete;

    /** Starts the download, once. */
    void Start();

    void Cancel();
    STATUS_t Status();

    /** Waits for the end of a download that has been started. */
    STATUS_t Wait();

private:
    static void OnEvent(int nId, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pThis);

    bool Begin();
    void End(const std::string& strReason);
    void EndFailed();

    const std::string m_strUrl;
    const std::string m_strFile;
    const std::string m_strSha256;
    std::mutex m_tLock;
    std::condition_variable m_tEnded;
    STATUS_t m_tStatus;
    int m_nId = 0; /**< the engine's; a retry has another */
    bool m_bCancelled = false;
};

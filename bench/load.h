#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/resource.h>

/**
 * The work of one client, from its command line: URL REQUESTS IN_FLIGHT CA_FILE [STALLED STALL_URL]. If transfers are
 * to stall, the time counts only when as many others have ended, so that all stalled ones have been started before.
 */
struct LOAD_t
{
    LOAD_t(int nArguments, char* arrArguments[])
    {
        if (nArguments < 5)
        {
            fprintf(stderr, "usage: %s URL REQUESTS IN_FLIGHT CA_FILE [STALLED STALL_URL]\n", arrArguments[0]);
            exit(2);
        }
        strUrl = arrArguments[1];
        nRequests = atol(arrArguments[2]);
        nInFlight = atol(arrArguments[3]);
        strCaFile = arrArguments[4];
        if (nArguments > 6)
        {
            nStalled = atol(arrArguments[5]);
            strStallUrl = arrArguments[6];
        }
    }

    /** Returns the URL of the next transfer. The stalled ones, which never end, come first. */
    const std::string& NextUrl(long nStartedBefore) const { return nStartedBefore < nStalled ? strStallUrl : strUrl; }

    std::string strUrl;
    long nRequests = 0;
    long nInFlight = 0;
    std::string strCaFile;
    long nStalled = 0;
    std::string strStallUrl;
};

/** Measures from its construction to Report(), which prints seconds, CPU seconds and peak KiB above the start. */
class CMeasure
{
public:
    CMeasure() : m_nKilobytes(PeakKilobytes()), m_dCpu(CpuSeconds()), m_tStart(std::chrono::steady_clock::now()) {}

    void Report(long nFailed) const
    {
        const std::chrono::duration<double> tTaken = std::chrono::steady_clock::now() - m_tStart;
        printf("%.6f %.6f %ld %ld\n", tTaken.count(), CpuSeconds() - m_dCpu, PeakKilobytes() - m_nKilobytes, nFailed);
        fflush(stdout);
    }

private:
    static double CpuSeconds()
    {
        rusage tUsage{};
        getrusage(RUSAGE_SELF, &tUsage);
        return static_cast<double>(tUsage.ru_utime.tv_sec + tUsage.ru_stime.tv_sec) +
               static_cast<double>(tUsage.ru_utime.tv_usec + tUsage.ru_stime.tv_usec) / 1e6;
    }

    /** Returns this program's own peak: getrusage() also counts the process before exec(). */
    static long PeakKilobytes()
    {
        std::ifstream tStatus("/proc/self/status");
        std::string strLine;
        while (std::getline(tStatus, strLine))
        {
            if (strLine.rfind("VmHWM:", 0) == 0)
            {
                return atol(strLine.c_str() + 6);
            }
        }
        return 0;
    }

    long m_nKilobytes;
    double m_dCpu;
    std::chrono::steady_clock::time_point m_tStart;
};

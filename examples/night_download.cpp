/* Downloads a file at night, and not over a metered network: night_download URL FILE FROM TO
 * FROM and TO are hours of the local time, such as 23 and 6. */

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <gio/gio.h>

#include "veltra/veltra.h"

namespace
{

struct WINDOW_t
{
    long lFrom;
    long lTo;
};

struct OUTCOME_t
{
    GMainLoop* ptLoop;
    bool bStored = false;
};

bool IsOpen(const WINDOW_t& tWindow)
{
    const std::time_t tNow = std::time(nullptr);
    std::tm tLocal{};
    localtime_r(&tNow, &tLocal);
    const bool bAfter = tLocal.tm_hour >= tWindow.lFrom;
    const bool bBefore = tLocal.tm_hour < tWindow.lTo;
    return tWindow.lFrom <= tWindow.lTo ? bAfter && bBefore : bAfter || bBefore; // the second one holds midnight
}

gboolean OnMinute(gpointer pWindow)
{
    const bool bMetered = g_network_monitor_get_network_metered(g_network_monitor_get_default()) != FALSE;
    const bool bGoOn = IsOpen(*static_cast<WINDOW_t*>(pWindow)) && !bMetered;
    WQCurl::SetBandwidth(bGoOn ? -1 : 0);
    return G_SOURCE_CONTINUE;
}

void OnMetered(GNetworkMonitor* /*ptMonitor*/, GParamSpec* /*ptProperty*/, gpointer pWindow)
{
    OnMinute(pWindow);
}

/** Runs on the worker. The main thread's loop does the rest. */
void OnDownload(int /*nDownloadId*/, DOWNLOAD_TYPE_e eType, int /*nPercent*/, double /*dSpeed*/, void* pOutcome)
{
    if (eType != DOWNLOAD_TYPE_PROGRESS)
    {
        auto& tOutcome = *static_cast<OUTCOME_t*>(pOutcome);
        tOutcome.bStored = eType == DOWNLOAD_TYPE_SUCCESS;
        WQCurl::TRANSFER_REPORT_t tReport;
        WQCurl::TransferReport(tReport);
        std::printf("%s %s\n", tOutcome.bStored ? "stored" : "failed:", tReport.strErrorMsg.c_str());
        const auto pfnQuit = [](gpointer pLoop) -> gboolean
        {
            g_main_loop_quit(static_cast<GMainLoop*>(pLoop));
            return G_SOURCE_REMOVE;
        };
        g_idle_add(pfnQuit, tOutcome.ptLoop);
    }
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    constexpr int RETRIES = 5; // the server may close the connection in a pause
    constexpr unsigned SECONDS = 60;
    WQCurl::TRANSFER_SETTINGS_t tSettings;
    tSettings.bFailOnHttpError = true;
    tSettings.nRetries = RETRIES;
    if (nArguments != 5 || !WQCurl::SetTransferDefaults(tSettings))
    {
        static_cast<void>(std::fprintf(stderr, "usage: night_download URL FILE FROM TO\n"));
        return 2;
    }
    WINDOW_t tWindow{std::strtol(arrArguments[3], nullptr, 10), std::strtol(arrArguments[4], nullptr, 10)};
    OUTCOME_t tOutcome{g_main_loop_new(nullptr, FALSE)};
    g_signal_connect(g_network_monitor_get_default(), "notify::network-metered",
                     reinterpret_cast<GCallback>(&OnMetered), &tWindow);
    g_timeout_add_seconds(SECONDS, &OnMinute, &tWindow);
    OnMinute(&tWindow); // before the download

    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    ptEngine->Create();
    const bool bStarted = ptEngine->StartDownload(ptEngine->CreateDownloadId(), arrArguments[1], arrArguments[2],
                                                  &OnDownload, &tOutcome) == 1;
    if (bStarted)
    {
        g_main_loop_run(tOutcome.ptLoop);
    }
    ptEngine->Destroy();
    g_main_loop_unref(tOutcome.ptLoop);
    return tOutcome.bStored ? 0 : 1;
}

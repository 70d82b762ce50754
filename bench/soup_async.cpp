/* libsoup 3: asynchronous GETs on one session. Each end's callback starts the next one. */

#include <libsoup/soup.h>

#include "load.h"

namespace
{

struct RUN_t
{
    const LOAD_t& tLoad;
    SoupSession* pSession;
    GMainLoop* pLoop;
    long nStarted = 0;
    long nEnded = 0;
    long nFailed = 0;

    void StartNext()
    {
        SoupMessage* pMessage = soup_message_new("GET", tLoad.NextUrl(nStarted++).c_str());
        soup_session_send_and_read_async(pSession, pMessage, G_PRIORITY_DEFAULT, nullptr, &OnEnd, this);
        g_object_unref(pMessage);
    }

    static void OnEnd(GObject* pSession, GAsyncResult* pResult, gpointer pRun)
    {
        auto* ptRun = static_cast<RUN_t*>(pRun);
        GBytes* pBody = soup_session_send_and_read_finish(SOUP_SESSION(pSession), pResult, nullptr);
        ptRun->nFailed += pBody == nullptr;
        g_clear_pointer(&pBody, g_bytes_unref);
        if (++ptRun->nEnded == ptRun->tLoad.nRequests)
        {
            g_main_loop_quit(ptRun->pLoop);
        }
        else if (ptRun->nStarted - ptRun->tLoad.nStalled < ptRun->tLoad.nRequests)
        {
            ptRun->StartNext();
        }
    }
};

} // namespace

int main(int nArguments, char* arrArguments[])
{
    const LOAD_t tLoad(nArguments, arrArguments);
    const int nConnections = static_cast<int>(tLoad.nInFlight + tLoad.nStalled);
    GTlsDatabase* pTrusted = g_tls_file_database_new(tLoad.strCaFile.c_str(), nullptr);
    SoupSession* pSession = soup_session_new_with_options("max-conns", nConnections, "max-conns-per-host", nConnections,
                                                          "tls-database", pTrusted, nullptr);
    RUN_t tRun{tLoad, pSession, g_main_loop_new(nullptr, FALSE), 0, 0, 0};
    const CMeasure tMeasure;
    for (int i = 0; i < nConnections; ++i)
    {
        tRun.StartNext();
    }
    g_main_loop_run(tRun.pLoop);
    tMeasure.Report(tRun.nFailed);
    return 0;
}

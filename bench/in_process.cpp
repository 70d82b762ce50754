/* Measures code without a network: the readers, the registry, and a log record that is dropped. */

#include <benchmark/benchmark.h>
#include <future>

#include "veltra/veltra.h"

namespace
{

void Silence()
{
    CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
}

void ReadInformation(benchmark::State& tState)
{
    Silence();
    std::string strXml = "<emplist>";
    std::vector<std::string> vecWanted;
    for (long i = 0; i < tState.range(0); ++i)
    {
        vecWanted.push_back("emp" + std::to_string(i));
        strXml += "<file id='" + vecWanted.back() + "' name='An application' version='1.0.2' url='https://server/" +
                  vecWanted.back() + "' size='1048576' type='app' boot='no'><signature>0123456789</signature></file>";
    }
    strXml += "</emplist>";
    for (auto _ : tState)
    {
        std::map<std::string, APPBIN_SERVER_INFO_t> mapInfo;
        CXmlParser().ParseAppBinaryServerInfoXml(strXml, mapInfo, vecWanted);
        benchmark::DoNotOptimize(mapInfo);
    }
}
BENCHMARK(ReadInformation)->RangeMultiplier(10)->Range(100, 100000);

/* libcurl refuses this scheme at once, so that set-up, hand-over, registry and callback are measured. */
void SubmitAndFinish(benchmark::State& tState)
{
    Silence();
    CWebConnector tEngine;
    tEngine.Create();
    for (auto _ : tState)
    {
        std::promise<void> tEnded;
        _HTTP_REQ_INFO_t tRequest;
        tRequest.eMethod = HTTP_METHOD_GET;
        tRequest.strUrl = "refused://host/";
        tRequest.pUserData = &tEnded;
        tRequest.pfnRequestCB = [](bool, std::string&, std::string&, void* pEnded)
        { static_cast<std::promise<void>*>(pEnded)->set_value(); };
        tEngine.Get(&tRequest, false);
        tEnded.get_future().wait();
    }
}
BENCHMARK(SubmitAndFinish)->UseRealTime();

void RecordBelowThreshold(benchmark::State& tState)
{
    for (auto _ : tState)
    {
        CKVRDebug::PrintLog(4, "%s", "nobody reads this");
    }
}
BENCHMARK(RecordBelowThreshold);

} // namespace

BENCHMARK_MAIN();

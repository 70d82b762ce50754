/* Tests how the download manager deals with seven failures. It needs no server and no network. */

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "download.h"
#include "veltra/scripted/scripted_web.h"

namespace
{

const std::string URL = "https://files.example/film";
const SCRIPTED_ANSWER_t FILM{200, {"Content-Type: video/mp4"}, "twenty bytes of film"};
const std::string SHA256_OF_NOTHING = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

std::string g_strFile;
int g_nFaults = 0;

void Expect(const char* pszSubject, const std::string& strExpected, const std::string& strFound)
{
    if (strFound != strExpected)
    {
        ++g_nFaults;
        std::printf("  %s: \"%s\" instead of \"%s\"\n", pszSubject, strFound.c_str(), strExpected.c_str());
    }
}

void Expect(const char* pszSubject, int nExpected, size_t nFound)
{
    Expect(pszSubject, std::to_string(nExpected), std::to_string(nFound));
}

/** Checks how a download has ended. A failed one must leave the old file and no temporary file. */
void ExpectEnd(const CDownload::STATUS_t& tStatus, const std::string& strReason, int nStarts)
{
    Expect("reason", strReason, tStatus.strReason);
    Expect("starts", nStarts, static_cast<size_t>(tStatus.nStarts));
    std::ifstream tFile(g_strFile);
    const std::string strContent(std::istreambuf_iterator<char>(tFile), {});
    Expect("file", strReason.empty() ? FILM.strBody : "old", strContent);
    Expect("temporary files", 0, std::filesystem::exists(g_strFile + ".bak") ? 1 : 0);
}

CDownload::STATUS_t Run(const std::string& strSha256 = "")
{
    CDownload tDownload(URL, g_strFile, strSha256);
    tDownload.Start();
    return tDownload.Wait();
}

void NotFound(CScriptedWeb& tWeb)
{
    tWeb.Answer(URL, {404, {}, "No such film"});
    ExpectEnd(Run(), "The server answers with the status 404", 1);
}

void Refused(CScriptedWeb& tWeb)
{
    tWeb.Fail(URL, 7, "Connection refused");
    ExpectEnd(Run(), "The server cannot be reached", 2);
    Expect("requests", 2, tWeb.Requests().size());
}

void HalfAFile(CScriptedWeb& tWeb)
{
    tWeb.Fail(URL, 18, "The server closes the connection", FILM, 10);
    tWeb.Answer(URL, FILM);
    ExpectEnd(Run(), "", 2);
}

void Cancelled(CScriptedWeb& tWeb)
{
    tWeb.Answer(URL, FILM);
    tWeb.Hold(URL, 10);
    CDownload tDownload(URL, g_strFile);
    tDownload.Start();
    Expect("held transfers", 1, tWeb.WaitUntilHeld(URL) ? 1 : 0);
    Expect("percent", 50, static_cast<size_t>(tDownload.Status().nPercent));
    tDownload.Cancel();
    tWeb.Release(URL); // otherwise a download that nobody has cancelled would wait here
    ExpectEnd(tDownload.Wait(), "Cancelled", 1);
}

void FullDisk(CScriptedWeb& tWeb)
{
    tWeb.Answer(URL, FILM);
    tWeb.RefuseWrites(URL);
    ExpectEnd(Run(), "The disk is full", 1);
}

void TimeOut(CScriptedWeb& tWeb)
{
    tWeb.Fail(URL, 28, "Operation timed out");
    ExpectEnd(Run(), "The server is too slow", 2);
}

void WrongChecksum(CScriptedWeb& tWeb)
{
    tWeb.Answer(URL, FILM);
    ExpectEnd(Run(SHA256_OF_NOTHING), "The file is damaged", 1);
}

} // namespace

int main()
{
    constexpr std::pair<const char*, void (*)(CScriptedWeb&)> TESTS[] = {
        {"404", &NotFound},
        {"refused connection", &Refused},
        {"half a file", &HalfAFile},
        {"cancelled", &Cancelled},
        {"full disk", &FullDisk},
        {"time-out", &TimeOut},
        {"wrong checksum", &WrongChecksum},
    };
    CSingleton<CWebConnector>::GetInstance()->Create();
    std::string strFolder = (std::filesystem::temp_directory_path() / "download_test.XXXXXX").string();
    g_strFile = std::string(mkdtemp(strFolder.data())) + "/film";
    for (const auto& [pszName, pfnTest] : TESTS)
    {
        std::printf("%s\n", pszName);
        std::ofstream(g_strFile) << "old";
        CScriptedWeb tWeb;
        pfnTest(tWeb);
    }
    CSingleton<CWebConnector>::GetInstance()->Destroy();
    std::filesystem::remove_all(strFolder);
    std::printf("%d faults\n", g_nFaults);
    return g_nFaults == 0 ? 0 : 1;
}

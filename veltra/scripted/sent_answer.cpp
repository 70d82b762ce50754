#include "veltra/scripted/sent_answer.h"

#include <charconv>
#include <curl/curl.h>

namespace
{

constexpr std::string_view CONTENT_LENGTH = "Content-Length:";

bool HasName(const std::string& strLine, std::string_view strName)
{
    return curl_strnequal(strLine.c_str(), strName.data(), strName.size()) != 0;
}

/** Returns the number with which a text begins; -1 if it begins with none. */
long long Number(std::string_view strText)
{
    long long nNumber = -1;
    std::from_chars(strText.data(), strText.data() + strText.size(), nNumber);
    return nNumber;
}

/** Returns from which byte on the rest of the body answers the request; 0 if the whole answer does. */
size_t FirstByte(const SCRIPTED_ANSWER_t& tAnswer, const std::list<std::string>& lstRequestHeader)
{
    constexpr std::string_view UNIT = "bytes=";
    const std::string strRange = HeaderValue(lstRequestHeader, "Range:");
    const std::string strVersion = HeaderValue(lstRequestHeader, "If-Range:");
    const bool bSameVersion = !strVersion.empty() && (strVersion == HeaderValue(tAnswer.lstHeader, "ETag:") ||
                                                      strVersion == HeaderValue(tAnswer.lstHeader, "Last-Modified:"));
    if (tAnswer.nStatus != 200 || !bSameVersion || strRange.compare(0, UNIT.size(), UNIT) != 0)
    {
        return 0;
    }
    const long long nFirst = Number(std::string_view(strRange).substr(UNIT.size()));
    return nFirst > 0 && static_cast<size_t>(nFirst) < tAnswer.strBody.size() ? static_cast<size_t>(nFirst) : 0;
}

/** Makes the answer the rest of the body, from this byte on. */
void KeepRest(SENT_ANSWER_t& tSent, size_t nFirst)
{
    const std::string strSize = std::to_string(tSent.strBody.size());
    const std::string strLast = std::to_string(tSent.strBody.size() - 1);
    tSent.nStatus = 206;
    tSent.lstHeader.remove_if([](const std::string& strLine) { return HasName(strLine, CONTENT_LENGTH); });
    tSent.lstHeader.push_back("Content-Range: bytes " + std::to_string(nFirst) + "-" + strLast + "/" + strSize);
    tSent.strBody.remove_prefix(nFirst);
}

} // namespace

std::string HeaderValue(const std::list<std::string>& lstHeader, std::string_view strName)
{
    for (const std::string& strLine : lstHeader)
    {
        if (HasName(strLine, strName))
        {
            return strLine.substr(std::min(strLine.find_first_not_of(" \t", strName.size()), strLine.size()));
        }
    }
    return "";
}

SENT_ANSWER_t MakeAnswer(const SCRIPTED_ANSWER_t& tAnswer, const std::list<std::string>& lstRequestHeader)
{
    const bool bWithoutBody = tAnswer.nStatus == 204 || tAnswer.nStatus == 304;
    SENT_ANSWER_t tSent{tAnswer.nStatus, tAnswer.lstHeader, bWithoutBody ? std::string_view() : tAnswer.strBody, -1};
    const size_t nFirst = FirstByte(tAnswer, lstRequestHeader);
    if (nFirst > 0)
    {
        KeepRest(tSent, nFirst);
    }
    if (bWithoutBody || !HeaderValue(tSent.lstHeader, "Transfer-Encoding:").empty())
    {
        return tSent;
    }
    if (HeaderValue(tSent.lstHeader, CONTENT_LENGTH).empty())
    {
        tSent.lstHeader.push_back("Content-Length: " + std::to_string(tSent.strBody.size()));
    }
    tSent.nLength = Number(HeaderValue(tSent.lstHeader, CONTENT_LENGTH));
    if (tSent.nLength >= 0 && static_cast<unsigned long long>(tSent.nLength) < tSent.strBody.size())
    {
        tSent.strBody = tSent.strBody.substr(0, static_cast<size_t>(tSent.nLength));
    }
    return tSent;
}

#include "veltra/scripted/scripted_web.h"

#include "veltra/scripted/scripted_url.h"
#include "veltra/scripted/scripts.h"

namespace
{

std::string Key(const std::string& strUrl)
{
    return SCRIPTED_URL_t(strUrl).strKey;
}

size_t Size(long long nBytes)
{
    return nBytes > 0 ? static_cast<size_t>(nBytes) : 0;
}

} // namespace

CScriptedWeb::CScriptedWeb() : m_ptScripts(std::make_shared<CScripts>())
{
    CScripts::Open(m_ptScripts);
}

CScriptedWeb::~CScriptedWeb()
{
    CScripts::Close(m_ptScripts);
}

void CScriptedWeb::Answer(const std::string& strUrl, const SCRIPTED_ANSWER_t& tAnswer)
{
    m_ptScripts->Add(Key(strUrl), {tAnswer, 0, "", 0});
}

void CScriptedWeb::Fail(const std::string& strUrl, int nResultCode, const std::string& strErrorMsg)
{
    m_ptScripts->Add(Key(strUrl), {std::nullopt, nResultCode, strErrorMsg, 0});
}

void CScriptedWeb::Fail(const std::string& strUrl, int nResultCode, const std::string& strErrorMsg,
                        const SCRIPTED_ANSWER_t& tAnswer, long long nAfterBytes)
{
    m_ptScripts->Add(Key(strUrl), {tAnswer, nResultCode, strErrorMsg, Size(nAfterBytes)});
}

void CScriptedWeb::Hold(const std::string& strUrl, long long nAfterBytes)
{
    m_ptScripts->Hold(Key(strUrl), Size(nAfterBytes));
}

void CScriptedWeb::Release(const std::string& strUrl)
{
    m_ptScripts->Release(Key(strUrl));
}

bool CScriptedWeb::WaitUntilHeld(const std::string& strUrl)
{
    return m_ptScripts->WaitUntilHeld(Key(strUrl));
}

void CScriptedWeb::RefuseWrites(const std::string& strUrl)
{
    m_ptScripts->RefuseWrites(Key(strUrl));
}

std::list<SCRIPTED_REQUEST_t> CScriptedWeb::Requests() const
{
    return m_ptScripts->Requests();
}

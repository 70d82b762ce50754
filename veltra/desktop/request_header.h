#pragma once

#include "veltra/desktop/curl_ptr.h"

namespace WQCurl
{

/**
 * Builds the header lines of a request. A line of the settings gives way to the request's own line of the same name.
 * @param pOwn the request's own lines
 * @param strIfRange the version of the file whose rest is requested; empty for a request of the whole
 * @return false without memory
 */
bool BuildRequestHeader(const curl_slist* pOwn, const std::list<std::string>& lstSettings,
                        const std::string& strIfRange, SLIST_PTR_t& pResult);

} // namespace WQCurl

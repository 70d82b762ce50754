#pragma once

#include <string>

/** One app binary, as an information document describes it. Texts are unchanged; a missing one is empty. */
struct APPBIN_SERVER_INFO_t
{
    std::string strId; /**< identifier, also the key that the record is stored under */
    std::string strName;
    std::string strVersion;
    std::string strUrl;
    std::string strSize; /**< as text, not checked to be a number */
    std::string strSignature;
    std::string strType;
    std::string strBoot; /**< "yes" marks a default entry */
};

#pragma once

#include <string>

/** One app binary, as an information document describes it. Texts are unchanged; a missing one is empty. */
struct APPBIN_SERVER_INFO_t
{
    std::string strId{};        /**< identifier, also the key that the record is stored under */
    std::string strName{};      /**< what to call it */
    std::string strVersion{};   /**< its version, in the server's own form */
    std::string strUrl{};       /**< where to download it; neither the scheme nor the host is checked */
    std::string strSize{};      /**< as text, not checked to be a number */
    std::string strSignature{}; /**< text of the "signature" element; not verified */
    std::string strType{};      /**< its kind, in the server's own words */
    std::string strBoot{};      /**< "yes" marks a default entry */
};

#pragma once

#include <string>

/** One app binary, as an information document describes it. Texts are unchanged; a missing one is empty. */
struct APPBIN_SERVER_INFO_t
{
    std::string strId{};        /**< the identifier, which is also the record's key in the map */
    std::string strName{};      /**< the display name */
    std::string strVersion{};   /**< the version, in the server's own form */
    std::string strUrl{};       /**< the download URL; neither scheme nor host is checked */
    std::string strSize{};      /**< the size as text, which may be no number */
    std::string strSignature{}; /**< the text of the "signature" element; not verified */
    std::string strType{};      /**< the kind, in the server's own words */
    std::string strBoot{};      /**< "yes" marks a default entry */
};

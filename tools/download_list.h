#pragma once

#include <string>
#include <vector>

#include "download.h"

/**
 * Reads a list of downloads. Blank lines and lines that begin with "#" are skipped.
 * @param strBaseUrl empty: each line is "URL FILE [SIZE] [SHA256]". Otherwise each line is one of sha256sum(1), and the
 * URL of its file is this one with the file's name; a name must not leave the working folder
 * @param vecDownload receives the downloads
 * @return the fault of the list; empty: none
 */
std::string ParseDownloadList(const std::string& strList, const std::string& strBaseUrl,
                              std::vector<DOWNLOAD_t>& vecDownload);

#pragma once

#include <string>

/**
 * Reads a whole file.
 * @param strPath "-": standard input
 * @return errno of a failure; 0: none
 */
int ReadContent(const std::string& strPath, std::string& strContent);

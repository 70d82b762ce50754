#pragma once

#include <string>

/** Removes user and password from a URL or a proxy, even if it is malformed. */
std::string WithoutCredentials(const std::string& strUrl);

/** @return the host of a URL, an IPv6 address without brackets; empty: none */
std::string HostOf(const std::string& strUrl);

/** @return "SCHEME://HOST:PORT/" of a URL; empty if it has no host */
std::string OriginOf(const std::string& strUrl);

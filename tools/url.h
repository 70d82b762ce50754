#pragma once

#include <string>

/** A URL, or a proxy, as messages show it: without user and password, even if it is malformed. */
std::string WithoutCredentials(const std::string& strUrl);

/** The host of a URL as it is looked up: in ASCII, an IPv6 address without brackets; empty when it names none. */
std::string HostOf(const std::string& strUrl);

/** "SCHEME://HOST:PORT/" of a URL, without anything else of it; empty when it names no host. */
std::string OriginOf(const std::string& strUrl);

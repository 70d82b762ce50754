#pragma once

/**
 * @file
 * Everything an application needs: the engine with its requests and downloads, the server queries, the XML
 * readers, and the platform settings (log, device identity, CA bundle, storage).
 */

#include "veltra/engine/web_connector.h"
#include "veltra/platform/ai_auth.h"
#include "veltra/platform/kvr_debug.h"
#include "veltra/platform/storage.h"
#include "veltra/platform/wqcurl.h"
#include "veltra/query/http_request.h"
#include "veltra/query/ic_veltra.h"
#include "veltra/version.h"
#include "veltra/xml/appbin_server_info.h"
#include "veltra/xml/xml_parser.h"

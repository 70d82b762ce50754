#pragma once

/**
 * @file
 * Everything an application needs: the engine with its requests and downloads, the server queries, the XML readers, the
 * log and the device's identity, and the desktop platform's settings, reports, network and storage.
 */

#include "veltra/desktop/log_sinks.h"
#include "veltra/desktop/network.h"
#include "veltra/desktop/storage.h"
#include "veltra/desktop/transfer_report.h"
#include "veltra/desktop/transfer_settings.h"
#include "veltra/engine/web_connector.h"
#include "veltra/platform/ai_auth.h"
#include "veltra/platform/kvr_debug.h"
#include "veltra/query/http_request.h"
#include "veltra/query/ic_veltra.h"
#include "veltra/version.h"
#include "veltra/xml/appbin_server_info.h"
#include "veltra/xml/xml_parser.h"

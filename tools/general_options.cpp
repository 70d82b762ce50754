#include "general_options.h"

#include <climits>

#include "option_values.h"

namespace
{

constexpr long long DEFAULT_LARGEST_ANSWER = 64000000; /* bytes: an answer is kept in memory */

void AddTransferOptions(CLI::App& tApp, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    tApp.option_defaults()->group("Transfers");
    tTransfer.strUserAgent = "veltra/" VELTRA_VERSION;
    tTransfer.nLargestAnswer = DEFAULT_LARGEST_ANSWER;
    tApp.add_option_function<long long>(
            "--max-size",
            [&tTransfer](const long long& nBytes) { tTransfer.nLargestAnswer = tTransfer.nLargestFile = nBytes; },
            "Fail with a larger answer or file, such as 20M or 1G; by default with an answer above 64M")
        ->type_name("BYTES")
        ->transform(Bytes(1));
}

void AddConnectionOptions(CLI::App& tApp, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    tApp.option_defaults()->group("Connections");
    AddValue(tApp, "--cacert", tTransfer.strCaFile, "FILE", ReadableFile(), "CA bundle to trust, not the system's");
    AddValue(tApp, "--capath", tTransfer.strCaFolder, "FOLDER", ReadableFile(), "Hashed folder of CA certificates");
    tApp.add_option("--client-cert", tTransfer.strClientCertificate, "The client's certificate")->type_name("FILE|URI");
    tApp.add_option("--client-key", tTransfer.strClientKey, "Its key, if it is in another file")->type_name("FILE|URI");
    AddValue(tApp, "--connect-to", tTransfer.lstConnectTo, "HOST:PORT:CHOST:CPORT", ConnectTo(),
             "Connect to another server for one host; repeatable")
        ->allow_extra_args(false);
    AddValue(tApp, "--proxy", tTransfer.strProxy, "[SCHEME://][USER:PASSWORD@]HOST[:PORT]", Proxy(),
             "A proxy for all hosts");
    tApp.add_flag("--http2", tTransfer.bHttp2, "Use HTTP/2 with https servers that support it");
    CLI::Option* pIpv4 = tApp.add_flag_callback(
        "--ipv4", [&tTransfer] { tTransfer.eIpFamily = WQCurl::IP_FAMILY_4; }, "Use IPv4 only");
    tApp.add_flag_callback(
            "--ipv6", [&tTransfer] { tTransfer.eIpFamily = WQCurl::IP_FAMILY_6; }, "Use IPv6 only")
        ->excludes(pIpv4);
    AddValue(tApp, "--connect-timeout", tTransfer.nConnectTimeout, "SECONDS", Number(1, 86400),
             "Time limit for look-up, TCP and TLS together")
        ->capture_default_str();
    AddValue(tApp, "--max-connections", tTransfer.nMostConnections, "N", Number(0, INT_MAX),
             "Connections at the same time; 0: any number");
    AddValue(tApp, "--max-per-host", tTransfer.nMostConnectionsPerHost, "N", Number(0, INT_MAX),
             "The same for each host");
}

/** Must follow the connection options: --connect-to replaces the list that --query-host extends. */
void AddQueryOptions(CLI::App& tApp, OPTIONS_t& tOptions)
{
    DEVICE_IDENTITY_t& tIdentity = tOptions.tIdentity;
    tApp.option_defaults()->group("Device identity");
    AddValue(tApp, "--chipset", tIdentity.strChipset, "TEXT", Line(), "Chipset name; queries require it");
    AddValue(tApp, "--duid", tIdentity.strDUID, "TEXT", Line(), "Unique identifier");
    AddValue(tApp, "--mac", tIdentity.strMAC, "TEXT", Line(), "MAC address");
    AddValue(tApp, "--country", tIdentity.strCountryCode, "TEXT", Line(), "Country code");
    AddValue(tApp, "--model", tIdentity.strModelID, "TEXT", Line(), "Model identifier");
    AddValue(tApp, "--server-type", tIdentity.nServerType, "INT", Number(INT_MIN, INT_MAX),
             "0: the production service; others: the test service");
    const auto fnConnect = [&tOptions](const std::string& strHost)
    {
        const bool bPort = strHost.find(':', strHost.rfind(']') + 1) != std::string::npos;
        for (const char* pszHost : {VELTRA_QUERY_HOST, VELTRA_QUERY_HOST_TEST})
        {
            tOptions.tTransfer.lstConnectTo.push_front(std::string(pszHost) + ":443:" + strHost +
                                                       (bPort ? "" : ":443"));
        }
    };
    tApp.add_option_function<std::string>(
            "--query-host", fnConnect,
            "Connect here for the query service; the certificate must be for the service's own name")
        ->type_name("HOST[:PORT]")
        ->check(HostAndPort());
}

} // namespace

void AddGeneralOptions(CLI::App& tApp, OPTIONS_t& tOptions)
{
    const std::string strGroup = tApp.option_defaults()->get_group();
    tApp.add_flag("-v", tOptions.bVerbose, "Print the library's log on standard error");
    AddConnectionOptions(tApp, tOptions.tTransfer);
    AddTransferOptions(tApp, tOptions.tTransfer);
    AddQueryOptions(tApp, tOptions);
    tApp.option_defaults()->group(strGroup);
}

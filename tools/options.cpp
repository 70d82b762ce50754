#include "options.h"

#include <climits>
#include <glib.h>

namespace
{

constexpr long long DEFAULT_LARGEST_ANSWER = 64000000; /* bytes: an answer is kept in memory */

/** A number of bytes, with an optional k, M or G. */
CLI::Validator Bytes()
{
    return CLI::AsSizeValue(true) & CLI::Range(1LL, LLONG_MAX);
}

CLI::Validator Line()
{
    return Matching(R"([^\x00-\x1f\x7f]*)", "holds a control character");
}

/** A proxy that the library accepts. The refusal does not repeat the text: it may hold a password. */
CLI::Validator Proxy()
{
    const auto fnFault = [](const std::string& strText)
    {
        WQCurl::TRANSFER_SETTINGS_t tSettings;
        tSettings.strProxy = strText;
        return WQCurl::CTransferScope(tSettings).IsValid() ? "" : "is no [SCHEME://][USER:PASSWORD@]HOST[:PORT]";
    };
    return {fnFault, ""};
}

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
        ->transform(Bytes().description(""));
}

void AddConnectionOptions(CLI::App& tApp, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    tApp.option_defaults()->group("Connections");
    AddValue(tApp, "--cacert", tTransfer.strCaFile, "FILE", CLI::ExistingFile, "CA bundle to trust, not the system's");
    AddValue(tApp, "--capath", tTransfer.strCaFolder, "FOLDER", CLI::ExistingDirectory,
             "Hashed folder of CA certificates");
    tApp.add_option("--client-cert", tTransfer.strClientCertificate, "The client's certificate")->type_name("FILE|URI");
    tApp.add_option("--client-key", tTransfer.strClientKey, "Its key, if it is in another file")->type_name("FILE|URI");
    AddValue(tApp, "--connect-to", tTransfer.lstConnectTo, "HOST:PORT:CHOST:CPORT",
             Matching(R"((\[[^\]]*\]|[^:\[\]]*):\d{0,5}:(\[[^\]]*\]|[^:\[\]]*):\d{0,5})",
                      "is not of the form HOST:PORT:CONNECT-HOST:CONNECT-PORT"),
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
    AddValue(tApp, "--connect-timeout", tTransfer.nConnectTimeout, "SECONDS", CLI::Range(1, 86400),
             "Time limit for look-up, TCP and TLS together")
        ->capture_default_str();
    AddValue(tApp, "--max-connections", tTransfer.nMostConnections, "N", CLI::Range(0, INT_MAX),
             "Connections at the same time; 0: any number");
    AddValue(tApp, "--max-per-host", tTransfer.nMostConnectionsPerHost, "N", CLI::Range(0, INT_MAX),
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
    tApp.add_option("--server-type", tIdentity.nServerType, "0: the production service; others: the test service");
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
        ->check(Matching(R"((\[[^\]]+\]|[^:\[\]/\s]+)(:\d{1,5})?)", "is no HOST or HOST:PORT"));
}

} // namespace

CLI::Validator Matching(const char* pszPattern, const std::string& strFault, bool bSecret)
{
    const std::string strWhole = std::string("(?:") + pszPattern + ")\\z";
    const auto fnFault = [strWhole, strFault, bSecret](const std::string& strText)
    {
        /* The text may hold any bytes. */
        const bool bMatch =
            g_regex_match_simple(strWhole.c_str(), strText.c_str(), G_REGEX_RAW, G_REGEX_MATCH_ANCHORED) != FALSE;
        return bMatch ? "" : (bSecret ? "" : "'" + strText + "' ") + strFault;
    };
    return {fnFault, ""};
}

CLI::Validator NotEmpty()
{
    return Matching(R"([\s\S]+)", "is empty", true);
}

CLI::Validator Sha256Digits()
{
    return Matching("[0-9A-Fa-f]{64}", "is no SHA-256 of 64 hexadecimal digits");
}

void AddGeneralOptions(CLI::App& tApp, OPTIONS_t& tOptions)
{
    const std::string strGroup = tApp.option_defaults()->get_group();
    tApp.add_flag("-v", tOptions.bVerbose, "Print the library's log on standard error");
    AddConnectionOptions(tApp, tOptions.tTransfer);
    AddTransferOptions(tApp, tOptions.tTransfer);
    AddQueryOptions(tApp, tOptions);
    tApp.option_defaults()->group(strGroup);
}

void AddEntryOptions(CLI::App& tCommand, ENTRY_CHOICE_t& tChoice)
{
    CLI::App& tGroup = *tCommand.add_option_group("Entries")->require_option(1);
    tGroup.add_option("--id", tChoice.vecId, "Entries with these identifiers; repeatable")
        ->type_name("ID[,ID]")
        ->delimiter(',')
        ->allow_extra_args(false);
    tGroup.add_flag("--cert", tChoice.bCert, "The CERT entries");
    tGroup.add_flag("--default", tChoice.bDefault, "The entries that are marked for boot");
}

void AddHeaderOption(CLI::App& tCommand, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    AddValue(tCommand, "-H", tTransfer.lstHeader, "'NAME: VALUE'",
             Matching(R"([^:;\s\x00-\x1f\x7f]+:[^\x00-\x1f\x7f]*)",
                      "is no header line such as 'NAME: VALUE', or holds a control character", true),
             "An additional header line; repeatable")
        ->allow_extra_args(false);
}

void AddLocationFlag(CLI::App& tCommand, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    constexpr int MOST_REDIRECTS = 10;
    tCommand.add_flag_callback(
        "-L,--location", [&tTransfer] { tTransfer.nMostRedirects = MOST_REDIRECTS; }, "Follow up to 10 redirects");
}

void AddRunOptions(CLI::App& tCommand, DOWNLOAD_OPTIONS_t& tOptions, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    constexpr int DEFAULT_RETRIES = 3;
    tTransfer.nRetries = DEFAULT_RETRIES;
    AddHeaderOption(tCommand, tTransfer);
    AddLocationFlag(tCommand, tTransfer);
    AddValue(tCommand, "--retry", tTransfer.nRetries, "N", CLI::Range(0, INT_MAX),
             "Retries in a row of a download that fails for a temporary reason; 0: none")
        ->capture_default_str();
    AddValue(tCommand, "--retry-time", tTransfer.nRetrySeconds, "SECONDS", CLI::Range(0, INT_MAX),
             "Time limit for retries, from the download's start; 0: none");
    AddValue(tCommand, "--jobs", tOptions.nJobs, "N", CLI::Range(1, 1000), "Downloads at the same time")
        ->capture_default_str();
    AddValue(tCommand, "--limit-rate", tOptions.nBandwidth, "BYTES", Bytes(),
             "Bytes a second for all downloads together, such as 64k or 2M");
    tCommand.add_flag("--force", tOptions.bForce, "Take over existing temporary files");
    tCommand.add_flag("--durable", tOptions.bDurable, "Flush each file to storage before it counts as done");
    tCommand.add_flag("-q", tOptions.bQuiet, "Print errors only");
    tCommand.add_flag("--json", tOptions.bJson, "Print JSON, at the end");
    tCommand.add_flag_callback(
        "--no-fail", [&tOptions] { tOptions.bFailOnHttpError = false; }, "Accept every status");
}

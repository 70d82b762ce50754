#include "shared_options.h"

#include <climits>

#include "option_values.h"

void AddFailFlag(CLI::App& tCommand, bool& bFail)
{
    const bool bOther = !bFail;
    tCommand.add_flag_callback(
        bOther ? "--fail" : "--no-fail", [&bFail, bOther] { bFail = bOther; },
        bOther ? "Fail with a redirect or a status of 400 and more" : "Accept every status");
}

void AddEntryOptions(CLI::App& tCommand, ENTRY_CHOICE_t& tChoice)
{
    CLI::Option* pId = tCommand.add_option("--id", tChoice.vecId, "Entries with these identifiers; repeatable")
                           ->type_name("ID[,ID]")
                           ->delimiter(',')
                           ->allow_extra_args(false);
    const auto fnAdd = [&](const char* pszName, ENTRIES_e eEntries, const char* pszDescription)
    {
        const auto fnChoose = [&tChoice, eEntries] { tChoice.eEntries = eEntries; };
        return tCommand.add_flag_callback(pszName, fnChoose, pszDescription)->excludes(pId);
    };
    CLI::Option* pCert = fnAdd("--cert", ENTRIES_CERT, "The CERT entries");
    fnAdd("--default", ENTRIES_DEFAULT, "The entries that are marked for boot")->excludes(pCert);
    const auto fnCheck = [&tChoice]
    {
        if (tChoice.eEntries == ENTRIES_BY_ID && tChoice.vecId.empty())
        {
            throw CLI::ValidationError("one of --id, --cert and --default must say which entries");
        }
    };
    tCommand.parse_complete_callback(fnCheck);
}

void AddHeaderOption(CLI::App& tCommand, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    AddValue(tCommand, "-H", tTransfer.lstHeader, "'NAME: VALUE'", HeaderLine(),
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
    AddValue(tCommand, "--retry", tTransfer.nRetries, "N", Number(0, 1000000),
             "Retries in a row of a download that fails for a temporary reason; 0: none")
        ->capture_default_str();
    AddValue(tCommand, "--retry-time", tTransfer.nRetrySeconds, "SECONDS", Number(0, INT_MAX),
             "Time limit for retries, from the download's start; 0: none");
    AddValue(tCommand, "--jobs", tOptions.nJobs, "N", Number(1, 1000), "Downloads at the same time")
        ->capture_default_str();
    AddValue(tCommand, "--limit-rate", tOptions.nBandwidth, "BYTES", Bytes(1),
             "Bytes a second for all downloads together, such as 64k or 2M");
    tCommand.add_flag("--force", tOptions.bForce, "Take over existing temporary files");
    tCommand.add_flag("--durable", tOptions.bDurable, "Flush each file to storage before it counts as done");
    tCommand.add_flag("-q", tOptions.bQuiet, "Print errors only");
    tCommand.add_flag("--json", tOptions.bJson, "Print JSON, at the end");
    AddFailFlag(tCommand, tOptions.bFailOnHttpError);
}

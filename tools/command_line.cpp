#include "command_line.h"

#include "general_options.h"
#include "messages.h"
#include "url.h"

namespace
{

/** An unknown argument comes first: it is often the cause of a missing one. */
std::string Fault(const CLI::App& tApp, const CLI::ParseError& tError)
{
    const std::vector<std::string> vecUnknown = tApp.remaining(true);
    if (vecUnknown.empty())
    {
        return tError.what();
    }
    const std::string& strUnknown = vecUnknown.front();
    const bool bCommand = tApp.get_subcommands().empty();
    const char* pszKind = bCommand ? "no such command: " : "unexpected argument: ";
    return (strUnknown.front() == '-' && strUnknown != "-" ? "no such option: " : pszKind) +
           WithoutCredentials(strUnknown);
}

void AddCommands(CLI::App& tApp, OPTIONS_t& tOptions, COMMAND_t& fnChosen)
{
    const ADD_COMMAND_t fnAdd = [&](const char* pszName, const char* pszDescription,
                                    const COMMAND_t& fnRun) -> CLI::App&
    {
        CLI::App& tCommand = *tApp.add_subcommand(pszName, pszDescription);
        tCommand.callback([&fnChosen, fnRun] { fnChosen = fnRun; });
        tCommand.footer("The options of 'veltra --help' may follow the command, too.");
        return tCommand;
    };
    AddQueryCommands(fnAdd);
    AddFetchCommand(fnAdd, tOptions.tTransfer);
    AddDoctorCommand(fnAdd);
    AddDownloadCommand(fnAdd, tOptions.tTransfer);
    AddRequestCommands(fnAdd, tOptions.tTransfer);
}

} // namespace

int ParseCommandLine(int argc, char** argv, OPTIONS_t& tOptions, COMMAND_t& fnCommand)
{
    CLI::App tApp("Asks the query service, reads its servers' documents and downloads files.", "veltra");
    tApp.fallthrough();
    tApp.require_subcommand(0, 1);
    tApp.set_version_flag("--version", VELTRA_VERSION);
    AddGeneralOptions(tApp, tOptions);
    AddCommands(tApp, tOptions, fnCommand);
    tApp.footer("Exit status: 0 success, 2 wrong command line, 3 network failure, 4 HTTP status or redirect,\n"
                "5 not the expected size or checksum, 1 other failures.");
    try
    {
        tApp.parse(argc, argv);
    }
    catch (const CLI::ParseError& tError)
    {
        fnCommand = nullptr;
        const std::vector<CLI::App*> vecCommand = tApp.get_subcommands();
        return tError.get_exit_code() == 0
                   ? tApp.exit(tError)
                   : PrintUsageError(Fault(tApp, tError), vecCommand.empty() ? "" : vecCommand.front()->get_name());
    }
    return fnCommand ? 0 : PrintUsageError("a command is missing", "");
}

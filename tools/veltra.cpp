/* The command-line client of the library. */

#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

#include "commands.h"
#include "messages.h"
#include "options.h"
#include "url.h"

namespace
{

/** Opens standard descriptors that the caller has closed. Otherwise a file would get one, and receive messages. */
void OccupyStandardDescriptors()
{
    for (int nFile = 0; nFile >= 0 && nFile <= 2;)
    {
        nFile = open("/dev/null", O_RDONLY | O_CLOEXEC); /* the lowest free descriptor; writing to it fails */
        if (nFile > 2)
        {
            close(nFile);
        }
    }
}

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

void AddCommands(CLI::App& tApp, WQCurl::TRANSFER_SETTINGS_t& tTransfer, COMMAND_t& fnChosen)
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
    AddFetchCommand(fnAdd, tTransfer);
    AddDoctorCommand(fnAdd);
    AddDownloadCommand(fnAdd, tTransfer);
    AddRequestCommands(fnAdd, tTransfer);
}

/** Reads the command line and runs its command. @return the exit status */
int Run(int argc, char** argv)
{
    OPTIONS_t tOptions;
    COMMAND_t fnCommand;
    CLI::App tApp("Asks the query service, reads its servers' documents and downloads files.", "veltra");
    tApp.fallthrough();
    tApp.require_subcommand(0, 1);
    tApp.set_version_flag("--version", VELTRA_VERSION);
    AddGeneralOptions(tApp, tOptions);
    AddCommands(tApp, tOptions.tTransfer, fnCommand);
    tApp.footer("Exit status: 0 success, 2 wrong command line, 3 network failure, 4 HTTP status or redirect,\n"
                "5 not the expected size or checksum, 1 other failures.");
    try
    {
        tApp.parse(argc, argv);
    }
    catch (const CLI::ParseError& tError)
    {
        const std::vector<CLI::App*> vecCommand = tApp.get_subcommands();
        return tError.get_exit_code() == 0
                   ? tApp.exit(tError)
                   : PrintUsageError(Fault(tApp, tError), vecCommand.empty() ? "" : vecCommand.front()->get_name());
    }
    return fnCommand ? fnCommand(tOptions) : PrintUsageError("a command is missing", "");
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        OccupyStandardDescriptors();
        /* A write beyond the limit of a file's size must fail with an error, not end the process. */
        static_cast<void>(signal(SIGXFSZ, SIG_IGN));
        /* International host names need the locale. No other thread runs yet. */
        static_cast<void>(setlocale(LC_CTYPE, "")); // NOLINT(concurrency-mt-unsafe)
        /* Print the bars in one write, so that they do not flicker. */
        static_cast<void>(setvbuf(stdout, nullptr, _IOFBF, 65536));
        const int nStatus = Run(argc, argv);
        const bool bPrinted = fflush(stdout) == 0 && ferror(stdout) == 0;
        return bPrinted || nStatus != 0 ? nStatus : PrintError("standard output", "cannot be written");
    }
    catch (const std::exception& tException)
    {
        return PrintError("cannot go on", tException.what());
    }
}

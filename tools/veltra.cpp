/* The command-line client of the library. */

#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

#include "command_line.h"
#include "messages.h"

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

int Main(int argc, char** argv)
{
    OccupyStandardDescriptors();
    /* A write beyond the limit of a file's size must fail with an error, not end the process. */
    static_cast<void>(signal(SIGXFSZ, SIG_IGN));
    /* International host names need the locale. No other thread runs yet. */
    static_cast<void>(setlocale(LC_CTYPE, "")); // NOLINT(concurrency-mt-unsafe)
    /* Print the bars in one write, so that they do not flicker. */
    static_cast<void>(setvbuf(stdout, nullptr, _IOFBF, 65536));
    OPTIONS_t tOptions;
    COMMAND_t fnCommand;
    int nStatus = ParseCommandLine(argc, argv, tOptions, fnCommand);
    if (fnCommand)
    {
        nStatus = fnCommand(tOptions);
    }
    if ((fflush(stdout) != 0 || ferror(stdout) != 0) && nStatus == 0)
    {
        return PrintError("standard output", "cannot be written");
    }
    return nStatus;
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        return Main(argc, argv);
    }
    catch (const std::exception& tException)
    {
        return PrintError("cannot go on", tException.what());
    }
}

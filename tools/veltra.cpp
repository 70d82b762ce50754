/* The command-line client, over the public API. */

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

/** A descriptor that the caller has closed must not become a file's, into which messages would go. */
void OccupyStandardDescriptors()
{
    for (int nFile = 0; nFile >= 0 && nFile <= 2;)
    {
        nFile = open("/dev/null", O_RDONLY | O_CLOEXEC); /* the lowest that is free; writing to it fails */
        if (nFile > 2)
        {
            close(nFile);
        }
    }
}

int Main(int argc, char** argv)
{
    OccupyStandardDescriptors();
    /* A write beyond the limit of a file's size then fails, and says why. */
    static_cast<void>(signal(SIGXFSZ, SIG_IGN));
    /* For international host names; no other thread runs yet. */
    static_cast<void>(setlocale(LC_CTYPE, "")); // NOLINT(concurrency-mt-unsafe)
    /* So that bars do not flicker. */
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

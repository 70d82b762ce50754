#include "veltra/desktop/storage.h"

#include <cerrno>
#include <fcntl.h>

#include "veltra/desktop/descriptor.h"

namespace
{

bool Sync(const std::string& strPath)
{
    CDescriptor tFile;
    tFile.Reset(open(strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)); // a pipe would wait for its other end
    return tFile.Get() >= 0 && (fsync(tFile.Get()) == 0 || errno == EINVAL);
}

} // namespace

bool SyncToStorage(const std::string& strPath)
{
    const size_t nSlash = strPath.rfind('/');
    return Sync(strPath) && Sync(nSlash == std::string::npos ? "." : strPath.substr(0, nSlash + 1));
}

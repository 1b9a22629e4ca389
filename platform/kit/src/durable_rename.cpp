#include "durable_rename.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace kit {

int RenameWithoutReplacing(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    const bool isUnknownHere = errno == ENOSYS || errno == EINVAL;
    return isUnknownHere ? LinkAndUnlink(from, to) : errno;
}

int LinkAndUnlink(const std::string& from, const std::string& to) {
    if (::link(from.c_str(), to.c_str()) != 0) return errno;
    if (::unlink(from.c_str()) == 0) return 0;
    const int error = errno;
    ::unlink(to.c_str());
    return error;
}

}  // namespace kit

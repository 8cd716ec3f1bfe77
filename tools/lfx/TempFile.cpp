#include "TempFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Errors.h"

namespace lfx {

TempFile::TempFile(std::string finalPath) : finalPath_(std::move(finalPath)) {
    const size_t slash = finalPath_.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : finalPath_.substr(0, slash + 1);
    const std::string name = finalPath_.substr(folder.size());
    if (name.empty()) Fail("cannot write '" + finalPath_ + "': it names a folder");
    std::string pattern = folder + "." + name + ".lfx-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    const int fd = mkstemp(buffer.data());
    if (fd < 0) Fail("cannot write '" + finalPath_ + "': " + std::strerror(errno));
    // mkstemp makes the file private; a finished output gets the usual permissions.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    close(fd);
    path_ = buffer.data();
}

TempFile::~TempFile() {
    if (!committed_) std::remove(path_.c_str());
}

void TempFile::Commit() {
    if (std::rename(path_.c_str(), finalPath_.c_str()) != 0) {
        Fail("cannot move the finished file to '" + finalPath_ + "': " + std::strerror(errno));
    }
    committed_ = true;
}

}  // namespace lfx

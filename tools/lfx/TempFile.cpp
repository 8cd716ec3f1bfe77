#include "TempFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Errors.h"
#include "Signals.h"

namespace lfx {

void ClaimOutput(const std::string& output, const std::string& input, Overwrite overwrite) {
    struct stat target {};
    if (stat(output.c_str(), &target) != 0) return;
    struct stat source {};
    if (!input.empty() && stat(input.c_str(), &source) == 0 && source.st_dev == target.st_dev &&
        source.st_ino == target.st_ino) {
        Fail("'" + output + "' is the input '" + input + "'; write the result to another file");
    }
    const std::string exists = "'" + output + "' exists";
    if (overwrite == Overwrite::Always) return;
    if (overwrite == Overwrite::Never) Fail(exists + " (-n keeps it)");
    if (!isatty(STDIN_FILENO)) {
        Fail(exists + "; -y replaces it (no terminal to ask on)");
    }
    std::fprintf(stderr, "lfx: %s; replace it? [y/N] ", exists.c_str());
    std::fflush(stderr);
    char answer[16] = {};
    if (std::fgets(answer, sizeof answer, stdin) == nullptr ||
        (answer[0] != 'y' && answer[0] != 'Y')) {
        Fail(exists + "; kept it");
    }
}

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
    WatchPartialFile(path_.c_str());
}

TempFile::~TempFile() {
    WatchPartialFile(nullptr);
    if (!committed_) std::remove(path_.c_str());
}

void TempFile::Commit() {
    if (std::rename(path_.c_str(), finalPath_.c_str()) != 0) {
        Fail("cannot move the finished file to '" + finalPath_ + "': " + std::strerror(errno));
    }
    WatchPartialFile(nullptr);
    committed_ = true;
}

}  // namespace lfx

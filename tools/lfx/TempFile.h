// A file that appears under its final name only when complete: it is written under a hidden
// temporary name in the same folder and renamed at the end, or removed on failure.
#pragma once

#include <string>

namespace lfx {

class TempFile {
public:
    // Creates the empty temporary file; throws a UserError when the folder is not writable.
    explicit TempFile(std::string finalPath);
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const std::string& Path() const { return path_; }
    // Moves the file to its final name; throws a UserError when that fails.
    void Commit();

private:
    std::string finalPath_;
    std::string path_;
    bool committed_ = false;
};

}  // namespace lfx

// A file that appears under its final name only when complete: it is written under a hidden
// temporary name in the same folder and renamed at the end, or removed on failure.
#pragma once

#include <string>

namespace lfx {

// What to do when the output already exists.
enum class Overwrite { Ask, Always, Never };

// Throws a UserError when `output` is the file `input` names (by any path) or when it exists and
// may not be replaced: Never refuses, Ask asks on a terminal and refuses when there is none.
void ClaimOutput(const std::string& output, const std::string& input, Overwrite overwrite);

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

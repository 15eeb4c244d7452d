// A directory tree that others may change while it is gone through.
#pragma once

#include <dirent.h>
#include <stddef.h>
#include <string.h>

#include <string_view>

#include "base/text.h"
#include "base/unique.h"

namespace korx {

// A directory's entries but "." and "..".
class Entries {
  public:
    explicit Entries(DIR* directory) : directory_(directory) {}

    // Null behind the last one, and when reading fails.
    const dirent* next();
    // The errno of a failed reading, else 0.
    int error() const { return error_; }

  private:
    DIR* const directory_;
    int error_ = 0;
};

// The paths of a directory's entries, of at most N - 1 characters: the directory's own path, which
// is no longer, is written once, and each name is put behind it.
template <size_t N>
class EntryPaths {
  public:
    // An empty directory is where the paths start: there they are the names.
    explicit EntryPaths(const char* directory) : length_(strlen(directory)) {
        memcpy(text_, directory, length_);
        if (length_ > 0)
            text_[length_++] = '/';
    }
    // Null when it does not fit. It lasts until the next one.
    const char* of(const char* name) {
        return memccpy(text_ + length_, name, '\0', N - length_) == nullptr ? nullptr : text_;
    }

  private:
    char text_[N];
    size_t length_;
};

// A subdirectory for reading; null, with errno, for anything else and for a link to one.
UniqueDir OpenSubdirectory(DIR* directory, const char* name);

// The tree below a start path. A path of the tree is the start path and the components behind it.
// Every directory is entered from the opened start directory, one component after the other and
// never through a link: one that is swapped for a link meanwhile is not entered.
class Tree {
  public:
    [[nodiscard]] bool begin(const char* start);
    const char* start() const { return start_.c_str(); }

    // Null, with errno, when it cannot be opened. The start directory is read by one at a time: its
    // readings share their position.
    UniqueDir open_directory(const char* path);
    // Removes an empty directory. Returns 0 or the errno of what failed.
    int remove_directory(const char* path);

  private:
    bool open_root();
    UniqueFd enter(std::string_view below);
    UniqueFd enter_start();

    DirectoryText start_;
    size_t start_length_ = 0;
    UniqueFd root_;
};

}  // namespace korx

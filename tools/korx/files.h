// Files as several commands open, read, write and keep them.
#pragma once

#include <string>
#include <string_view>

#include "base/directory.h"
#include "base/unique.h"

namespace korx::tool {

// A regular file opened for reading, whatever else may stand there. Throws Failure.
UniqueFd OpenRegular(const std::string& file);

// A whole file from where the descriptor stands, at most limit bytes; the Failure names it file.
std::string ReadWholeFile(const UniqueFd& fd, const std::string& file, size_t limit);

// Both return whether they succeeded; errno says why they did not.
bool WriteAll(int fd, std::string_view text);
// A file's new name is on disk only once its directory is.
bool SyncDirectoryOf(const std::string& path);

}  // namespace korx::tool

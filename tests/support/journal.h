// What a power cut may leave of the files below a directory.
//
// Kept is what a file system without a journal of its own promises, and no more: of what was not
// synced since, each name may lead to whatever it led to, and each file may have the length and, in
// every 512 bytes, the content of any moment. A name and the file that it leads to are synced
// apart. Where there are too many such states some are drawn, always the same.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>

namespace korx::test {

using Disk = std::map<std::string, std::string>;  // contents by path from the directory on

struct Cuts {
    std::set<Disk> ever;   // what a cut may leave at any moment until the operation has ended
    std::set<Disk> after;  // and right after its end
};

// Runs the operation, of one thread. What is there before it is on disk; what it changes is looked
// at before each call of the libraries or the test.
Cuts CutsOf(const std::string& directory, const std::function<void()>& operation);

}  // namespace korx::test

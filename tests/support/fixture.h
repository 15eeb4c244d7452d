// What most tests stand on: a directory of their own to work in, and the ear at the system log.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <iosfwd>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace korx::test {

void WriteFile(const std::string& path, std::string_view content);
std::string ReadFile(const std::string& path);  // empty when there is none
mode_t Mode(const std::string& path);           // permission bits; 0 when there is none
void MakeDirs(const std::string& path);
void RemoveAll(const std::string& path);  // what a test has protected, too
bool Exists(const std::string& path);     // a dangling link exists

// Whether names can be opened without following links in them; emulators may know no such call.
bool HasOpenat2();

// The descriptors that are open: what a call must leave as it found them.
std::set<int> OpenFiles();

// A fresh directory below /tmp, the working directory while it lasts and removed with it. Its name
// has no symbolic links in it.
class TempTree {
  public:
    TempTree();
    ~TempTree();
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    const std::string& root() const { return root_; }
    std::string path(std::string_view name) const { return root_ + "/" + std::string(name); }

  private:
    std::string root_;
    std::string back_;
};

struct SyslogLine {
    int priority;      // LOG_ERR and so on, without the facility
    std::string text;  // exactly as given to syslog, with a trailing newline if there was one

    bool operator==(const SyslogLine&) const = default;
};
std::ostream& operator<<(std::ostream& out, const SyslogLine& line);

// Stands in for the system log daemon at /dev/log. Lines of forked children arrive too, in the
// parent's tap: a child's own copy stays as it was at the fork. For one thread at a time.
//
// The socket's queue holds a dozen lines, then syslog blocks: somebody must read all the time. That
// is a process and not a thread, because a test that forks should have but one thread: the thread
// sanitizer and qemu do not bear threads in children of a threaded process.
class SyslogTap {
  public:
    SyslogTap();
    ~SyslogTap();
    SyslogTap(const SyslogTap&) = delete;
    SyslogTap& operator=(const SyslogTap&) = delete;

    std::vector<SyslogLine> lines();   // all so far
    std::vector<std::string> texts();  // the same without the priorities
    void clear();

  private:
    void fetch();
    void add(std::string_view datagram);

    pid_t owner_ = 0;
    pid_t reader_ = 0;
    int sender_ = -1;  // a client of /dev/log, for the question that lines() asks
    int heard_ = -1;   // the file that the reader fills
    off_t fetched_ = 0;
    int control_ = -1;  // here the reader answers
    std::vector<SyslogLine> lines_;
};

struct RoomTest : ::testing::Test {
    TempTree tree;
    SyslogTap syslog;
};

}  // namespace korx::test

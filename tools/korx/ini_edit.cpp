// The same steps as the library's save, because both kinds of writer may meet at one file. Lock
// order: F.lock, the library's mutex, F+, F.
#include "ini_edit.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "common.h"
#include "ini_lines.h"
#include "korx/fs.h"
#include "korx/ini.h"
#include "profile.h"

namespace korx::tool {
namespace {

class Fd {
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0)
            close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

class MutexHolder {
  public:
    explicit MutexHolder(pthread_mutex_t* mutex) : mutex_(mutex) { pthread_mutex_lock(mutex_); }
    ~MutexHolder() { pthread_mutex_unlock(mutex_); }
    MutexHolder(const MutexHolder&) = delete;
    MutexHolder& operator=(const MutexHolder&) = delete;

  private:
    pthread_mutex_t* mutex_;
};

[[noreturn]] void Fail(const std::string& what, const std::string& path) {
    throw Failure{kUnchanged, what + " failed: " + SystemError(path, errno)};
}

std::string DirectoryOf(const std::string& file) {
    const size_t slash = file.rfind('/');
    return slash == 0 ? "/" : file.substr(0, slash);
}

void WriteNew(int fd, const std::string& path, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            Fail("writing", path);
        text.remove_prefix(static_cast<size_t>(count));
    }
    if (fsync(fd) < 0)
        Fail("syncing", path);
}

// The owner and the mode bits that the library keeps, too.
void TakeOver(int from, int to) {
    struct stat st;
    if (fstat(from, &st) < 0)
        return;
    (void) fchmod(to, st.st_mode & 0740);
    (void) !fchown(to, st.st_uid, st.st_gid);
}

void Replace(const std::string& file, int old, const std::string& text) {
    const std::string temporary = file + "+";
    const std::string backup = file + "-";
    (void) unlink(temporary.c_str());  // left by a save that failed
    const Fd fd(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (fd.get() < 0)
        Fail("creating", temporary);
    if (KORX_LockFile(fd.get()) != 0)
        Fail("locking", temporary);
    TakeOver(old, fd.get());
    if (KORX_LockFile(old) != 0)
        Fail("locking", file);
    try {
        WriteNew(fd.get(), temporary, text);
    } catch (...) {
        (void) unlink(temporary.c_str());
        throw;
    }
    const bool cleared = unlink(backup.c_str()) == 0 || errno == ENOENT;
    if (!cleared || link(file.c_str(), backup.c_str()) < 0)
        Complain("no backup: " + SystemError(backup, errno));
    if (rename(temporary.c_str(), file.c_str()) < 0)
        Fail("replacing", file);
    const Fd directory(open(DirectoryOf(file).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() < 0 || fsync(directory.get()) < 0)
        Complain("the change may not be on disk yet: " + SystemError(DirectoryOf(file), errno));
}

std::string LineEnd(std::string_view text, const IniLine& line) {
    const std::string_view bytes = text.substr(line.begin, line.end - line.begin);
    return bytes.size() >= 2 && bytes.substr(bytes.size() - 2) == "\r\n" ? "\r\n" : "\n";
}

}  // namespace

std::string EditProfileText(std::string_view text, const std::string& section,
                            const std::string& key, const std::string& value) {
    std::string result(text);
    const IniLine* header = nullptr;
    const std::vector<IniLine> lines = SplitLines(text);
    for (const IniLine& line : lines) {
        if (line.kind == IniLine::kSection) {
            if (header != nullptr)
                break;
            if (line.name == section)
                header = &line;
        } else if (header != nullptr && line.kind == IniLine::kKey && line.name == key) {
            const std::string written = line.has_equals ? value : "=" + value;
            return result.replace(line.value_begin, line.value_end - line.value_begin, written);
        }
    }
    const std::string assignment = key + "=" + value;
    if (header != nullptr) {
        const bool ended = text[header->end - 1] == '\n';
        const std::string end = LineEnd(text, *header);
        return result.insert(header->end, ended ? assignment + end : end + assignment + end);
    }
    const std::string end = lines.empty() ? "\n" : LineEnd(text, lines.front());
    if (!result.empty() && result.back() != '\n')
        result += end;
    if (!result.empty())
        result += end;
    return result += section + end + assignment + end;
}

void EditProfile(const std::string& file, const std::string& section, const std::string& key,
                 const std::string& value) {
    const std::string lock_name = file + ".lock";
    const Fd lock(
        open(lock_name.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0640));
    if (lock.get() < 0)
        Fail("opening", lock_name);
    if (KORX_LockFile(lock.get()) != 0)
        Fail("locking", lock_name);
    const MutexHolder changes(&g_unKorxIniWriteLock);

    // Read first: closing another descriptor of the file would drop the lock on it.
    const std::string text = ReadWholeFile(file, kMaxProfile);
    for (const IniLine& line : SplitLines(text))
        if (line.is_refused)
            throw Failure{kUnchanged, file + ":" + std::to_string(line.number) +
                                          ": key or value is too long, so the file cannot be "
                                          "loaded (korx ini check says more)"};
    const std::string edited = EditProfileText(text, section, key, value);
    for (const IniLine& line : SplitLines(edited))
        if (line.is_refused || (line.is_cut && line.kind == IniLine::kKey && line.name == key))
            throw Failure{kUnchanged,
                          file + ": the line would become longer than the loader reads"};
    const Fd old(open(file.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (old.get() < 0)
        Fail("opening", file);
    Replace(file, old.get(), edited);
}

}  // namespace korx::tool

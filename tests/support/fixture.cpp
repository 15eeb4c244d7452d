#include "support/fixture.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>

#include "support/faults.h"

namespace korx::test {
namespace {

namespace stdfs = std::filesystem;

[[noreturn]] void Die(const char* what) {
    fprintf(stderr, "test support: %s: %s\n", what, strerror(errno));
    abort();
}

// Lets go of what a test has protected, so that the tree can be removed.
void ClearInodeFlags(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return;
    int flags = 0;
    if (ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 &&
        (flags & (FS_IMMUTABLE_FL | FS_APPEND_FL)) != 0) {
        flags &= ~(FS_IMMUTABLE_FL | FS_APPEND_FL);
        (void) ioctl(fd, FS_IOC_SETFLAGS, &flags);
    }
    close(fd);
}

}  // namespace

void WriteFile(const std::string& path, std::string_view content) {
    const Untapped untapped;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!file.flush())
        Die(("cannot write " + path).c_str());
}

std::string ReadFile(const std::string& path) {
    const Untapped untapped;
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

mode_t Mode(const std::string& path) {
    const Untapped untapped;
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

void MakeDirs(const std::string& path) {
    const Untapped untapped;
    stdfs::create_directories(path);
}

bool Exists(const std::string& path) {
    const Untapped untapped;
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

TempTree::TempTree() {
    const Untapped untapped;
    char name[] = "/tmp/korx-XXXXXX";
    if (mkdtemp(name) == nullptr)
        Die("mkdtemp");
    root_ = stdfs::canonical(name);
    back_ = stdfs::current_path();
    stdfs::current_path(root_);
}

TempTree::~TempTree() {
    const Untapped untapped;
    std::error_code ignored;
    stdfs::current_path(back_, ignored);
    stdfs::remove_all(root_, ignored);
    if (!ignored)
        return;
    ClearInodeFlags(root_);
    for (stdfs::recursive_directory_iterator it(root_, ignored), end; it != end;
         it.increment(ignored))
        ClearInodeFlags(it->path());
    stdfs::remove_all(root_, ignored);
}

std::ostream& operator<<(std::ostream& out, const SyslogLine& line) {
    return out << "{" << line.priority << ", " << ::testing::PrintToString(line.text) << "}";
}

SyslogTap::SyslogTap() : owner_(getpid()) {
    const Untapped untapped;
    if (access("/dev/.host", F_OK) != 0) {
        fprintf(stderr, "test support: tests run through scripts/sandbox\n");
        abort();
    }
    constexpr int kReceiveBytes = 8 << 20;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/dev/log");
    (void) unlink(address.sun_path);
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0)
        Die("/dev/log");
    (void) setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &kReceiveBytes, sizeof kReceiveBytes);

    // The queue holds a dozen datagrams, then syslog blocks: somebody must read all the time.
    if (pipe2(stop_, O_CLOEXEC) < 0 || pthread_create(&thread_, nullptr, Run, this) != 0)
        Die("syslog reader");
}

SyslogTap::~SyslogTap() {
    const Untapped untapped;
    if (in_owner()) {
        close(stop_[1]);
        pthread_join(thread_, nullptr);
        (void) unlink("/dev/log");
    } else {
        close(stop_[1]);
    }
    close(stop_[0]);
    close(fd_);
}

std::vector<SyslogLine> SyslogTap::lines() {
    if (!in_owner())
        return lines_;  // the reader may have held the mutex when this child was forked
    pthread_mutex_lock(&mutex_);
    drain();
    std::vector<SyslogLine> copy = lines_;
    pthread_mutex_unlock(&mutex_);
    return copy;
}

std::vector<std::string> SyslogTap::texts() {
    std::vector<std::string> texts;
    for (SyslogLine& line : lines())
        texts.push_back(std::move(line.text));
    return texts;
}

void SyslogTap::clear() {
    if (!in_owner()) {
        lines_.clear();
        return;
    }
    pthread_mutex_lock(&mutex_);
    drain();
    lines_.clear();
    pthread_mutex_unlock(&mutex_);
}

void* SyslogTap::Run(void* self) {
    const Untapped untapped;
    auto& tap = *static_cast<SyslogTap*>(self);
    pollfd events[] = {{tap.fd_, POLLIN, 0}, {tap.stop_[0], POLLIN, 0}};
    while (poll(events, std::size(events), -1) >= 0 || errno == EINTR) {
        pthread_mutex_lock(&tap.mutex_);
        tap.drain();
        pthread_mutex_unlock(&tap.mutex_);
        if (events[1].revents != 0)
            break;
    }
    return nullptr;
}

void SyslogTap::drain() {
    char datagram[65536];
    for (;;) {
        const ssize_t length = recv(fd_, datagram, sizeof datagram, MSG_DONTWAIT);
        if (length >= 0)
            add({datagram, static_cast<size_t>(length)});
        else if (errno != EINTR)
            return;
    }
}

// "<PRI>Mon dd hh:mm:ss ident[pid]: text"; the pid is not always there.
void SyslogTap::add(std::string_view datagram) {
    constexpr size_t kTimeLength = sizeof "Mon dd hh:mm:ss " - 1;
    const size_t time = datagram.find('>') + 1;
    const size_t colon = datagram.find(": ", time + kTimeLength);
    if (!datagram.starts_with('<') || time == 0 || colon == std::string_view::npos)
        lines_.push_back({-1, std::string(datagram)});
    else
        lines_.push_back(
            {LOG_PRI(atoi(datagram.data() + 1)), std::string(datagram.substr(colon + 2))});
}

bool SyslogTap::in_owner() const {
    return getpid() == owner_;
}

}  // namespace korx::test

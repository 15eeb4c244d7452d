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
#include <sys/wait.h>
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

// What lines() sends to /dev/log. No line looks like it: they all begin with their priority.
constexpr std::string_view kQuestion = "what have you heard?";

sockaddr_un LogAddress() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/dev/log");
    return address;
}

void SendAll(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t sent = send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR)
            return;
        data.remove_prefix(sent < 0 ? 0 : static_cast<size_t>(sent));
    }
}

// False at the end of the stream.
bool ReceiveAll(int fd, void* data, size_t size) {
    char* bytes = static_cast<char*>(data);
    while (size != 0) {
        const ssize_t received = recv(fd, bytes, size, 0);
        if (received == 0 || (received < 0 && errno != EINTR))
            return false;
        bytes += received < 0 ? 0 : received;
        size -= received < 0 ? 0 : static_cast<size_t>(received);
    }
    return true;
}

void AppendSized(std::string* out, std::string_view data) {
    const size_t size = data.size();
    out->append(reinterpret_cast<const char*>(&size), sizeof size).append(data);
}

// The reader: collects datagrams, and hands over all since the last time when asked, until the
// other end of control is closed.
[[noreturn]] void Collect(int log, int control) {
    const Untapped untapped;
    static char datagram[65536];
    std::string heard;
    pollfd events[] = {{log, POLLIN, 0}, {control, POLLIN, 0}};
    while (poll(events, std::size(events), -1) >= 0 && events[1].revents == 0) {
        const ssize_t length = recv(log, datagram, sizeof datagram, 0);
        const std::string_view line(datagram, length < 0 ? 0 : static_cast<size_t>(length));
        if (line != kQuestion) {
            AppendSized(&heard, line);
            continue;
        }
        std::string answer;
        AppendSized(&answer, heard);
        SendAll(control, answer);
        heard.clear();
    }
    _exit(0);
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
    const sockaddr_un address = LogAddress();
    const auto* const name = reinterpret_cast<const sockaddr*>(&address);
    int ends[2];
    (void) unlink(address.sun_path);
    // What is closed again comes last: a test that looks for open descriptors meets no gap.
    sender_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0)
        Die("socketpair");
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (bind(log, name, sizeof address) < 0 || connect(sender_, name, sizeof address) < 0)
        Die("/dev/log");

    fflush(nullptr);
    reader_ = fork();
    if (reader_ < 0)
        Die("system log reader");
    if (reader_ == 0) {
        close(ends[0]);
        close(sender_);
        (void) setsid();  // no signal to the test's group meets it
        Collect(log, ends[1]);
    }
    close(log);
    close(ends[1]);
    control_ = ends[0];
}

SyslogTap::~SyslogTap() {
    const Untapped untapped;
    if (getpid() == owner_) {
        // Its end is awaited: while its socket lives, syslog would go on sending to it.
        (void) shutdown(control_, SHUT_WR);
        while (waitpid(reader_, nullptr, 0) < 0 && errno == EINTR) {
        }
        (void) unlink("/dev/log");
    }
    close(control_);
    close(sender_);
}

std::vector<SyslogLine> SyslogTap::lines() {
    fetch();
    return lines_;
}

std::vector<std::string> SyslogTap::texts() {
    std::vector<std::string> texts;
    for (SyslogLine& line : lines())
        texts.push_back(std::move(line.text));
    return texts;
}

void SyslogTap::clear() {
    fetch();
    lines_.clear();
}

// The question goes through /dev/log, so it comes behind all lines that were sent before.
void SyslogTap::fetch() {
    const Untapped untapped;
    if (getpid() != owner_)
        return;
    SendAll(sender_, kQuestion);
    size_t size = 0;
    if (!ReceiveAll(control_, &size, sizeof size))
        Die("the system log reader is gone");
    std::string heard(size, '\0');
    if (!ReceiveAll(control_, heard.data(), size))
        Die("the system log reader is gone");
    for (std::string_view rest = heard; !rest.empty();) {
        memcpy(&size, rest.data(), sizeof size);
        add(rest.substr(sizeof size, size));
        rest.remove_prefix(sizeof size + size);
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

}  // namespace korx::test

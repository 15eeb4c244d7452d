#include "support/fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "support/faults.h"

namespace korx::test {
namespace {

namespace stdfs = std::filesystem;

[[noreturn]] void Die(const char* what) {
    fprintf(stderr, "test support: %s: %s\n", what, strerror(errno));
    abort();
}

// What lines() sends to /dev/log. No line looks like it: they all begin with their priority.
constexpr std::string_view kQuestion = "what have you heard?";

constexpr sockaddr_un kAddress = {AF_UNIX, "/dev/log"};

// The reader: appends datagrams to the file, each with a zero behind it, and answers when all
// before the question stand there, until the other end of control is closed.
[[noreturn]] void Collect(int log, int file, int control) {
    const Untapped untapped;
    static char datagram[65536];
    pollfd events[] = {{log, POLLIN, 0}, {control, POLLIN, 0}};
    while (poll(events, std::size(events), -1) >= 0 && events[1].revents == 0) {
        const ssize_t received = recv(log, datagram, sizeof datagram - 1, 0);
        const size_t length = received < 0 ? 0 : static_cast<size_t>(received);
        datagram[length] = '\0';
        if (datagram == kQuestion)
            (void) send(control, "", 1, MSG_NOSIGNAL);
        else if (write(file, datagram, length + 1) < 0)
            Die("a line is lost");
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

void RemoveAll(const std::string& path) {
    const Untapped untapped;
    std::error_code error;
    stdfs::remove_all(path, error);
    if (!error)
        return;
    (void) !system(("chattr -R -f -ia -- " + path).c_str());
    stdfs::remove_all(path, error);
}

bool Exists(const std::string& path) {
    const Untapped untapped;
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

bool HasOpenat2() {
    const Untapped untapped;
    return syscall(SYS_openat2, -1, "", nullptr, 0) >= 0 || errno != ENOSYS;
}

std::set<int> OpenFiles() {
    const Untapped untapped;
    openlog(nullptr, LOG_NDELAY, LOG_USER);  // or the first report would open one that stays
    std::set<int> open;
    for (int fd = 0; fd < 256; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0)
            open.insert(fd);
    }
    return open;
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
    RemoveAll(root_);
}

std::ostream& operator<<(std::ostream& out, const SyslogLine& line) {
    return out << "{" << line.priority << ", " << ::testing::PrintToString(line.text) << "}";
}

SyslogTap::SyslogTap() : owner_(getpid()) {
    const Untapped untapped;
    if (getenv("KORX_SANDBOX") == nullptr) {
        fprintf(stderr, "test support: tests run through scripts/sandbox\n");
        abort();
    }
    const auto* const name = reinterpret_cast<const sockaddr*>(&kAddress);
    int ends[2];
    (void) unlink(kAddress.sun_path);
    // What is closed again comes last: a test that looks for open descriptors meets no gap.
    sender_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    heard_ = memfd_create("heard", MFD_CLOEXEC);
    if (heard_ < 0 || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0)
        Die("socketpair");
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (bind(log, name, sizeof kAddress) < 0 || connect(sender_, name, sizeof kAddress) < 0)
        Die("/dev/log");

    fflush(nullptr);
    reader_ = fork();
    if (reader_ < 0)
        Die("system log reader");
    if (reader_ == 0) {
        close(ends[0]);
        close(sender_);
        (void) setsid();  // no signal to the test's group meets it
        Collect(log, heard_, ends[1]);
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
        (void) TEMP_FAILURE_RETRY(waitpid(reader_, nullptr, 0));
        (void) unlink("/dev/log");
    }
    for (const int fd : {control_, heard_, sender_})
        close(fd);
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
    char answer;
    (void) TEMP_FAILURE_RETRY(send(sender_, kQuestion.data(), kQuestion.size(), MSG_NOSIGNAL));
    if (TEMP_FAILURE_RETRY(recv(control_, &answer, 1, 0)) != 1)
        Die("the system log reader is gone");
    std::string heard;
    char piece[4096];
    for (ssize_t n; (n = pread(heard_, piece, sizeof piece, fetched_)) > 0; fetched_ += n)
        heard.append(piece, static_cast<size_t>(n));
    std::istringstream lines(heard);
    for (std::string line; std::getline(lines, line, '\0');)
        add(line);
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

#include "follow.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "files.h"
#include "signals.h"

namespace korx::tool {
// The directories tell of files that come and go, and only of these: writes to other files there
// are none of our business and must not wake us up.
Follower::Follower(const std::vector<Source>& sources)
    : fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (!fd_)
        throw Failure{kInput, std::string("watching files failed: ") + strerror(errno)};
    for (const Source& source : sources) {
        Watched watched{source.path, source.file};
        const std::string directory(DirectoryOf(source.path));
        watched.directory =
            inotify_add_watch(fd_.get(), directory.c_str(),
                              IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
        if (watched.directory < 0)
            throw Failure{kInput, "watching failed: " + SystemError(directory, errno)};
        watch_content(watched);
        files_.push_back(std::move(watched));
    }
}

void Follower::watch_content(Watched& watched) {
    watched.content = inotify_add_watch(fd_.get(), watched.path.c_str(), IN_MODIFY);
}

void Follower::take_events(std::vector<bool>* changed) {
    alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
    ssize_t count;
    while ((count = read(fd_.get(), buffer, sizeof buffer)) > 0) {
        const inotify_event* event;
        for (const char* at = buffer; at < buffer + count; at += sizeof *event + event->len) {
            event = reinterpret_cast<const inotify_event*>(at);
            if ((event->mask & IN_Q_OVERFLOW) != 0)
                changed->assign(changed->size(), true);
            for (size_t i = 0; i < files_.size(); ++i) {
                Watched& watched = files_[i];
                if (event->wd == watched.content && (event->mask & IN_MODIFY) != 0) {
                    (*changed)[i] = true;
                } else if (event->wd == watched.directory) {
                    if ((event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0)
                        throw Failure{kInput, std::string(DirectoryOf(watched.path)) +
                                                  ": the directory has gone while following"};
                    if (event->len > 0 && watched.file == event->name) {
                        watch_content(watched);
                        (*changed)[i] = true;
                    }
                }
            }
        }
    }
}

std::vector<size_t> Follower::wait(int out_fd) {
    std::vector<bool> changed(files_.size(), false);
    std::vector<size_t> result;
    while (result.empty()) {
        // Of the output only its end is of interest, which poll always tells.
        pollfd waiting[] = {{fd_.get(), POLLIN, 0}, {out_fd, 0, 0}};
        if (PollOrStop(waiting, 2) == Wake::kStop)
            throw Stopped{};
        if ((waiting[1].revents & (POLLERR | POLLHUP)) != 0)
            throw ClosedPipe{};
        take_events(&changed);
        for (size_t i = 0; i < changed.size(); ++i)
            if (changed[i])
                result.push_back(i);
    }
    return result;
}

}  // namespace korx::tool

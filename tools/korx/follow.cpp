#include "follow.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "files.h"

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

// For one event: each costs the writer time, and until the file has been looked at they all say the
// same.
void Follower::watch_content(Watched& watched) {
    const int before = watched.content;
    watched.content = inotify_add_watch(fd_.get(), watched.path.c_str(), IN_MODIFY | IN_ONESHOT);
    // The file that was there before must not wake us up any more, wherever it is now.
    if (before >= 0 && before != watched.content)
        (void) inotify_rm_watch(fd_.get(), before);
}

void Follower::take_events(std::vector<bool>* changed) {
    alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
    ssize_t count;
    while ((count = read(fd_.get(), buffer, sizeof buffer)) > 0) {
        const inotify_event* event;
        for (const char* at = buffer; at < buffer + count; at += sizeof *event + event->len) {
            event = static_cast<const inotify_event*>(static_cast<const void*>(at));
            if ((event->mask & IN_Q_OVERFLOW) != 0)
                changed->assign(changed->size(), true);
            for (size_t i = 0; i < files_.size(); ++i) {
                Watched& watched = files_[i];
                if (event->wd == watched.content && (event->mask & IN_MODIFY) != 0) {
                    watched.content = -1;
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

// False when end_us has come.
bool Follower::sleep(int out_fd, int64_t end_us, bool for_changes) const {
    // Of the output only its end is of interest, which poll always tells.
    pollfd waiting[] = {{out_fd, 0, 0}, {for_changes ? fd_.get() : -1, POLLIN, 0}};
    const Wake wake = PollOrStop(waiting, 2, end_us);
    if (wake == Wake::kStop)
        throw Stopped{};
    if ((waiting[0].revents & (POLLERR | POLLHUP)) != 0)
        throw ClosedPipe{};
    return wake != Wake::kTime;
}

std::vector<size_t> Follower::wait(int out_fd, int64_t end_us) {
    std::vector<bool> changed(files_.size(), false);
    std::vector<size_t> result;
    while (result.empty()) {
        if (!sleep(out_fd, end_us, true))
            return {};
        (void) sleep(out_fd, next_us_, false);
        take_events(&changed);
        for (size_t i = 0; i < changed.size(); ++i) {
            if (!changed[i])
                continue;
            // Before it is looked at, so that nothing is written unseen in between.
            if (files_[i].content < 0)
                watch_content(files_[i]);
            result.push_back(i);
        }
    }
    next_us_ = EndOfWait(kPause * 1e-6);
    return result;
}

}  // namespace korx::tool

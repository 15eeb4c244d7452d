#include "support/journal.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <vector>

#include "base/directory.h"
#include "support/faults.h"

namespace korx::test {
namespace {

namespace stdfs = std::filesystem;

ino_t InodeOf(int fd) {
    struct stat st;
    return fstat(fd, &st) == 0 ? st.st_ino : 0;
}

std::string Content(int fd) {
    std::string content;
    char piece[16384];
    for (ssize_t n; (n = pread(fd, piece, sizeof piece, off_t(content.size()))) > 0;)
        content.append(piece, size_t(n));
    return content;
}

// Whether what is written to the file is on disk when the call returns.
bool IsWrittenThrough(ino_t file) {
    for (int fd = 0; fd < 256; ++fd) {
        const int flags = fcntl(fd, F_GETFL);
        if (flags >= 0 && (flags & O_ACCMODE) != O_RDONLY && (flags & O_DSYNC) != 0 &&
            InodeOf(fd) == file)
            return true;
    }
    return false;
}

class Journal {
  public:
    explicit Journal(const std::string& directory) : root_(directory) {
        const Untapped untapped;
        look();
        for (auto& [name, led_to] : names_)
            led_to = {led_to.back()};
        for (auto& [inode, file] : files_)
            file.versions = {file.versions.back()};
        ever_.clear();
        current_ = this;
    }
    // A file is closed only now: closing it drops the locks that the process has on it.
    ~Journal() {
        const Untapped untapped;
        current_ = nullptr;
        for (const auto& [inode, file] : files_)
            close(file.fd);
    }
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    static Journal* current() { return current_; }

    Cuts cuts() {
        const Untapped untapped;
        look();
        std::set<Disk> after;
        add_states(&after);
        ever_.insert(after.begin(), after.end());
        return {std::move(ever_), std::move(after)};
    }

    void synced(int fd) {
        const Untapped untapped;
        look();
        const ino_t inode = InodeOf(fd);
        if (const auto file = files_.find(inode); file != files_.end())
            file->second.versions = {file->second.versions.back()};
        for (auto& [name, led_to] : names_) {
            struct stat st;
            const std::string path = root_ + "/" + name;
            if (stat(std::string(DirectoryOf(path)).c_str(), &st) == 0 && st.st_ino == inode)
                led_to = {led_to.back()};
        }
    }

  private:
    using Versions = std::vector<std::string>;  // the first is on disk
    struct File {
        int fd;  // held open, so that no other file gets the inode
        Versions versions;
    };
    enum class Pick { kOldest, kNewest, kAny };

    void look() {
        std::map<std::string, ino_t> found;
        bool changed = false;
        for (const auto& entry : stdfs::recursive_directory_iterator(root_)) {
            struct stat st;
            const std::string path = entry.path();
            if (lstat(path.c_str(), &st) < 0 || !S_ISREG(st.st_mode))
                continue;
            const std::string name = path.substr(root_.size() + 1);
            found[name] = st.st_ino;
            names_.try_emplace(name, std::vector<ino_t>{0});
            if (!files_.contains(st.st_ino))
                files_[st.st_ino] = {open(path.c_str(), O_RDONLY | O_CLOEXEC), {""}};
        }
        for (auto& [name, led_to] : names_) {
            if (led_to.back() == found[name])
                continue;
            led_to.push_back(found[name]);
            changed = true;
        }
        for (auto& [inode, file] : files_)
            changed = look_at(inode, Content(file.fd), &file.versions) || changed;
        if (changed)
            add_states(&ever_);
    }

    static bool look_at(ino_t inode, const std::string& content, Versions* versions) {
        if (content == versions->back())
            return false;
        if (content.size() >= versions->back().size() && IsWrittenThrough(inode))
            versions->clear();
        versions->push_back(content);
        return true;
    }

    // Most faults show where one thing has happened and nothing else, or all but one.
    void add_states(std::set<Disk>* states) {
        constexpr int kDrawn = 40;
        for (size_t i = 0; i <= names_.size() + files_.size(); ++i) {
            states->insert(state(Pick::kOldest, i, Pick::kNewest));
            states->insert(state(Pick::kNewest, i, Pick::kOldest));
            states->insert(state(Pick::kNewest, i, Pick::kAny));
        }
        for (int i = 0; i < kDrawn; ++i)
            states->insert(state(Pick::kAny, 0, Pick::kAny));
    }

    // All is picked as usual, but for one name or file, which are counted from 1.
    Disk state(Pick usual, size_t other_index, Pick other) {
        size_t index = 0;
        std::map<ino_t, std::string> contents;
        for (const auto& [inode, file] : files_)
            contents[inode] = torn(file.versions, ++index == other_index ? other : usual);
        Disk disk;
        for (const auto& [name, led_to] : names_) {
            const Pick how = ++index == other_index ? other : usual;
            if (const ino_t inode = pick(led_to, how); inode != 0)
                disk[name] = contents[inode];
        }
        return disk;
    }

    // A length of which the data is missing reads as zeros.
    std::string torn(const Versions& versions, Pick how) {
        constexpr size_t kSector = 512;
        std::string content(pick(versions, how).size(), '\0');
        for (size_t at = 0; at < content.size(); at += kSector) {
            const std::string& from = pick(versions, how);
            const size_t end = std::min({at + kSector, content.size(), from.size()});
            if (at < end)
                content.replace(at, end - at, from, at, end - at);
        }
        return content;
    }

    template <typename T>
    const T& pick(const std::vector<T>& from, Pick how) {
        if (how == Pick::kAny)
            return from[engine_() % from.size()];
        return how == Pick::kOldest ? from.front() : from.back();
    }

    static inline Journal* current_ = nullptr;
    const std::string root_;
    std::map<std::string, std::vector<ino_t>> names_;  // the first is on disk; 0: none
    std::map<ino_t, File> files_;
    std::set<Disk> ever_;
    std::mt19937 engine_;
    const Fault before_each_call_ = Fault::Meanwhile(
        "*", 1, [this] { look(); }, Fault::kAll);
};

}  // namespace

Cuts CutsOf(const std::string& directory, const std::function<void()>& operation) {
    Journal journal(directory);
    operation();
    return journal.cuts();
}

}  // namespace korx::test

extern "C" void KorxSynced(int fd) {
    if (auto* const journal = korx::test::Journal::current())
        journal->synced(fd);
}

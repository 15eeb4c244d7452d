// A reader that goes along with a file against one that is opened anew, after each of a few changes
// to it. The input is the kind, the length of the file, the file, and changes: which, how many
// bytes, and these. Records that stand are not changed: nobody does that, and nobody looks for it.
#include <fcntl.h>
#include <unistd.h>

#include "base/unique.h"
#include "korx/reader.h"
#include "support.h"

using namespace korx::fuzz;

namespace {

enum class Change { kAppend, kLeaveBehind, kHead, kCut };

class Log {
  public:
    Log(korx_log_kind kind, std::string_view content)
        : path_(PathBelowScratch("log")),
          head_size_(kind == KORX_LOG_TEXT                            ? 4
                     : kind >= KORX_LOG_DIAG && kind <= KORX_LOG_LIFE ? 12
                                                                      : 0) {
        WriteFile(path_, content);
        fd_.reset(open(path_.c_str(), O_RDWR | O_CLOEXEC));
    }

    const char* path() const { return path_.c_str(); }

    void change(Change change, std::string_view bytes) const {
        const off_t size = lseek(fd_.get(), 0, SEEK_END);
        auto count = static_cast<uint32_t>(size);
        if (head_size_ != 0 && pread(fd_.get(), &count, sizeof count, 0) < ssize_t{sizeof count})
            count = 0;
        if (change == Change::kHead)
            write(0, bytes.substr(0, head_size_));
        if (change == Change::kCut)
            Require(ftruncate(fd_.get(), size * int(TakeByte(&bytes)) / 256) == 0);
        if (change == Change::kHead || change == Change::kCut || count > kMost)
            return;
        write(head_size_ + off_t{count}, bytes);
        count += static_cast<uint32_t>(bytes.size());
        if (change == Change::kAppend && head_size_ != 0)
            write(0, {reinterpret_cast<const char*>(&count), sizeof count});
    }

  private:
    void write(off_t at, std::string_view bytes) const {
        Require(pwrite(fd_.get(), bytes.data(), bytes.size(), at) == ssize_t(bytes.size()));
    }

    static constexpr uint32_t kMost = 1 << 16;
    const std::string path_;
    const unsigned head_size_;
    korx::UniqueFd fd_;
};

std::string Told(korx_reader* reader) {
    korx_reader_info info = {};
    korx_reader_get_info(reader, &info);
    std::string told(reinterpret_cast<const char*>(&info), sizeof info);
    korx_damage damage = {};
    for (size_t i = 0; korx_reader_get_damage(reader, i, &damage) == 1; ++i)
        told += damage.text + std::to_string(damage.offset) + '+' + std::to_string(damage.length);
    korx_reader_rewind(reader);
    for (korx_record record = {}; korx_reader_next(reader, &record) == 1;) {
        told += std::to_string(record.offset) + '/' + std::to_string(record.flags) + '/' +
                std::to_string(record.time.tv_sec);
        told.append(record.text, record.length);
    }
    return told;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest = View(data, size);
    const auto kind = static_cast<korx_log_kind>(1 + TakeByte(&rest) % KORX_LOG_SPACE);
    const size_t low = TakeByte(&rest);
    const size_t high = TakeByte(&rest);
    const size_t length = std::min(low | high << 8, rest.size());
    const Log log(kind, rest.substr(0, length));
    rest.remove_prefix(length);
    korx_reader_options options = {};
    options.cursor_path = "";
    options.header_path = "/nonexistent";
    korx_reader* reader = nullptr;
    Require(korx_reader_open(log.path(), kind, &options, &reader, nullptr) == KORX_READER_OK);
    for (int change = 0; change < 8 && !rest.empty(); ++change) {
        const unsigned which = TakeByte(&rest);
        const size_t wanted = TakeByte(&rest);
        const size_t count = std::min(wanted, rest.size());
        log.change(static_cast<Change>(which % 4), rest.substr(0, count));
        rest.remove_prefix(count);
        korx_refreshed how;
        Require(korx_reader_refresh(reader, &how, nullptr) == KORX_READER_OK);
        korx_reader* fresh = nullptr;
        Require(korx_reader_open(log.path(), kind, &options, &fresh, nullptr) == KORX_READER_OK);
        Require(Told(reader) == Told(fresh));
        korx_reader_close(fresh);
    }
    korx_reader_close(reader);
    return 0;
}

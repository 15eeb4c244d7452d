// The copy of a log: its bytes at one moment, taken under its lock.
#pragma once

#include <stdint.h>

#include "reader/image.h"
#include "reader/log_file.h"

namespace korx {

constexpr uint32_t kDefaultTimeoutMs = 5000;
constexpr uint64_t kDefaultMaxBytes = uint64_t{64} << 20;

enum class Locking { kWait, kNone };

// What there is to know to get at a log's file, and at it again.
struct Source {
    const char* path = "";
    const char* header_path = nullptr;  // null: none is to be read
    int borrowed = -1;                  // the caller's descriptor
    uint32_t timeout_ms = kDefaultTimeoutMs;
    uint64_t max_bytes = kDefaultMaxBytes;
    Locking locking = Locking::kWait;
};

// A log, and the start log's header, opened and locked for as long as it lives.
class LockedLog {
  public:
    LockedLog(const Source& source, const LogKind& kind) : source_(source), kind_(kind) {}

    [[nodiscard]] korx_reader_code open(const Refusal& error);
    // Copies it into an image, whose kind is known already.
    [[nodiscard]] korx_reader_code copy(const Refusal& error, LogImage* image) const;

    const LogFile& file() const { return file_; }

  private:
    const Source& source_;
    const LogKind& kind_;
    LogFile file_;
    LogFile header_;
    bool has_header_ = false;
    LogLock header_lock_{kind_.lock, header_};
    LogLock lock_{kind_.lock, file_};
};

// Tells the kind from the beginning of the file.
[[nodiscard]] korx_reader_code PeekKind(const Source& source, const Refusal& error,
                                        korx_log_kind* kind);

}  // namespace korx

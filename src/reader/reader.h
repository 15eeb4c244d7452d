// An open log: a copy of it, what was made of that, and a place in it.
#pragma once

#include <stddef.h>
#include <stdlib.h>

#include <memory>

#include "base/unique.h"
#include "korx/reader.h"
#include "reader/cursor.h"
#include "reader/image.h"
#include "reader/log_file.h"
#include "reader/snapshot.h"

namespace korx {

// What belongs to a log, by the caller's options or beside it. From memory there is only a process.
struct LogNames {
    MallocPtr<char> path;
    MallocPtr<char> header;
    MallocPtr<char> cursor;  // "": there shall be none
    MallocPtr<char> process;
};

}  // namespace korx

struct korx_reader {
    korx::LogImage image;
    korx_reader_info info = {};
    uint32_t doubts = 0;  // KORX_DOUBT_...

    korx::LogNames names;
    korx::Source source;
    korx::FileId file;  // that was copied

    korx::Cursor cursor;  // as it was found, all zero if it was not
    size_t next = 0;      // the entry at which the reader stands

    // Without the lock there was no telling whether the copy is of one moment.
    bool can_acknowledge() const {
        return names.path != nullptr && source.locking == korx::Locking::kWait;
    }
    bool has_cursor() const { return names.cursor != nullptr && names.cursor.get()[0] != '\0'; }
};

namespace korx {

// Destroys without operator delete, which would bring the C++ run-time library in.
struct ReaderDeleter {
    void operator()(korx_reader* reader) const {
        reader->~korx_reader();
        free(reader);
    }
};
using UniqueReader = std::unique_ptr<korx_reader, ReaderDeleter>;

}  // namespace korx

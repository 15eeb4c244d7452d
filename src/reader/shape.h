// What the reader has to know about each shape of log; everything else looks it up here.
//
// To add a kind of log with one of these shapes: its row in format/kinds.h. To add a shape: a file
// that defines its operations, their name below, and its place in the order in shape.cpp.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "format/kinds.h"
#include "korx/reader.h"

namespace korx {

struct Laps;
struct LogImage;
struct LogFormat;
struct RecordHead;

enum class LineEnd { kLf, kCrLf };

// Where the source of a record is named, if anywhere.
enum class SourceName { kInRecord, kInFileName };

struct ShapeOperations {
    Shape shape;
    size_t sections;  // each of them has a newest record of its own
    LineEnd line_end;
    SourceName source_name;

    // Finds the entries, and the damage.
    void (*analyse)(LogImage* image);
    // Takes apart what stands behind the stamp of a record. False: it is no record; what is in the
    // head and the record then has no meaning.
    bool (*parse_fields)(std::string_view text, size_t stamp, RecordHead* head,
                         korx_record* record);
    // Whether the rest of a line behind a sound stamp looks like damaged fields.
    bool (*resembles_fields)(std::string_view line);
    // Whether the beginning of a file looks like one of this shape.
    bool (*begins_file)(const LogFormat& format, std::string_view beginning);
    // Where the laps end in a file of this size, by the head at its beginning. False: no writer
    // leaves such a head. Null: there is none that says so.
    bool (*find_laps)(const LogFormat& format, std::string_view beginning, uint64_t file_size,
                      Laps* laps);
    // What the image's head says beside its entries, and whether that fits them. Null as above.
    void (*conclude)(LogImage* image);
};

extern const ShapeOperations kTextShape;
extern const ShapeOperations kRingShape;
extern const ShapeOperations kStartShape;
extern const ShapeOperations kPlainShape;
extern const ShapeOperations kReserveShape;

// A kind of log as the reader sees it.
struct LogFormat {
    const LogKind* kind = nullptr;
    const ShapeOperations* shape = nullptr;  // null: KORX_LOG_AUTO, which has none
};

LogFormat FormatOf(korx_log_kind kind);

// What the content of a file looks like; KORX_LOG_AUTO: nothing known.
korx_log_kind GuessKind(std::string_view beginning);

}  // namespace korx

// The logs that a command works on, and readers of them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common.h"
#include "korx/reader.h"

namespace korx::tool {

// What a log is that is not there: a mistake where the file was named, but not where its kind was.
enum class Absence { kFails, kAllowed };

struct Source {
    korx_log_kind kind = KORX_LOG_AUTO;
    std::string path;
    std::string file;  // the path's last component
    Absence absence = Absence::kFails;
};

struct CloseReader {
    void operator()(korx_reader* reader) const { korx_reader_close(reader); }
};
using Reader = std::unique_ptr<korx_reader, CloseReader>;

// The word that names all logs.
inline constexpr char kEveryKind[] = "all";
// The path of a source that is read from standard input, once.
inline constexpr char kStandardInput[] = "-";

// The words that name logs, as a list for people: "text, diag, ... all".
std::string KindWords();

// All logs below the log directory.
std::vector<Source> AllSources(const Globals& globals);

// What a word on the command line means: "all", a kind, or a file. Throws Failure.
std::vector<Source> FindSources(const Globals& globals, const std::string& word);
// The same for several, and "-" is a copy on standard input; each log once. Of logs that are called
// alike, file is the whole path.
std::vector<Source> FindSources(const Globals& globals, const std::vector<std::string>& words);

// Leaves of the logs in the log directory only that of this process; of the files that were named,
// all. Throws Failure when there is no such process.
void KeepProcess(std::vector<Source>* sources, const std::string& process);

// Whether one of them is, or may be, a log of this kind.
bool HasKind(const std::vector<Source>& sources, korx_log_kind kind);

// Opens a log. Null when it is missing and may be. Throws Failure.
Reader OpenReader(const Source& source, uint32_t flags = 0);

// What cannot be known of a log, as the bits of korx_reader_doubts tell: one sentence each. A
// number of lost records that is unknown is told with the gap.
std::vector<std::string> DoubtsIn(uint32_t doubts);

korx_reader_info InfoOf(const korx_reader* reader);

// Whether a ring's head can be gone on from; text says why not. Where only the reader's position is
// wrong, unread records can be taken and that sets it right; where there are none nothing does.
enum class HeadState { kSound, kPositionDamaged, kDamaged };
HeadState StateOfHead(const korx_reader* reader, std::string* text);

// The command that cures a damaged head.
std::string RepairCommand(const Source& source);

}  // namespace korx::tool

// A ring of any bytes is repaired: what was kept is counted, the copy is the old file, and what is
// left is an empty and sound ring; or not one byte has changed.
#include <unistd.h>

#include "korx/reader.h"
#include "support.h"

using namespace korx::fuzz;

namespace {

int Keep(void* context, const korx_reader*, const korx_record* record) {
    if (record != nullptr)
        ++*static_cast<uint64_t*>(context);
    return 0;
}

void RequireEmptyRing(const std::string& path) {
    korx_reader* reader = nullptr;
    Require(korx_reader_open(path.c_str(), KORX_LOG_SECURITY, nullptr, &reader, nullptr) ==
            KORX_READER_OK);
    korx_record record = {};
    korx_damage damage = {};
    Require(korx_reader_next(reader, &record) == 0);
    Require(korx_reader_get_damage(reader, 0, &damage) == 0);
    korx_reader_close(reader);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = PathBelowScratch("ring");
    const std::string_view bytes = View(data, size);
    WriteFile(path, bytes);
    uint64_t kept = 0;
    korx_reader_repaired repaired = {};
    const korx_reader_code code = korx_reader_repair(path.c_str(), KORX_LOG_SECURITY, nullptr, Keep,
                                                     &kept, &repaired, nullptr);
    Require(code == KORX_READER_OK || code == KORX_READER_SOUND);
    Require((code == KORX_READER_OK) == (repaired.copy[0] != '\0'));
    if (code == KORX_READER_OK) {
        Require(kept == repaired.records && ReadFile(repaired.copy) == bytes);
        Require(unlink(repaired.copy) == 0);
        RequireEmptyRing(path);
    } else {
        Require(kept == 0 && ReadFile(path) == bytes);
    }
    return 0;
}

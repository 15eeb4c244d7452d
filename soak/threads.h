// Every call of the libraries from many threads at once, for the thread sanitizer to look at.
#pragma once

#include <list>
#include <span>
#include <string>

#include "korx/basic.h"
#include "korx/reader.h"

namespace threads {

// What one call works on: all of it is the calling thread's own. Made anew for each call.
class Scene {
  public:
    explicit Scene(unsigned thread);
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    // The name of a file or directory in the thread's directory.
    const char* path(const char* name);
    char* text(const char* content);  // to be edited
    int fd();                         // of the file "f"
    int ring();                       // of the ring "korx_safe.log"
    uint32_t semaphore();
    KORX_IniSection* profile();
    ORX_StackNode* stack();    // with one element
    ORX_VEC_Vector* vector();  // with one element, in slot 0
    korx_reader* reader();     // of the ring, from memory
    korx_reader* ring_reader();

    KORX_DllHead list = {};  // of the first two nodes
    KORX_DllNode nodes[3] = {};
    char out[512] = "";
    char in[512] = "";
    unsigned char tlv[64] = {};  // one record, the text "value" of type 7
    int16_t room = sizeof tlv;
    korx_record record = {};
    korx_mark mark = {};
    korx_reader_error error = {};

  private:
    std::string directory_, bytes_;
    std::list<std::string> paths_;
    int fd_ = -1, ring_ = -1, semaphore_ = -1;
    KORX_IniSection* profile_ = nullptr;
    ORX_StackNode* stack_ = nullptr;
    ORX_VEC_Vector* vector_ = nullptr;
    korx_reader *reader_ = nullptr, *ring_reader_ = nullptr;
};

struct Call {
    const char* function;
    bool (*answers)(Scene& at);  // whether it answered as it must
};

// A row of a call with the result that it must have, or without one.
// The # would be taken for a directive's.
// clang-format off
#define GIVES(function, result, ...) \
    {#function, []([[maybe_unused]] Scene& at) { return function(__VA_ARGS__) == (result); }}
#define RUNS(function, ...) \
    {#function, []([[maybe_unused]] Scene& at) { return function(__VA_ARGS__), true; }}
// clang-format on

std::span<const Call> CallsOnFiles();
std::span<const Call> OtherCalls();

}  // namespace threads

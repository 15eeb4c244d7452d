#include "reader/error.h"

#include "base/arguments.h"
#include "base/bounded.h"

namespace korx {
namespace {

constexpr int kPathRoom = 360;  // the path is cut, so that the sentence behind it never is

}  // namespace

korx_reader_code Refusal::refuse(korx_reader_code code, int system_error, const char* format,
                                 ...) const {
    if (error_ == nullptr)
        return code;
    error_->code = code;
    error_->system_error = system_error;
    error_->offset = offset_;
    constexpr size_t kSize = sizeof error_->text;
    const int used = path_ == nullptr
                         ? 0
                         : snprintf_s(error_->text, kSize, kSize - 1, "%.*s: ", kPathRoom, path_);
    const size_t begin = used > 0 ? static_cast<size_t>(used) : 0;
    Arguments args;
    va_start(args.list, format);
    (void) vsnprintf_s(error_->text + begin, kSize - begin, kSize - begin - 1, format, args.list);
    return code;
}

}  // namespace korx

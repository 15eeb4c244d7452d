#include "base/print.h"

#include <stdint.h>
#include <string.h>

#include <string_view>

namespace korx {
namespace {

constexpr size_t kMostDigits = 20;

// One conversion, without its percent sign: %[0<width>][l]<type>, or %#x.
struct Conversion {
    size_t width = 0;
    bool has_prefix = false;
    bool is_long = false;
    char type = '\0';

    // Where the format goes on; null when it is not plain.
    const char* parse(const char* format) {
        if (format[0] == '#' && format[1] == 'x') {
            has_prefix = true;
            ++format;
        } else if (format[0] == '0' && format[1] >= '1' && format[1] <= '9') {
            width = static_cast<size_t>(format[1] - '0');
            format += 2;
        }
        if (*format == 'l') {
            is_long = true;
            ++format;
        }
        type = *format;
        const bool is_number = type == 'd' || type == 'u' || type == 'x';
        const bool is_bare = width == 0 && !is_long;
        const bool is_text = is_bare && (type == 's' || type == 'c' || type == '%');
        return is_number || is_text ? format + 1 : nullptr;
    }
};

class Printer {
  public:
    Printer(char* dest, size_t limit) : begin_(dest), at_(dest), end_(dest + limit) {}

    void put(std::string_view text) {
        const auto room = static_cast<size_t>(end_ - at_);
        fits_ = fits_ && text.size() <= room;
        if (!fits_)
            return;
        memmove(at_, text.data(), text.size());  // an argument may stand in dest
        at_ += text.size();
    }

    void put(const Conversion& conversion, Arguments* args) {
        if (conversion.type == '%')
            return put("%");
        if (conversion.type == 's') {
            const char* const text = va_arg(args->list, const char*);
            return put(text == nullptr ? "(null)" : text);
        }
        if (conversion.type == 'c') {
            const char character = static_cast<char>(va_arg(args->list, int));
            return put({&character, 1});
        }
        if (conversion.type == 'd')
            return put_signed(conversion, conversion.is_long ? va_arg(args->list, long)
                                                             : va_arg(args->list, int));
        const uint64_t value =
            conversion.is_long ? va_arg(args->list, unsigned long) : va_arg(args->list, unsigned);
        if (conversion.has_prefix && value != 0)
            put("0x");
        put_digits(value, conversion.type == 'x' ? 16 : 10, conversion.width);
    }

    int finish() {
        if (!fits_)
            return kTooLong;
        *at_ = '\0';
        return static_cast<int>(at_ - begin_);
    }

  private:
    // The sign counts for the width. The smallest value has no opposite of its own type.
    void put_signed(const Conversion& conversion, int64_t value) {
        if (value >= 0)
            return put_digits(static_cast<uint64_t>(value), 10, conversion.width);
        put("-");
        put_digits(-static_cast<uint64_t>(value), 10,
                   conversion.width == 0 ? 0 : conversion.width - 1);
    }

    void put_digits(uint64_t value, unsigned base, size_t width) {
        char digits[kMostDigits];
        size_t first = kMostDigits;
        do {
            digits[--first] = "0123456789abcdef"[value % base];
            value /= base;
        } while (value != 0);
        while (kMostDigits - first < width)
            digits[--first] = '0';
        put({digits + first, kMostDigits - first});
    }

    char* const begin_;
    char* at_;
    char* const end_;
    bool fits_ = true;
};

}  // namespace

int PrintPlain(char* dest, size_t limit, const char* format, Arguments* args) {
    Printer out(dest, limit);
    for (;;) {
        const char* const percent = strchrnul(format, '%');
        out.put({format, static_cast<size_t>(percent - format)});
        if (*percent == '\0')
            return out.finish();
        Conversion conversion;
        format = conversion.parse(percent + 1);
        if (format == nullptr)
            return kNotPlain;
        out.put(conversion, args);
    }
}

}  // namespace korx

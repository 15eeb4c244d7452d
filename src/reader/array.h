#pragma once

#include <stddef.h>
#include <stdlib.h>

#include <algorithm>
#include <type_traits>

#include "base/unique.h"

namespace korx {

// A growing array of plain values. Running out of memory is remembered, not reported: what is
// pushed from then on is dropped, and the owner asks once at the end.
template <typename T>
class Array {
  public:
    static_assert(std::is_trivially_copyable_v<T>);

    void push(const T& value) {
        if (size_ == capacity_ && !grow(std::max<size_t>(capacity_ * 2, 64)))
            return;
        items_.get()[size_++] = value;
    }
    // False: out of memory.
    bool reserve(size_t count) { return count <= capacity_ || grow(count); }
    void truncate(size_t size) { size_ = std::min(size_, size); }

    T& operator[](size_t index) { return items_.get()[index]; }
    const T& operator[](size_t index) const { return items_.get()[index]; }
    T* begin() { return items_.get(); }
    T* end() { return items_.get() + size_; }
    const T* begin() const { return items_.get(); }
    const T* end() const { return items_.get() + size_; }
    size_t size() const { return size_; }
    size_t capacity() const { return capacity_; }
    bool empty() const { return size_ == 0; }
    bool out_of_memory() const { return out_of_memory_; }
    void fail() { out_of_memory_ = true; }

  private:
    bool grow(size_t capacity) {
        // Of an array of pointers, too. NOLINTNEXTLINE(bugprone-sizeof-expression)
        void* const grown = realloc(static_cast<void*>(items_.get()), capacity * sizeof(T));
        if (grown == nullptr) {
            out_of_memory_ = true;
            return false;
        }
        (void) items_.release();
        items_.reset(static_cast<T*>(grown));
        capacity_ = capacity;
        return true;
    }

    MallocPtr<T> items_;
    size_t size_ = 0;
    size_t capacity_ = 0;
    bool out_of_memory_ = false;
};

}  // namespace korx

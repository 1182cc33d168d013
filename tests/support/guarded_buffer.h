// Test memory placed between inaccessible guard pages, so that a stray read
// or write just outside it crashes the test instead of passing silently.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace pvx_test {

class GuardedBuffer {
public:
    enum class Side { End, Start };

    // `size` usable bytes. Side::End puts the last byte right before the
    // trailing guard page (the start is rounded down to `align`, leaving at
    // most align-1 bytes of slack); Side::Start puts the first byte right
    // after the leading guard page.
    explicit GuardedBuffer(size_t size, Side side = Side::End, size_t align = 16);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer &) = delete;
    GuardedBuffer &operator=(const GuardedBuffer &) = delete;
    GuardedBuffer(GuardedBuffer &&other) noexcept;
    GuardedBuffer &operator=(GuardedBuffer &&other) noexcept;

    uint8_t *data() const { return data_; }
    size_t size() const { return size_; }

private:
    void release();
    uint8_t *map_ = nullptr;
    size_t mapSize_ = 0;
    uint8_t *data_ = nullptr;
    size_t size_ = 0;
};

}  // namespace pvx_test

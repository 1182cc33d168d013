#include "tests/support/guarded_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace pvx_test {

GuardedBuffer::GuardedBuffer(size_t size, Side side, size_t align) : size_(size) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t body = (size + align + page - 1) / page * page;
    mapSize_ = body + 2 * page;
    void *m = mmap(nullptr, mapSize_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) std::abort();
    map_ = static_cast<uint8_t *>(m);
    if (mprotect(map_ + page, body, PROT_READ | PROT_WRITE) != 0) std::abort();
    if (side == Side::Start) {
        data_ = map_ + page;
    } else {
        uintptr_t end = reinterpret_cast<uintptr_t>(map_ + page + body);
        data_ = reinterpret_cast<uint8_t *>((end - size) / align * align);
    }
    std::memset(data_, 0, size_);
}

GuardedBuffer::~GuardedBuffer() { release(); }

GuardedBuffer::GuardedBuffer(GuardedBuffer &&other) noexcept { *this = std::move(other); }

GuardedBuffer &GuardedBuffer::operator=(GuardedBuffer &&other) noexcept {
    if (this != &other) {
        release();
        std::swap(map_, other.map_);
        std::swap(mapSize_, other.mapSize_);
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
    }
    return *this;
}

void GuardedBuffer::release() {
    if (map_) munmap(map_, mapSize_);
    map_ = nullptr;
    data_ = nullptr;
    size_ = 0;
}

}  // namespace pvx_test

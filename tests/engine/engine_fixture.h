// An engine over a work buffer placed between guard pages.
#pragma once

#include <stdint.h>
#include <string.h>

#include <memory>
#include <vector>

#include "engine/pvx_engine_context.h"
#include "parvex_distortion_correction.h"
#include "tests/support/guarded_buffer.h"

namespace pvx_test {

// Initialisation records: a lens by its coefficients (mode 0) or by a point
// table (mode 1).
inline parvex_DistortionCorrection_InitParam baseParam(const char *format, int32_t width, int32_t height,
                                                       int32_t mode) {
    parvex_DistortionCorrection_InitParam p;
    memset(&p, 0, sizeof p);
    p.format = format;
    p.width = width;
    p.height = height;
    p.mode = mode;
    return p;
}

inline parvex_DistortionCorrection_InitParam coefficientParam(const char *format, int32_t width, int32_t height,
                                                              double k1 = 0, double k2 = 0, double k3 = 0,
                                                              double k4 = 0) {
    parvex_DistortionCorrection_InitParam p = baseParam(format, width, height, 0);
    const double k[4] = {k1, k2, k3, k4};
    memcpy(p.coef, k, sizeof k);
    return p;
}

inline parvex_DistortionCorrection_InitParam tableParam(const char *format, int32_t width, int32_t height,
                                                        const std::vector<double> &xs, const std::vector<double> &ys) {
    parvex_DistortionCorrection_InitParam p = baseParam(format, width, height, 1);
    p.num = static_cast<int32_t>(xs.size());
    p.xs = xs.data();
    p.ys = ys.data();
    return p;
}

// Owns a guarded work buffer and the handle; finalizes on destruction.
class Engine {
public:
    explicit Engine(const parvex_DistortionCorrection_InitParam &param, int32_t extraBytes = 0)
        : size_(parvex_DistortionCorrection_getBufferSize(&param) + extraBytes),
          buffer_(new GuardedBuffer(static_cast<size_t>(size_), GuardedBuffer::Side::End, 16)) {
        handle_.p = nullptr;
        status_ = parvex_DistortionCorrection_initialize(&handle_, buffer_->data(), size_, &param);
    }
    ~Engine() {
        if (handle_.p && (context()->state & PVX_ENGINE_INITIALIZED)) parvex_DistortionCorrection_finalize(&handle_);
    }
    uint32_t status() const { return status_; }
    parvex_DistortionCorrection *handle() { return &handle_; }
    pvx_EngineContext *context() { return static_cast<pvx_EngineContext *>(handle_.p); }
    uint8_t *buffer() { return buffer_->data(); }
    int32_t size() const { return size_; }

private:
    int32_t size_;
    std::unique_ptr<GuardedBuffer> buffer_;
    parvex_DistortionCorrection handle_;
    uint32_t status_;
};

}  // namespace pvx_test

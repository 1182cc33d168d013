#include "frame.h"

#include <string.h>
#include <strings.h>

namespace parvex_tool {

const char *layoutName(Layout layout) {
    switch (layout) {
    case Layout::RGB888: return "RGB888";
    case Layout::BGR888: return "BGR888";
    case Layout::YUV420_PLANAR: return "YUV420_PLANAR";
    case Layout::YUV420_SEMIPLANAR: return "YUV420_SEMIPLANAR";
    case Layout::YVU420_SEMIPLANAR: return "YVU420_SEMIPLANAR";
    }
    return "?";
}

bool parseLayout(const std::string &text, Layout *layout) {
    static const Layout all[] = {Layout::RGB888, Layout::BGR888, Layout::YUV420_PLANAR,
                                 Layout::YUV420_SEMIPLANAR, Layout::YVU420_SEMIPLANAR};
    for (Layout l : all) {
        if (strcasecmp(text.c_str(), layoutName(l)) == 0) {
            *layout = l;
            return true;
        }
    }
    return false;
}

bool isYuv(Layout layout) { return layout != Layout::RGB888 && layout != Layout::BGR888; }

int planeCount(Layout layout) {
    switch (layout) {
    case Layout::RGB888:
    case Layout::BGR888: return 1;
    case Layout::YUV420_PLANAR: return 3;
    default: return 2;
    }
}

void Frame::allocate(Layout layout, int width, int height) {
    layout_ = layout;
    width_ = width;
    height_ = height;
    const size_t w = static_cast<size_t>(width), h = static_cast<size_t>(height);
    for (int p = 0; p < 3; ++p) {
        pitch_[p] = 0;
        rows_[p] = 0;
    }
    if (!isYuv(layout)) {
        pitch_[0] = 3 * w;
        rows_[0] = height;
    } else {
        const size_t ew = (w + 1) & ~static_cast<size_t>(1), eh = (h + 1) & ~static_cast<size_t>(1);
        pitch_[0] = ew;
        rows_[0] = static_cast<int>(eh);
        if (layout == Layout::YUV420_PLANAR) {
            pitch_[1] = pitch_[2] = ew / 2;
            rows_[1] = rows_[2] = static_cast<int>(eh / 2);
        } else {
            pitch_[1] = ew;
            rows_[1] = static_cast<int>(eh / 2);
        }
    }
    size_t total = 0;
    for (int p = 0; p < 3; ++p) {
        offset_[p] = total;
        total += pitch_[p] * static_cast<size_t>(rows_[p]);
    }
    bytes_.resize(total);
}

parvex_ImageData Frame::imageData() {
    parvex_ImageData d;
    memset(&d, 0, sizeof d);
    d.width = width_;
    d.height = height_;
    const int n = planeCount(layout_);
    for (int p = 0; p < n; ++p) d.dat[p] = plane(p);
    return d;
}

void Frame::fillPadding() {
    if (!isYuv(layout_) || bytes_.empty()) return;
    // Luma: the column after the last one and the row after the last one.
    if (width_ & 1) {
        for (int y = 0; y < height_; ++y) {
            uint8_t *r = row(0, y);
            r[width_] = r[width_ - 1];
        }
    }
    if (height_ & 1) memcpy(row(0, height_), row(0, height_ - 1), pitch_[0]);
}

}  // namespace parvex_tool

#include "chart.h"

#include <math.h>
#include <string.h>

#include <algorithm>

namespace parvex_tool {

namespace {

struct Glyph {
    char c;
    uint8_t rows[7];  // five bits each, the leftmost pixel in bit 4
};

const Glyph kFont[] = {
    {'A', {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}}, {'B', {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E}},
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}}, {'D', {0x1E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x1E}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}}, {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    {'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}}, {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}}, {'J', {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0C}},
    {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}}, {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}}, {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}},
    {'Q', {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}}, {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}}, {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0A, 0x04}},
    {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0A}}, {'X', {0x11, 0x11, 0x0A, 0x04, 0x0A, 0x11, 0x11}},
    {'Y', {0x11, 0x11, 0x0A, 0x04, 0x04, 0x04, 0x04}}, {'Z', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1F}},
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}}, {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}}, {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x0C}}, {'-', {0x00, 0x00, 0x00, 0x1F, 0x00, 0x00, 0x00}},
    {':', {0x00, 0x0C, 0x0C, 0x00, 0x0C, 0x0C, 0x00}}, {'/', {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x00}},
};

const uint8_t kBlack[3] = {0, 0, 0};
const uint8_t kWhite[3] = {255, 255, 255};

void setPixel(Frame *f, int x, int y, const uint8_t c[3]) {
    if (x < 0 || y < 0 || x >= f->width() || y >= f->height()) return;
    memcpy(f->row(0, y) + 3 * x, c, 3);
}

void fillRect(Frame *f, int x0, int y0, int x1, int y1, const uint8_t c[3]) {
    x0 = std::max(x0, 0);
    y0 = std::max(y0, 0);
    x1 = std::min(x1, f->width());
    y1 = std::min(y1, f->height());
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) memcpy(f->row(0, y) + 3 * x, c, 3);
}

// Line groups inside a box: `period` pixels of black then white, across
// (vertical lines) or down (horizontal lines).
void lineGroup(Frame *f, int x0, int y0, int x1, int y1, int width, bool vertical) {
    fillRect(f, x0, y0, x1, y1, kWhite);
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            if ((((vertical ? x - x0 : y - y0) / width) & 1) == 0) setPixel(f, x, y, kBlack);
}

}  // namespace

void drawText(Frame *rgb, int x, int y, int scale, const std::string &text, const uint8_t colour[3]) {
    for (size_t n = 0; n < text.size(); ++n) {
        const Glyph *glyph = nullptr;
        for (const Glyph &g : kFont)
            if (g.c == text[n]) glyph = &g;
        if (!glyph) continue;
        const int gx = x + static_cast<int>(n) * 6 * scale;
        for (int r = 0; r < 7; ++r)
            for (int c = 0; c < 5; ++c)
                if (glyph->rows[r] & (0x10 >> c)) fillRect(rgb, gx + c * scale, y + r * scale, gx + (c + 1) * scale, y + (r + 1) * scale, colour);
    }
}

static int chartCell(int height) { return std::max(16, height / 9); }

std::vector<Point> chartCrossings(int width, int height) {
    const int cell = chartCell(height), cx = width / 2, cy = height / 2;
    std::vector<Point> points;
    for (int j = -(cy / cell); j <= (height - cy) / cell; ++j)
        for (int i = -(cx / cell); i <= (width - cx) / cell; ++i) {
            const int x = cx + i * cell, y = cy + j * cell;
            if (x >= 1 && x < width && y >= 1 && y < height) points.push_back({x - 0.5, y - 0.5});
        }
    return points;
}

Frame drawChart(int width, int height) {
    Frame f(Layout::RGB888, width, height);
    const int cell = chartCell(height);
    const int cx = width / 2, cy = height / 2;
    auto cellX = [&](int i) { return cx + i * cell; };
    auto cellY = [&](int j) { return cy + j * cell; };

    // Checkerboard aligned on the centre, with rings around it.
    const double ring = cell * 0.75;
    for (int y = 0; y < height; ++y) {
        uint8_t *row = f.row(0, y);
        const int j = static_cast<int>(floor(static_cast<double>(y - cy) / cell));
        for (int x = 0; x < width; ++x) {
            const int i = static_cast<int>(floor(static_cast<double>(x - cx) / cell));
            uint8_t v = ((i + j) & 1) ? 150 : 205;
            uint8_t rgb[3] = {v, v, v};
            const double r = hypot(x + 0.5 - cx, y + 0.5 - cy);
            if (fmod(r, ring) < 2.0 && r > 1.0) {
                rgb[0] = 30;
                rgb[1] = 60;
                rgb[2] = 170;
            }
            memcpy(row + 3 * x, rgb, 3);
        }
    }
    // Grid lines, two pixels wide, on the cell edges.
    for (int i = -(cx / cell) - 1; i <= (width - cx) / cell + 1; ++i) fillRect(&f, cellX(i) - 1, 0, cellX(i) + 1, height, kBlack);
    for (int j = -(cy / cell) - 1; j <= (height - cy) / cell + 1; ++j) fillRect(&f, 0, cellY(j) - 1, width, cellY(j) + 1, kBlack);

    const int m = cell / 12;  // margin inside a cell
    // Colour patches across the top, a grey ramp across the bottom.
    static const uint8_t patches[8][3] = {{220, 30, 30}, {30, 180, 40}, {30, 60, 220}, {0, 200, 220},
                                          {210, 40, 200}, {240, 220, 20}, {255, 255, 255}, {0, 0, 0}};
    for (int n = 0; n < 8; ++n) fillRect(&f, cellX(n - 4) + m, cellY(-4) + m, cellX(n - 3) - m, cellY(-3) - m, patches[n]);
    for (int n = 0; n < 16; ++n) {
        const uint8_t v = static_cast<uint8_t>(n * 17);
        const uint8_t grey[3] = {v, v, v};
        fillRect(&f, cellX(-4) + n * cell / 2, cellY(3) + m, cellX(-4) + (n + 1) * cell / 2, cellY(4) - m, grey);
    }

    // Fine line groups near the centre and in the corners.
    const int groups[][2] = {{-3, -2}, {-2, -2}, {1, -2}, {2, -2}, {-3, 1}, {-2, 1}, {1, 1}, {2, 1}};
    for (int n = 0; n < 8; ++n) {
        const int i = groups[n][0], j = groups[n][1];
        lineGroup(&f, cellX(i) + m, cellY(j) + m, cellX(i + 1) - m, cellY(j + 1) - m, 1 + (n & 1), (n & 2) == 0);
    }
    const int corners = std::max(1, cy / cell);
    const int cornerCells[4][2] = {{-cx / cell, -corners}, {(width - cx) / cell - 1, -corners},
                                   {-cx / cell, corners - 1}, {(width - cx) / cell - 1, corners - 1}};
    for (const auto &c : cornerCells) {
        const int x0 = cellX(c[0]) + m, y0 = cellY(c[1]) + m, x1 = cellX(c[0] + 1) - m, y1 = cellY(c[1] + 1) - m;
        lineGroup(&f, x0, y0, (x0 + x1) / 2, y1, 1, true);
        lineGroup(&f, (x0 + x1) / 2, y0, x1, y1, 1, false);
    }

    // Title and rows of small glyphs on white bands.
    const int scale = std::max(1, cell / 30);
    fillRect(&f, cellX(-4) + m, cellY(-3) + m, cellX(4) - m, cellY(-2) - m, kWhite);
    drawText(&f, cellX(-4) + 2 * m, cellY(-3) + 2 * m, scale, "PARVEX LENS CHART", kBlack);
    drawText(&f, cellX(-4) + 2 * m, cellY(-3) + 2 * m + 9 * scale, std::max(1, scale / 2),
             std::to_string(width) + "X" + std::to_string(height) + " - DISTORTION CORRECTION TEST", kBlack);
    fillRect(&f, cellX(-6) + m, cellY(2) + m, cellX(6) - m, cellY(3) - m, kWhite);
    const std::string glyphs = "ABCDEFGHIJKLMNOPQRSTUVWXYZ 0123456789 .-:/";
    drawText(&f, cellX(-6) + 2 * m, cellY(2) + 2 * m, 1, glyphs + " " + glyphs, kBlack);
    drawText(&f, cellX(-6) + 2 * m, cellY(2) + 2 * m + 10, 2, glyphs, kBlack);

    // Centre mark.
    const uint8_t red[3] = {230, 0, 0};
    fillRect(&f, cx - cell / 4, cy, cx + cell / 4, cy + 1, red);
    fillRect(&f, cx, cy - cell / 4, cx + 1, cy + cell / 4, red);
    return f;
}

}  // namespace parvex_tool

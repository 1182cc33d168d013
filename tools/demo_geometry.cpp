#include "demo_geometry.h"

#include <math.h>

#include <algorithm>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace parvex_tool {

namespace {

// Half the side of the window in which a crossing is refined: inside the
// chart's cell margins, so that patches and text stay out of it.
constexpr int kHalfWindow = 7;
constexpr double kSmoothing = 0.8;  // Gaussian sigma, pixels

// The luma, smoothed a little: the chart's edges are sharp and the
// corrected frame's are softened by two resamplings; smoothing both alike
// keeps that difference from moving the located crossings.
cv::Mat lumaOf(const Frame &frame) {
    const cv::Mat luma(frame.height(), frame.width(), CV_8UC1, const_cast<uint8_t *>(frame.plane(0)), frame.pitch(0));
    cv::Mat smooth;
    cv::GaussianBlur(luma, smooth, cv::Size(0, 0), kSmoothing);
    return smooth;
}

// Refines `points` in place on the saddle of two crossing lines.
void refine(const cv::Mat &luma, std::vector<cv::Point2f> *points) {
    cv::cornerSubPix(luma, *points, cv::Size(kHalfWindow, kHalfWindow), cv::Size(-1, -1),
                     cv::TermCriteria(cv::TermCriteria::EPS + cv::TermCriteria::COUNT, 40, 0.001));
}

// Undrawn luma pixels of the output, from the border's spans.
cv::Mat undrawnMask(const Border &border, int width, int height) {
    cv::Mat mask(height, width, CV_8UC1, cv::Scalar(0));
    const parvex_BorderFill &fill = border.spans();
    for (int32_t i = 0; i < fill.count; ++i) {
        const parvex_BorderSpan &s = fill.spans[i];
        if (s.plane == 0) mask.row(s.row).colRange(s.begin, s.end).setTo(255);
    }
    return mask;
}

}  // namespace

CrossingError measureCrossings(const Frame &chart, const Frame &corrected, const Border &border) {
    const int w = corrected.width(), h = corrected.height();
    const cv::Mat undrawn = undrawnMask(border, w, h);
    const int reach = 2 * kHalfWindow + 4;  // window plus the refinement's drift
    std::vector<cv::Point2f> reference;
    for (const Point &p : chartCrossings(chart.width(), chart.height())) {
        const int x = static_cast<int>(p.x), y = static_cast<int>(p.y);
        if (x < reach || y < reach || x >= w - reach || y >= h - reach) continue;
        if (cv::countNonZero(undrawn(cv::Rect(x - reach, y - reach, 2 * reach + 1, 2 * reach + 1))) > 0) continue;
        reference.push_back(cv::Point2f(static_cast<float>(p.x), static_cast<float>(p.y)));
    }
    CrossingError error;
    if (reference.empty()) return error;
    refine(lumaOf(chart), &reference);
    std::vector<cv::Point2f> located = reference;
    refine(lumaOf(corrected), &located);

    std::vector<double> distances;
    for (size_t i = 0; i < reference.size(); ++i) {
        error.reference.push_back({reference[i].x, reference[i].y});
        error.located.push_back({located[i].x, located[i].y});
        distances.push_back(hypot(located[i].x - reference[i].x, located[i].y - reference[i].y));
    }
    std::sort(distances.begin(), distances.end());
    const size_t n = distances.size();
    error.median = n % 2 ? distances[n / 2] : 0.5 * (distances[n / 2 - 1] + distances[n / 2]);
    error.largest = distances.back();
    return error;
}

Frame drawDisplacements(const Frame &rgb, const CrossingError &error, double scale) {
    Frame out(Layout::RGB888, rgb.width(), rgb.height());
    cv::Mat src(rgb.height(), rgb.width(), CV_8UC3, const_cast<uint8_t *>(rgb.data()), rgb.pitch(0));
    cv::Mat dst(out.height(), out.width(), CV_8UC3, out.data(), out.pitch(0));
    cv::Mat grey;
    cv::cvtColor(src, grey, cv::COLOR_RGB2GRAY);
    grey = grey / 2 + 64;  // dimmed, so that the arrows stand out
    cv::cvtColor(grey, dst, cv::COLOR_GRAY2RGB);
    for (size_t i = 0; i < error.reference.size(); ++i) {
        const Point &a = error.reference[i], &b = error.located[i];
        const double d = hypot(b.x - a.x, b.y - a.y);
        const cv::Scalar colour = d < 0.25 ? cv::Scalar(0, 200, 0) : d < 0.5 ? cv::Scalar(230, 200, 0) : cv::Scalar(230, 0, 0);
        const cv::Point2d from(a.x, a.y), to(a.x + scale * (b.x - a.x), a.y + scale * (b.y - a.y));
        cv::circle(dst, from, 3, colour, cv::FILLED, cv::LINE_AA);
        if (d * scale >= 2.0) cv::arrowedLine(dst, from, to, colour, 2, cv::LINE_AA, 0, std::min(0.3, 8.0 / (d * scale)));
    }
    return out;
}

}  // namespace parvex_tool

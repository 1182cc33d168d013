// Frame time of parvex_DistortionCorrection_process against OpenCV's fastest
// remap (fixed-point CV_16SC2 maps with their CV_16UC1 interpolation table,
// bilinear) on the same frames and a comparable barrel lens (k1 0.2, k2 0.05
// on radii normalised by half the diagonal), for every engine format, two
// frame sizes, zoom 1 and 1.5, on one core and on two.
//
// Samples alternate between the two (parvex, OpenCV, parvex, ...) so that
// both see the same load on a shared machine; see typical() for the statistic.
// One core: the calling thread is pinned to processor 0, the engine runs one
// worker (no threads of its own) and OpenCV one thread. Two cores: threads
// may use processors 0 and 1, with two engine workers and two OpenCV threads.
//
// OpenCV gets what a camera pipeline would do with it for the same format:
// 4:2:0 frames remap the Y plane with the full-size map and the chroma at
// half size with a half-size map (one two-channel remap of the interleaved
// pair, or one remap per planar chroma plane); RGB888 and BGR888 remap one
// three-channel image. At zoom 1.5 OpenCV's maps already hold the zoom, so
// it pays one remap, while parvex renders and then resizes; zoomed cases
// also time the engine at zoom 1 in the same rotation ("vs zoom 1").
//
// Usage: remap_compare_bench [--quick] [--wall] [--filter TEXT] [--samples N] [--cpu LEVEL]
//   --quick    1920x1080 only, fewer samples
//   --cpu      the engine's vector code at most at LEVEL (c, ssse3, sse4.1, avx2,
//              avx512, avx512vbmi), as on a processor that stops there
//   --wall     one-core cases in elapsed time too (default: the thread's CPU time)
//   --filter   only the cases whose name contains TEXT (e.g. "RGB888 4000")
#include <pthread.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/pvx_engine_context.h"
#include "parvex_distortion_correction.h"
#include "runtime/pvx_pel.h"
#include "runtime/pvx_cpu.h"

namespace {

constexpr double kK1 = 0.2, kK2 = 0.05;

enum class Layout { Semiplanar, Planar, Rgb };

struct Format {
    const char *name;
    Layout layout;
};
const Format kFormats[] = {{"YUV420_SEMIPLANAR", Layout::Semiplanar},
                           {"YVU420_SEMIPLANAR", Layout::Semiplanar},
                           {"YUV420_PLANAR", Layout::Planar},
                           {"RGB888", Layout::Rgb},
                           {"BGR888", Layout::Rgb}};

// One core: both sides run on the calling thread alone, so its CPU time is
// their cost even when other processes share the processor. Two cores:
// elapsed time, the only measure of a split frame (noisy on a busy machine).
bool g_threadClock = true;

// CPU time: the median sample. Elapsed time: the fastest, the sample least
// disturbed by other processes (a busy machine only ever adds time).
double typical(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    if (!g_threadClock) return v[0];
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

double nowMs() {
    struct timespec t;
    clock_gettime(g_threadClock ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}



void pinCallingThread(int cores) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int c = 0; c < cores; ++c) CPU_SET(c, &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

// Smooth test picture with some texture, the same bytes for both sides.
void fillPicture(cv::Mat &m, int seed) {
    for (int y = 0; y < m.rows; ++y) {
        uint8_t *row = m.ptr<uint8_t>(y);
        const int bytes = m.cols * m.channels();
        for (int i = 0; i < bytes; ++i)
            row[i] = static_cast<uint8_t>(((i / m.channels()) * 3 + y * 5 + seed * 40 + ((i * 7 + y * 13) & 31)) & 255);
    }
}

// One frame in the engine's layout, with OpenCV headers over the same planes.
struct Frame {
    cv::Mat y, chroma, u, v;   // Semiplanar: y + chroma (2 channels); Planar: y + u + v; Rgb: y (3 channels)
    parvex_ImageData record;
};

Frame makeFrame(Layout layout, int w, int h, int seed) {
    Frame f;
    memset(&f.record, 0, sizeof f.record);
    f.record.width = w;
    f.record.height = h;
    if (layout == Layout::Rgb) {
        f.y.create(h, w, CV_8UC3);
        fillPicture(f.y, seed);
        f.record.dat[0] = f.y.data;
        return f;
    }
    f.y.create(h, w, CV_8UC1);
    fillPicture(f.y, seed);
    f.record.dat[0] = f.y.data;
    const int cw = (w + 1) / 2, ch = (h + 1) / 2;
    if (layout == Layout::Semiplanar) {
        f.chroma.create(ch, cw, CV_8UC2);
        fillPicture(f.chroma, seed + 1);
        f.record.dat[1] = f.chroma.data;
    } else {
        f.u.create(ch, cw, CV_8UC1);
        f.v.create(ch, cw, CV_8UC1);
        fillPicture(f.u, seed + 1);
        fillPicture(f.v, seed + 2);
        f.record.dat[1] = f.u.data;
        f.record.dat[2] = f.v.data;
    }
    return f;
}

// Undistortion maps for a w x h frame: output pixel -> source pixel through
// r_src = r (1 + k1 r^2 + k2 r^4), radii in units of half the source
// diagonal, scaled so that the output's corners still land inside the source
// (as the engine fills its frame), then narrowed by `zoom`.
struct Maps {
    cv::Mat xy, frac;   // CV_16SC2 and CV_16UC1
};

Maps makeMaps(int w, int h, double zoom) {
    const double unit = 0.5 * std::hypot(w, h);
    // Largest output radius u (in units) whose distorted radius stays at 1.
    double lo = 0, hi = 1;
    for (int i = 0; i < 60; ++i) {
        const double m = 0.5 * (lo + hi), m2 = m * m;
        (m * (1 + kK1 * m2 + kK2 * m2 * m2) <= 1 ? lo : hi) = m;
    }
    const double scale = lo / zoom;   // output radius 1 -> this radius before distortion
    cv::Mat mx(h, w, CV_32FC1), my(h, w, CV_32FC1);
    const double cx = 0.5 * (w - 1), cy = 0.5 * (h - 1);
    for (int y = 0; y < h; ++y) {
        float *px = mx.ptr<float>(y), *py = my.ptr<float>(y);
        for (int x = 0; x < w; ++x) {
            const double dx = (x - cx) / unit * scale, dy = (y - cy) / unit * scale;
            const double r2 = dx * dx + dy * dy, d = 1 + kK1 * r2 + kK2 * r2 * r2;
            px[x] = static_cast<float>(cx + dx * d * unit);
            py[x] = static_cast<float>(cy + dy * d * unit);
        }
    }
    Maps m;
    cv::convertMaps(mx, my, m.xy, m.frac, CV_16SC2, false);
    return m;
}

// The engine for one format and size, with its worker count settable.
class Engine {
public:
    Engine(const char *format, int w, int h) {
        parvex_DistortionCorrection_InitParam param;
        memset(&param, 0, sizeof param);
        param.format = format;
        param.width = w;
        param.height = h;
        param.mode = 0;
        param.coef[0] = kK1;
        param.coef[1] = kK2;
        const int32_t size = parvex_DistortionCorrection_getBufferSize(&param);
        if (size <= 0) return;
        buffer_ = aligned_alloc(64, (static_cast<size_t>(size) + 63) / 64 * 64);
        ok_ = buffer_ && parvex_DistortionCorrection_initialize(&handle_, buffer_, size, &param) == PARVEX_OK;
        if (ok_) {
            initialized_ = true;
            ok_ = parvex_DistortionCorrection_start(&handle_) == PARVEX_OK;
        }
    }
    ~Engine() {
        if (initialized_) parvex_DistortionCorrection_finalize(&handle_);
        free(buffer_);
    }
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    bool ok() const { return ok_; }
    bool setWorkers(int workers) {
        pvx_PelParams params;
        pvx_Pel_resetParams(&params);
        params.numWorkers = workers;
        return pvx_Pel_init(&static_cast<pvx_EngineContext *>(handle_.p)->pel, &params) == PVX_OK;
    }
    bool setZoom(double zoom) { return parvex_DistortionCorrection_setZoomRatio(&handle_, zoom) == PARVEX_OK; }
    uint32_t process(Frame &out, const Frame &in) {
        return parvex_DistortionCorrection_process(&handle_, &out.record, &in.record);
    }

private:
    parvex_DistortionCorrection handle_{};
    void *buffer_ = nullptr;
    bool ok_ = false, initialized_ = false;
};

void remapFrame(Layout layout, Frame &out, const Frame &in, const Maps &full, const Maps &half) {
    const int flags = cv::INTER_LINEAR;
    cv::remap(in.y, out.y, full.xy, full.frac, flags, cv::BORDER_CONSTANT);
    if (layout == Layout::Semiplanar) {
        cv::remap(in.chroma, out.chroma, half.xy, half.frac, flags, cv::BORDER_CONSTANT);
    } else if (layout == Layout::Planar) {
        cv::remap(in.u, out.u, half.xy, half.frac, flags, cv::BORDER_CONSTANT);
        cv::remap(in.v, out.v, half.xy, half.frac, flags, cv::BORDER_CONSTANT);
    }
}

struct Options {
    bool quick = false;
    std::string filter;
    int samples = 0;   // 0: by frame size
    bool wall = false;  // elapsed time for one core too
    uint32_t cpuMask = PVX_CPU_LEVEL_ALL;
};

bool cpuLevelMask(const char *name, uint32_t *mask) {
    static const struct {
        const char *name;
        uint32_t mask;
    } kLevels[] = {{"c", PVX_CPU_LEVEL_C},           {"ssse3", PVX_CPU_LEVEL_SSSE3},
                   {"sse4.1", PVX_CPU_LEVEL_SSE41},  {"avx2", PVX_CPU_LEVEL_AVX2},
                   {"avx512", PVX_CPU_LEVEL_AVX512}, {"avx512vbmi", PVX_CPU_LEVEL_AVX512VBMI}};
    for (const auto &level : kLevels)
        if (strcmp(name, level.name) == 0) {
            *mask = level.mask;
            return true;
        }
    return false;
}

bool parseOptions(int argc, char **argv, Options &o) {
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--quick") == 0) {
            o.quick = true;
        } else if (strcmp(argv[i], "--wall") == 0) {
            o.wall = true;
        } else if (strcmp(argv[i], "--filter") == 0 && i + 1 < argc) {
            o.filter = argv[++i];
        } else if (strcmp(argv[i], "--samples") == 0 && i + 1 < argc) {
            o.samples = atoi(argv[++i]);
        } else if (strcmp(argv[i], "--cpu") == 0 && i + 1 < argc && cpuLevelMask(argv[i + 1], &o.cpuMask)) {
            ++i;
        } else {
            fprintf(stderr, "usage: %s [--quick] [--wall] [--filter TEXT] [--samples N] [--cpu LEVEL]\n", argv[0]);
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    Options opt;
    if (!parseOptions(argc, argv, opt)) return 2;
    pvx_Cpu_setMask(opt.cpuMask);
    printf("engine vector level: %s\n", pvx_Cpu_levelName(pvx_Cpu_flags()));
    std::vector<std::pair<int, int>> sizes = {{1920, 1080}};
    if (!opt.quick) sizes.push_back({4000, 3000});
    const double zooms[] = {1.0, 1.5};
    const int coreCounts[] = {2, 1};   // two first: OpenCV's pool threads are created with both processors allowed

    std::map<std::pair<int, int>, std::map<double, std::pair<Maps, Maps>>> maps;
    printf("%-18s %-9s %-4s %-5s %10s %10s %8s %10s\n", "format", "size", "zoom", "cores", "parvex ms", "opencv ms",
           "ratio", "vs zoom 1");
    for (const auto &size : sizes) {
        const int w = size.first, h = size.second;
        const int samples = opt.samples > 0 ? opt.samples : (opt.quick ? 9 : (w * h > 4000000 ? 9 : 21));
        for (const Format &format : kFormats) {
            for (double zoom : zooms) {
                for (int cores : coreCounts) {
                    char name[96];
                    snprintf(name, sizeof name, "%s %dx%d zoom %.1f %s", format.name, w, h, zoom,
                             cores == 1 ? "1core" : "2cores");
                    if (!opt.filter.empty() && std::string(name).find(opt.filter) == std::string::npos) continue;
                    char sizeText[16];
                    snprintf(sizeText, sizeof sizeText, "%dx%d", w, h);
                    const auto line = [&](const char *rest) {
                        printf("%-18s %-9s %-4.1f %-5d %s\n", format.name, sizeText, zoom, cores, rest);
                        fflush(stdout);
                    };

                    auto &zoomMaps = maps[size];
                    if (zoomMaps.find(zoom) == zoomMaps.end())
                        zoomMaps.emplace(zoom, std::make_pair(makeMaps(w, h, zoom),
                                                              makeMaps((w + 1) / 2, (h + 1) / 2, zoom)));
                    const Maps &full = zoomMaps.at(zoom).first, &half = zoomMaps.at(zoom).second;

                    pinCallingThread(cores);
                    g_threadClock = cores == 1 && !opt.wall;
                    cv::setNumThreads(cores);
                    Engine engine(format.name, w, h);
                    if (!engine.ok() || !engine.setWorkers(cores) || !engine.setZoom(zoom)) {
                        line("engine set-up failed");
                        continue;
                    }
                    Frame in = makeFrame(format.layout, w, h, 0), out = makeFrame(format.layout, w, h, 1),
                          cvOut = makeFrame(format.layout, w, h, 2);
                    const uint32_t status = engine.process(out, in);
                    if (status != PARVEX_OK) {
                        char text[96];
                        if (status == PARVEX_ERROR_IMAGE_FORMAT && zoom != 1.0)
                            snprintf(text, sizeof text, "refused: the resize takes no %s", format.name);
                        else
                            snprintf(text, sizeof text, "process refused (0x%08X)", status);
                        line(text);
                        continue;
                    }
                    remapFrame(format.layout, cvOut, in, full, half);

                    // Zoomed cases also time the same engine at zoom 1 in the
                    // same rotation: the cost of the zoom, free of the load's drift.
                    const bool zoomed = zoom != 1.0;
                    std::vector<double> ours, theirs, unzoomed;
                    for (int s = 0; s < samples; ++s) {
                        double t0 = nowMs();
                        engine.process(out, in);
                        ours.push_back(nowMs() - t0);
                        t0 = nowMs();
                        remapFrame(format.layout, cvOut, in, full, half);
                        theirs.push_back(nowMs() - t0);
                        if (zoomed) {
                            engine.setZoom(1.0);
                            t0 = nowMs();
                            engine.process(out, in);
                            unzoomed.push_back(nowMs() - t0);
                            engine.setZoom(zoom);
                        }
                    }
                    const double a = typical(ours), b = typical(theirs);
                    char text[128];
                    if (zoomed)
                        snprintf(text, sizeof text, "%10.2f %10.2f %7.2fx %9.2fx", a, b, b / a, a / typical(unzoomed));
                    else
                        snprintf(text, sizeof text, "%10.2f %10.2f %7.2fx", a, b, b / a);
                    line(text);
                }
            }
        }
    }
    printf("one core: median CPU time of the calling thread%s; two cores: fastest elapsed time\n",
           opt.wall ? " (here fastest elapsed)" : "");
    printf("ratio: OpenCV time / parvex time (above 1: parvex is faster); vs zoom 1: parvex time over its zoom-1 "
           "time in the same run\n");
    return 0;
}

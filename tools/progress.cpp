#include "progress.h"

#include <stdio.h>
#include <unistd.h>

namespace parvex_tool {

Progress::Progress(bool quiet)
    : quiet_(quiet), terminal_(isatty(2) != 0), start_(std::chrono::steady_clock::now()) {}

double Progress::elapsed() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void Progress::frameDone(double processSeconds, double fillSeconds) {
    ++frames_;
    processTotal_ += processSeconds;
    fillTotal_ += fillSeconds;
    if (quiet_) return;
    const double now = elapsed();
    if (now - lastReport_ < (terminal_ ? 0.5 : 5.0)) return;
    lastReport_ = now;
    fprintf(stderr, "%sparvex: frame %lld, %.1f fps%s", terminal_ ? "\r" : "", frames_, frames_ / now,
            terminal_ ? "   " : "\n");
    lineOpen_ = terminal_;
    fflush(stderr);
}

void Progress::finish(const std::string &what) {
    if (quiet_) return;
    const double total = elapsed();
    if (lineOpen_) fputc('\n', stderr);
    const double perFrame = frames_ ? 1000.0 / frames_ : 0.0;
    fprintf(stderr, "parvex: %s %lld frame%s in %.2f s (%.1f fps; %.2f ms per frame in the library, %.3f ms filling the border)\n",
            what.c_str(), frames_, frames_ == 1 ? "" : "s", total, total > 0 ? frames_ / total : 0.0,
            processTotal_ * perFrame, fillTotal_ * perFrame);
}

}  // namespace parvex_tool

#include "thread_count.h"

#include <dirent.h>

#include <chrono>
#include <thread>

namespace pvx_test {

int threadCount() {
    static const bool settled = [] {
        std::thread([] {}).join();
        return true;
    }();
    (void)settled;
    int n = 0;
    DIR *d = opendir("/proc/self/task");
    while (dirent *e = d ? readdir(d) : nullptr)
        if (e->d_name[0] != '.') ++n;
    if (d) closedir(d);
    return n;
}

int threadCountAfterJoins(int expected) {
    int n = threadCount();
    for (int i = 0; i < 200 && n > expected; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        n = threadCount();
    }
    return n;
}

int settledThreadCount() {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return threadCount();
}

}  // namespace pvx_test

// Counting the threads of the test process, for checks that an engine ends
// every worker it started.
#pragma once

namespace pvx_test {

// Threads of the process now. The first thread a program starts may bring
// helpers of its own (ThreadSanitizer's), so one is started and joined first.
int threadCount();

// The thread count once threads that were joined have left the process: an
// emulator (qemu-user) lets the joined thread's host thread linger briefly.
int threadCountAfterJoins(int expected);

// The count before a test's engines: threads joined by earlier tests gone.
int settledThreadCount();

}  // namespace pvx_test

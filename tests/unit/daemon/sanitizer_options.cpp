// SPDX-License-Identifier: MIT
// What a thread sanitizer would report of these tests and is meant: a signal handler that exits, a
// worker thread that is neither joined nor detached, and a thread that waits for itself on the
// service mutex. Data races are reported as ever. The concurrent tests go without this.
extern "C" const char* __tsan_default_options();

extern "C" const char* __tsan_default_options() {
    return "report_signal_unsafe=0 report_thread_leaks=0 report_mutex_bugs=0";
}

#include "workingProcess.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

namespace sim {

namespace {

// Shared between parent and child.
std::atomic<pid_t>* worker = nullptr;

void becomeWorker() {
    *worker = ::getpid();
}

} // namespace

void watchWorkingProcess(void (*atEnd)()) {
    void* const shared =
        ::mmap(nullptr, sizeof *worker, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        throw std::bad_alloc();
    }
    worker = new (shared) std::atomic<pid_t>;
    becomeWorker();
    ::pthread_atfork(nullptr, nullptr, becomeWorker);
    if (std::atexit(atEnd) != 0) {
        throw std::bad_alloc();
    }
}

pid_t workingProcess() noexcept {
    return *worker;
}

} // namespace sim

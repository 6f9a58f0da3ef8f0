// Fails chosen allocations and system calls, libc's own ones included, of the unmodified agent
// under which it is put with LD_PRELOAD, from the start of its main on. Has the agent's long waits
// end at once: the cycle's first with what is due then, its second with SIGTERM.

#include "hostFaults.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_realloc(void* block, std::size_t size) noexcept;

/// A system call that is neither counted nor failed: behind it is the one place that the filter
/// lets pass.
long directCall(long number, ...);
extern const char behindDirectCall[];
}

asm(R"(
    .pushsection .text
directCall:
    mov %rdi, %rax
    mov %rsi, %rdi
    mov %rdx, %rsi
    mov %rcx, %rdx
    mov %r8, %r10
    mov %r9, %r8
    mov 8(%rsp), %r9
    syscall
behindDirectCall:
    ret
    .popsection
)");

namespace {

constexpr std::size_t maskSize = 8; // the kernel's sigset_t
constexpr timespec shortWait{0, 10'000'000};

HostFaults* faults = nullptr;
decltype(&pthread_cond_clockwait) conditionWait = nullptr;

/// Counts the call.
bool isToFail(unsigned kind) noexcept {
    if (faults == nullptr) {
        return false;
    }
    const unsigned number = ++faults->calls[kind];
    return kind == faults->kind && number >= faults->first && number <= faults->last;
}

bool isOutOfMemory() noexcept {
    if (!isToFail(HostFaults::allocation)) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

/// Handler of SIGSYS, which comes in place of every system call.
void onSystemCall(int /*signal*/, siginfo_t* info, void* interrupted) {
    auto& context = *static_cast<ucontext_t*>(interrupted);
    auto& r = context.uc_mcontext.gregs;
    const int number = info->si_syscall;
    if (isToFail(static_cast<unsigned>(number))) {
        r[REG_RAX] = -faults->error;
        return;
    }
    r[REG_RAX] =
        directCall(number, r[REG_RDI], r[REG_RSI], r[REG_RDX], r[REG_R10], r[REG_R8], r[REG_R9]);
    if (number == SYS_rt_sigprocmask) { // the mask that this handler's end brings back
        directCall(SYS_rt_sigprocmask, SIG_SETMASK, nullptr, &context.uc_sigmask, maskSize);
        sigdelset(&context.uc_sigmask, SIGSYS);
    }
}

void catchSystemCalls() {
    struct sigaction action {};
    action.sa_sigaction = onSystemCall;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaction(SIGSYS, &action, nullptr);
    // A thread's start cannot be carried out within a handler.
    const unsigned threadStart =
        faults->kind == SYS_clone3 ? SECCOMP_RET_ERRNO | EAGAIN : SECCOMP_RET_ALLOW;
    const auto address = reinterpret_cast<std::uintptr_t>(behindDirectCall);
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_rt_sigreturn, 7, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 5, 0),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, instruction_pointer)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(address), 0, 2),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, instruction_pointer) + 4),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(address >> 32), 2, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
        BPF_STMT(BPF_RET | BPF_K, threadStart),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(filter), filter};
    if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        std::abort();
    }
}

[[gnu::constructor]] void begin() {
    const char* const name = std::getenv("TAV_HOST_FAULTS");
    const int file = name == nullptr ? -1 : ::open(name, O_RDWR | O_CLOEXEC);
    void* const memory =
        ::mmap(nullptr, sizeof(HostFaults), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED) {
        std::abort();
    }
    ::close(file);
    conditionWait =
        reinterpret_cast<decltype(conditionWait)>(::dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
    faults = static_cast<HostFaults*>(memory);
    catchSystemCalls();
}

void send(int signal) {
    directCall(SYS_kill, ::getpid(), signal);
}

bool isOnlyThread() {
    struct stat threads {};
    directCall(SYS_stat, "/proc/self/task", &threads);
    return threads.st_nlink == 3; // of any folder: one, its own, its subfolders'
}

} // namespace

extern "C" {

void* malloc(std::size_t size) noexcept {
    return isOutOfMemory() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return isOutOfMemory() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) noexcept {
    return isOutOfMemory() ? nullptr : __libc_realloc(block, size);
}

/// The daemon's wait, or that of the foreground's entry, which is over when its worker is.
int ppoll(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    timespec left = *timeout;
    if (left.tv_sec != 0) {
        left = shortWait;
        if (!faults->foreground) {
            send(++faults->waits == 1 ? SIGALRM : SIGTERM);
        } else if (isOnlyThread()) {
            send(SIGTERM);
        }
    }
    return static_cast<int>(::syscall(SYS_ppoll, descriptors, count, &left, mask, maskSize));
}

/// The wait of the foreground's worker.
int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* deadline) {
    if (++faults->waits == 1) {
        return ETIMEDOUT;
    }
    send(SIGTERM);
    return conditionWait(condition, mutex, clock, deadline);
}

} // extern "C"

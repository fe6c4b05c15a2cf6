#include "sim/Loan.h"

#include <linux/futex.h>
#include <pthread.h>
#include <signal.h>
#include <sys/auxv.h>
#include <sys/syscall.h>
#include <unistd.h>

// The three pieces that no compiler writes. SAVE and RESTORE keep on the stack what a function has to
// preserve for its caller, the floating-point control words included, in the same order for both users.
extern "C" {
// switchTo(). The thread pointer is set by an instruction, or by a system call where that is locked.
void simSwitch(sim::Place* here, const sim::Place* next, bool bySystemCall);
// Calls work(argument) at the end of the side stack, and then goes on at `here`, which somebody else may
// have moved meanwhile. A debugger that looks at the sleeping thread finds the lent stack through `here`:
// the escape says that the caller's frame begins so many bytes above *(*sp), and "signal frame" that it
// may well be on a stack further down.
void simLend(sim::Place* here, void* sideStackEnd, void (*work)(void*), void* argument);
// A system call of three arguments that leaves errno alone: a sleeping thread's is in the runner's hands.
long simSystemCall(long number, long first, long second, long third);
}

#if defined(__x86_64__)
asm(R"(
    .text
    .macro SAVE
    pushq %rbp
    pushq %rbx
    pushq %r12
    pushq %r13
    pushq %r14
    pushq %r15
    subq $8, %rsp
    stmxcsr (%rsp)
    fnstcw 4(%rsp)
    movq %rsp, (%rdi)
    movq %fs:0, %rax
    movq %rax, 8(%rdi)
    .cfi_def_cfa_offset 64
    .cfi_offset rbp, -16
    .cfi_offset rbx, -24
    .cfi_offset r12, -32
    .cfi_offset r13, -40
    .cfi_offset r14, -48
    .cfi_offset r15, -56
    .endm
    .macro RESTORE
    ldmxcsr (%rsp)
    fldcw 4(%rsp)
    addq $8, %rsp
    popq %r15
    popq %r14
    popq %r13
    popq %r12
    popq %rbx
    popq %rbp
    ret
    .endm

    .hidden simSwitch
    .globl simSwitch
    .type simSwitch, @function
simSwitch:
    .cfi_startproc
    SAVE
    movq (%rsi), %rsp
    movq 8(%rsi), %rsi
    testl %edx, %edx
    jnz 1f
    wrfsbase %rsi
    jmp 2f
1:  movl $158, %eax     # arch_prctl
    movl $0x1002, %edi  # ARCH_SET_FS
    syscall
2:  RESTORE
    .cfi_endproc
    .size simSwitch, . - simSwitch

    .hidden simLend
    .globl simLend
    .type simLend, @function
simLend:
    .cfi_startproc
    .cfi_signal_frame
    SAVE
    leaq -16(%rsi), %rsp
    movq %rdi, (%rsp)
    .cfi_escape 0x0f, 6, 0x77, 0, 0x06, 0x06, 0x23, 64
    movq %rcx, %rdi
    call *%rdx
    movq (%rsp), %rax
    movq (%rax), %rsp
    RESTORE
    .cfi_endproc
    .size simLend, . - simLend

    .hidden simSystemCall
    .globl simSystemCall
    .type simSystemCall, @function
simSystemCall:
    .cfi_startproc
    movq %rdi, %rax
    movq %rsi, %rdi
    movq %rdx, %rsi
    movq %rcx, %rdx
    xorl %r10d, %r10d
    syscall
    ret
    .cfi_endproc
    .size simSystemCall, . - simSystemCall
)");
#elif defined(__aarch64__)
asm(R"(
    .text
    .macro SAVE
    stp x29, x30, [sp, #-176]!
    stp x19, x20, [sp, #16]
    stp x21, x22, [sp, #32]
    stp x23, x24, [sp, #48]
    stp x25, x26, [sp, #64]
    stp x27, x28, [sp, #80]
    stp d8, d9, [sp, #96]
    stp d10, d11, [sp, #112]
    stp d12, d13, [sp, #128]
    stp d14, d15, [sp, #144]
    mrs x9, fpcr
    str x9, [sp, #160]
    mov x9, sp
    mrs x10, tpidr_el0
    stp x9, x10, [x0]
    .cfi_def_cfa_offset 176
    .cfi_offset x29, -176
    .cfi_offset x30, -168
    .cfi_offset x19, -160
    .cfi_offset x20, -152
    .cfi_offset x21, -144
    .cfi_offset x22, -136
    .cfi_offset x23, -128
    .cfi_offset x24, -120
    .cfi_offset x25, -112
    .cfi_offset x26, -104
    .cfi_offset x27, -96
    .cfi_offset x28, -88
    .endm
    .macro RESTORE
    ldr x9, [sp, #160]
    msr fpcr, x9
    ldp d14, d15, [sp, #144]
    ldp d12, d13, [sp, #128]
    ldp d10, d11, [sp, #112]
    ldp d8, d9, [sp, #96]
    ldp x27, x28, [sp, #80]
    ldp x25, x26, [sp, #64]
    ldp x23, x24, [sp, #48]
    ldp x21, x22, [sp, #32]
    ldp x19, x20, [sp, #16]
    ldp x29, x30, [sp], #176
    ret
    .endm

    .hidden simSwitch
    .globl simSwitch
    .type simSwitch, %function
simSwitch:
    .cfi_startproc
    SAVE
    ldp x9, x10, [x1]
    mov sp, x9
    msr tpidr_el0, x10
    RESTORE
    .cfi_endproc
    .size simSwitch, . - simSwitch

    .hidden simLend
    .globl simLend
    .type simLend, %function
simLend:
    .cfi_startproc
    .cfi_signal_frame
    SAVE
    sub x9, x1, #16
    str x0, [x9]
    mov sp, x9
    .cfi_escape 0x0f, 7, 0x8f, 0, 0x06, 0x06, 0x23, 0xb0, 0x01
    mov x0, x3
    blr x2
    ldr x9, [sp]
    ldr x9, [x9]
    mov sp, x9
    RESTORE
    .cfi_endproc
    .size simLend, . - simLend

    .hidden simSystemCall
    .globl simSystemCall
    .type simSystemCall, %function
simSystemCall:
    .cfi_startproc
    mov x8, x0
    mov x0, x1
    mov x1, x2
    mov x2, x3
    mov x3, xzr
    svc #0
    ret
    .cfi_endproc
    .size simSystemCall, . - simSystemCall
)");
#else
#error "sim: write SAVE, RESTORE and their three users for this processor"
#endif

namespace sim {

namespace {

enum : uint32_t { kNotYetGiven, kAwaited, kGiven, kGivenBack };

bool locksThreadPointer() {
#if defined(__x86_64__)
    constexpr unsigned long kWritableFromUserSpace = 2;  // HWCAP2_FSGSBASE: Linux 5.9, not Valgrind
    static const bool sLocked = (getauxval(AT_HWCAP2) & kWritableFromUserSpace) == 0;
    return sLocked;
#else
    return false;
#endif
}

void sleepWhile(uint32_t& state, uint32_t value) {
    simSystemCall(SYS_futex, reinterpret_cast<long>(&state), FUTEX_WAIT_PRIVATE, value);
}

void wake(uint32_t& state) {
    simSystemCall(SYS_futex, reinterpret_cast<long>(&state), FUTEX_WAKE_PRIVATE, 1);
}

}  // namespace

void switchTo(Place& here, const Place& next) {
    simSwitch(&here, &next, locksThreadPointer());
}

void Loan::give() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    simLend(&mPlace, mSideStack + kSideStackBytes, sleepUntilGivenBack, this);
}

// Beside the runner, which has this thread's stack and data: touches nothing but the loan's state.
__attribute__((no_sanitize("address"))) void Loan::sleepUntilGivenBack(void* loan) {
    uint32_t& state = static_cast<Loan*>(loan)->mState;
    if (__atomic_exchange_n(&state, kGiven, __ATOMIC_ACQ_REL) == kAwaited) wake(state);
    while (__atomic_load_n(&state, __ATOMIC_ACQUIRE) != kGivenBack) sleepWhile(state, kGiven);
}

void Loan::awaitGiven() {
    if (__atomic_load_n(&mState, __ATOMIC_ACQUIRE) == kGiven) return;
    uint32_t seen = kNotYetGiven;
    __atomic_compare_exchange_n(&mState, &seen, kAwaited, false, __ATOMIC_ACQ_REL,
                                __ATOMIC_ACQUIRE);
    while (__atomic_load_n(&mState, __ATOMIC_ACQUIRE) == kAwaited) sleepWhile(mState, kAwaited);
}

void Loan::giveBack() {
    __atomic_store_n(&mState, kGivenBack, __ATOMIC_RELEASE);
    wake(mState);
}

bool isAlive(pid_t tid) {
    return simSystemCall(SYS_tgkill, getpid(), tid, 0) == 0;
}

}  // namespace sim

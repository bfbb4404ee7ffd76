#include "faults/failing_calls.hpp"

#include <link.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <ucontext.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

// Makes a system call from outside of the C library, where none is trapped.
extern "C" long untrapped_call(long number, long a, long b, long c, long d, long e, long f);
__asm__(
    ".text\n"
    "untrapped_call:\n"
    "  mov %rdi, %rax\n"
    "  mov %rsi, %rdi\n"
    "  mov %rdx, %rsi\n"
    "  mov %rcx, %rdx\n"
    "  mov %r8, %r10\n"
    "  mov %r9, %r8\n"
    "  mov 8(%rsp), %r9\n"
    "  syscall\n"
    "  ret\n");

namespace kestro::test {

namespace {

Plan the_plan;
int injected_error = 0;

// One byte of what was to be transferred.
void shorten(gregset_t& registers) {
  static iovec first;
  if (registers[REG_RAX] == SYS_writev || registers[REG_RAX] == SYS_readv) {
    memcpy(&first, reinterpret_cast<const void*>(registers[REG_RSI]), sizeof first);
    first.iov_len = 1;
    registers[REG_RSI] = reinterpret_cast<greg_t>(&first);
    registers[REG_RDX] = 1;
  } else {
    registers[REG_RDX] = 1;
  }
}

void take_call(int /*signal*/, siginfo_t* info, void* context) {
  const int saved_errno = errno;
  auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const bool fails = the_plan.watches_me() && the_plan.fails();
  if (fails && injected_error == FailingCalls::shortened) shorten(registers);
  const bool made = !fails || injected_error == FailingCalls::shortened || info->si_syscall == SYS_close;
  const long result = !made
                          ? 0
                          : untrapped_call(info->si_syscall, registers[REG_RDI], registers[REG_RSI], registers[REG_RDX],
                                           registers[REG_R10], registers[REG_R8], registers[REG_R9]);
  registers[REG_RAX] = fails && injected_error != FailingCalls::shortened ? -injected_error : result;
  errno = saved_errno;
}

struct Range {
  uint64_t begin;
  uint64_t end;
};

int find_c_library(dl_phdr_info* object, size_t /*size*/, void* result) {
  if (strstr(object->dlpi_name, "/libc.so.6") == nullptr) return 0;
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const auto& segment = object->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
    const uint64_t begin = object->dlpi_addr + segment.p_vaddr;
    *static_cast<Range*>(result) = {begin, begin + segment.p_memsz};
  }
  return 1;
}

void add(std::vector<sock_filter>& program, uint16_t code, uint32_t value, uint8_t jump_true = 0,
         uint8_t jump_false = 0) {
  program.push_back({code, jump_true, jump_false, value});
}

// Only calls that are made from within the C library, at the place where it lies in this process: a program that is
// executed later has it elsewhere.
void install(long number, uint32_t action) {
  Range library{};
  dl_iterate_phdr(find_c_library, &library);
  const auto high = static_cast<uint32_t>(library.begin >> 32U);
  if (library.end == 0 || high != library.end >> 32U) throw std::runtime_error("no place of the C library");

  constexpr uint16_t load = BPF_LD | BPF_W | BPF_ABS;
  constexpr uint16_t equal = BPF_JMP | BPF_JEQ | BPF_K;
  constexpr uint16_t not_below = BPF_JMP | BPF_JGE | BPF_K;
  constexpr uint32_t place = offsetof(seccomp_data, instruction_pointer);
  std::vector<sock_filter> program;
  add(program, load, offsetof(seccomp_data, nr));
  add(program, equal, static_cast<uint32_t>(number), 0, 6);
  add(program, load, place + 4);
  add(program, equal, high, 0, 4);
  add(program, load, place);
  add(program, not_below, static_cast<uint32_t>(library.begin), 0, 2);
  add(program, not_below, static_cast<uint32_t>(library.end), 1, 0);
  add(program, BPF_RET | BPF_K, action);
  add(program, BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
  const sock_fprog filter{.len = static_cast<uint16_t>(program.size()), .filter = program.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    throw std::runtime_error("no filter of system calls");
  }
}

}  // namespace

Plan& FailingCalls::plan() noexcept {
  return the_plan;
}

void FailingCalls::trap(long number, int error) {
  injected_error = error;
  struct sigaction action {};
  action.sa_sigaction = take_call;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigaction(SIGSYS, &action, nullptr);
  install(number, SECCOMP_RET_TRAP);
}

void FailingCalls::refuse(long number, int error) {
  install(number, SECCOMP_RET_ERRNO | static_cast<uint32_t>(error));
}

}  // namespace kestro::test

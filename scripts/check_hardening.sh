#!/usr/bin/env bash
# Whether programs and shared libraries were built and linked as hardened as cmake/KestroOptions.cmake asks for.
# Says what each file lacks; fails when any lacks anything.
# Usage: check_hardening.sh [--fortified] FILE...
#   --fortified   the files come from an optimised build, so calls of the C library are checked at run time
set -uo pipefail

fortified=
if [ "${1:-}" = --fortified ]; then
  fortified=yes
  shift
fi
[ $# -gt 0 ] || { echo "usage: check_hardening.sh [--fortified] FILE..." >&2; exit 2; }

findings=0
lacks() {
  echo "$file: $1" >&2
  findings=$((findings + 1))
}

has() { grep -q -- "$2" <<<"$1"; }

# What every program gets from the compiler's own start files.
start_file_targets=2

# The linker marks a file for control-flow protection only when the C library's start files are marked, too. Without
# that the instructions are there all the same, for the day that they are.
check_control_flow() {
  local targets
  targets=$(objdump -d --no-show-raw-insn "$file" | grep -c endbr64)
  [ "$targets" -gt "$start_file_targets" ] || lacks "has no marks where branches may go (-fcf-protection=full)"
  if has "$(readelf -nW "$(cc -print-file-name=crt1.o)")" IBT; then
    local notes
    notes=$(readelf -nW "$file")
    has "$notes" IBT || lacks "is not marked for indirect-branch tracking (-fcf-protection=full)"
    has "$notes" SHSTK || lacks "is not marked for the shadow stack (-fcf-protection=full)"
  fi
}

check_symbols() {
  local called
  called=$(nm -D --undefined-only "$file" | awk '{ print $2 }' | sed 's/@.*//')
  has "$called" '^__stack_chk_fail$' || lacks "has no stack protector (-fstack-protector-strong)"
  [ -n "$fortified" ] || return 0
  has "$(grep -v '^__stack_chk_fail$' <<<"$called")" '^__.*_chk$' || lacks "checks no call (-D_FORTIFY_SOURCE)"
}

check() {
  local headers dynamic
  headers=$(readelf -hlW "$file" 2>&1) || { lacks "is no ELF file"; return; }
  dynamic=$(readelf -dW "$file")
  has "$headers" 'Type: *DYN' || lacks "has a fixed address (-fPIE, -pie)"
  has "$headers" GNU_RELRO || lacks "leaves its relocated data writable (-z relro)"
  has "$dynamic" 'FLAGS.*NOW' || lacks "resolves its symbols lazily (-z now)"
  has "$headers" 'GNU_STACK.* RW ' || lacks "has an executable stack (-z noexecstack)"
  ! has "$dynamic" TEXTREL || lacks "changes its code while it is loaded (text relocations)"
  check_symbols
  check_control_flow
}

for file; do check; done
[ "$findings" -eq 0 ] || { echo "check_hardening: $findings findings" >&2; exit 1; }
echo "check_hardening: $# files are as they should be"

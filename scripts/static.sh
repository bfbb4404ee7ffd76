#!/usr/bin/env bash
# What can be said about the sources without running them: their format, and what three checkers find. No finding is
# left: one that is mistaken is silenced where it stands, with the reason.
# Usage: static.sh BUILD_DIRECTORY (configured and built: clang-tidy wants its compile database and generated headers)
set -euo pipefail

build=$(cd "$1" && pwd)
cd "$(dirname "$0")/.."
jobs=$(nproc)

step() { printf -- '--- %s (%d s)\n' "$1" "$SECONDS"; }

# Everything that is ours, whether committed or about to be.
sources() { git ls-files --cached --others --exclude-standard "$@"; }

step "clang-format"
sources '*.c' '*.h' '*.cpp' '*.hpp' | xargs clang-format --dry-run -Werror

step "clang-tidy"
sources 'lib/*.cpp' 'daemons/*.cpp' 'tools/*.cpp' 'examples/*.cpp' | xargs -P "$jobs" -n 4 scripts/tidy.sh "$build"

# Suppressed everywhere, being mistakes of version 2.10:
#   cppcheckError               its own failure on literals such as 1s; it goes on with the next file
#   danglingTemporaryLifetime   takes what a function made from a text for something that points into the text
step "cppcheck"
mkdir -p "$build/cppcheck"
sources 'lib/*.cpp' 'daemons/*.cpp' 'tools/*.cpp' | xargs cppcheck -j "$jobs" --quiet --error-exitcode=1 \
  --std=c++20 --language=c++ --library=posix --enable=warning,performance,portability \
  --inline-suppr --suppress=cppcheckError --suppress=danglingTemporaryLifetime \
  --cppcheck-build-dir="$build/cppcheck" \
  --template='{file}:{line}: {severity}: {message} [{id}]' -Iinclude -Ilib -Idaemons

# Callers in C get our declarations analysed together with their own code; gcc 12 does that for C alone.
step "gcc -fanalyzer"
for header in include/*.h; do
  printf '#include "%s"\nextern int not_empty;\n' "$(basename "$header")" |
    gcc -std=c11 -fanalyzer -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -Iinclude -x c -c - -o /dev/null
done
gcc -std=c11 -fanalyzer -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -Iinclude -c tests/headers.c -o /dev/null
gcc -std=c11 -fanalyzer -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -Iinclude \
  -c tests/install/consumer.c -o /dev/null

step "units"
scripts/check_units.sh "$build"

step "done"

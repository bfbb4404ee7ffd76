#!/usr/bin/env bash
# Runs the tests on a build that counts, and shows which lines and branches of the library they reach. Fails below the
# limits. What is not reached, and why: docs/coverage.md.
set -euo pipefail

lines=95 branches=85 # percent
cd "$(dirname "$0")/.."
jobs=$(nproc)

cmake --preset coverage >/dev/null
cmake --build --preset coverage --parallel "$jobs"
find build/coverage -name '*.gcda' -delete
# What counts asks for memory when a program ends. Programs that get none are of no use here.
ctest --preset coverage --parallel "$jobs" --exclude-regex '^failing_'
gcovr --root . --filter lib/ --object-directory build/coverage --exclude-throw-branches --exclude-unreachable-branches \
  --print-summary --fail-under-line "$lines" --fail-under-branch "$branches"

#!/usr/bin/env bash
# Starts the appliance and plays a session of an engineer at work. Fails when an answer is not the one that is expected.
# Usage: demo.sh BUILD_DIRECTORY
set -euo pipefail

[ $# -eq 1 ] || { echo "usage: demo.sh BUILD_DIRECTORY" >&2; exit 2; }
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/appliance.sh"
trap appliance_stop EXIT

# No service has the methods of "events.": the router answers in their place, here after a second. And what the hardware
# does not answer is given up sooner than usual.
routerd_options+=(--timeout events.List=1)
configd_options+=(--hardware-timeout 3)
appliance_start "$1"
echo "demo: kestro-simd, kestro-configd and kestro-routerd run in $appliance"
echo

if ! STATS=$appliance_stats "$root/scripts/play.sh" "$root/examples/appliance.session"; then
  appliance_failed=yes
  echo "demo: the ends of the logs:" >&2
  tail -n 20 "$appliance"/*.log >&2
  exit 1
fi
echo
echo "demo: every answer as expected"

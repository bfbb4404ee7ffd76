#!/usr/bin/env bash
# Whether systemd understands the units, and how much each service is exposed. Nothing where systemd-analyze is missing.
# Usage: check_units.sh BUILD_DIRECTORY
set -euo pipefail

[ $# -eq 1 ] || { echo "usage: check_units.sh BUILD_DIRECTORY" >&2; exit 2; }
highest_exposure=20 # tenths
build=$(cd "$1" && pwd)
cd "$(dirname "$0")/.."
command -v systemd-analyze >/dev/null || { echo "check_units: skipped, there is no systemd-analyze" >&2; exit 0; }

# The commands stand in the units without a path, and may not be installed here: the built programs take their place.
units=$(mktemp -d)
trap 'rm -rf "$units"' EXIT
cp daemons/*.service daemons/*.target "$units"
for unit in "$units"/*.service; do
  name=$(basename "$unit" .service)
  program=$build/daemons/${name#kestro-}/$name
  [ -x "$program" ] || program=/bin/true
  sed -i "s|^ExecStart=$name|ExecStart=$program|" "$unit"
done

said=$(SYSTEMD_UNIT_PATH=$units: systemd-analyze verify --man=no "$units"/* 2>&1) || true
[ -z "$said" ] || { printf '%s\n' "$said" >&2; exit 1; }

for unit in daemons/*.service; do
  if ! report=$(systemd-analyze security --offline=true --threshold=$highest_exposure --no-pager "$unit"); then
    printf '%s\n' "$report" >&2
    exit 1
  fi
  grep -o 'Overall exposure level for .*: [0-9.]*' <<<"$report"
done

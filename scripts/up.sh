#!/usr/bin/env bash
# Runs the appliance - simulated hardware, configuration service, router - until Control-C. Leaves nothing behind, but
# for the logs where one of them dies.
# Usage: up.sh BUILD_DIRECTORY
set -euo pipefail

[ $# -eq 1 ] || { echo "usage: up.sh BUILD_DIRECTORY" >&2; exit 2; }
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/appliance.sh"
trap appliance_stop EXIT
trap 'echo; echo "up: stopped"; exit 0' INT TERM

appliance_start "$1"
cat <<END
The appliance is up. In another terminal:

  export PATH="$(dirname "$(command -v kestroctl)"):\$PATH"
  export KESTRO_SOCKET=$KESTRO_SOCKET
  export KESTRO_BUS="$KESTRO_BUS"

  kestroctl list
  kestroctl call oec.Register '{"oec_id": "c1", "model": "VTR-E30p", "mac_address": "02:00:01:00:00:01"}'
  kestroctl call ports.SetVlanAccess '{"port_id": "c1-1", "vlan_id": 10}'
  kestroctl call ports.poe.GetInstantPower '{"port_id": "c1"}'
  kestroctl monitor
  kestroctl stats --name $appliance_stats --watch

Logs: $appliance/*.log. Control-C ends it.
END

# A wait is what a signal interrupts; it returns, too, when one of them ends.
wait -n || true
appliance_tell_dead || true
exit 1

# The whole appliance - simulated hardware, configuration service, router - in a temporary directory and on free
# loopback ports. To be sourced.
#
#   appliance_start BUILD_DIRECTORY    starts it and returns once every part of it answers
#   appliance_stop                     ends it and removes what it left; harmless where nothing was started. Where
#                                      $appliance_failed is set, the directory stays, and this says where it is
#
# More options for the programs may be put into the arrays below before. Started, there are $appliance (the directory,
# with a log of each program) and $appliance_stats (the variable of the router's counters); KESTRO_SOCKET and
# KESTRO_BUS, which kestroctl looks at, are exported; and PATH leads to kestroctl.
# shellcheck shell=bash

simd_options=()
configd_options=()
routerd_options=()
appliance=
appliance_stats=
appliance_failed= # set here when a program dies or does not answer, and by whoever finds more
declare -A appliance_pids=() # by program

appliance_start() {
  local build=$1 program
  for program in daemons/{simd/kestro-simd,configd/kestro-configd,routerd/kestro-routerd} tools/kestroctl/kestroctl; do
    [ -x "$build/$program" ] || { echo "there is no $build/$program; \`make build\` builds it" >&2; return 1; }
  done
  PATH=$(cd "$build/tools/kestroctl" && pwd):$PATH
  appliance=$(mktemp -d "${TMPDIR:-/tmp}/kestro-XXXXXX")
  appliance_stats=/${appliance##*/}.stats
  mkdir "$appliance/update"
  local ports
  mapfile -t ports < <(_free_ports 3)
  local router=tcp://127.0.0.1:${ports[0]} config=tcp://127.0.0.1:${ports[1]} hardware=tcp://127.0.0.1:${ports[2]}
  export KESTRO_SOCKET=$appliance/router.sock KESTRO_BUS="$router $config $hardware"

  _launch kestro-simd "$build/daemons/simd" --bus-publish "$hardware" --bus-subscribe "$router" \
    --bus-subscribe "$config" "${simd_options[@]}"
  _launch kestro-configd "$build/daemons/configd" --bus-publish "$config" --bus-subscribe "$router" \
    --bus-subscribe "$hardware" --database "$appliance/config.db" --update-dir "$appliance/update/" --init \
    "${configd_options[@]}"
  _launch kestro-routerd "$build/daemons/routerd" --listen-unix "$KESTRO_SOCKET" --bus-publish "$router" \
    --bus-subscribe "$config" --bus-subscribe "$hardware" --stats-name "$appliance_stats" \
    --drain-timeout 1 "${routerd_options[@]}"
  _await_answers
}

appliance_stop() {
  local pid
  for pid in "${appliance_pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${appliance_pids[@]}"; do _await_end "$pid"; done
  appliance_pids=()
  [ -z "$appliance" ] || _clear_away
  appliance=
}

# Names each program that runs no more, with how it ended and what it last said, details aside. Succeeds when there is
# one.
appliance_tell_dead() {
  local program status dead=1
  for program in "${!appliance_pids[@]}"; do
    kill -0 "${appliance_pids[$program]}" 2>/dev/null && continue
    dead=0
    appliance_failed=yes
    status=0
    wait "${appliance_pids[$program]}" 2>/dev/null || status=$?
    unset "appliance_pids[$program]"
    echo "$program $(_end_of "$status"); its last words:" >&2
    grep -v '\] \[DEBG\] \[' "$appliance/$program.log" | tail -n 5 >&2 || true
  done
  return $dead
}

_end_of() { # STATUS
  if [ "$1" -gt 128 ]; then
    echo "was ended by SIG$(kill -l "$1")"
  else
    echo "has ended with exit status $1"
  fi
}

_clear_away() {
  rm -f "/dev/shm$appliance_stats" # of a router that was killed
  if [ -n "$appliance_failed" ]; then
    echo "the logs are kept: $appliance/*.log" >&2
  else
    rm -rf "$appliance"
  fi
}

_launch() { # PROGRAM DIRECTORY OPTION...
  local program=$1 directory=$2
  shift 2
  "$directory/$program" "$@" 2>"$appliance/$program.log" &
  appliance_pids[$program]=$!
}

# Some seconds for an end in good order.
_await_end() { # PROCESS
  for _ in {1..100}; do
    kill -0 "$1" 2>/dev/null || break
    sleep 0.1
  done
  kill -KILL "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}

# Outside the range from which the system takes ports by itself.
_free_ports() { # COUNT
  python3 - "$1" <<'END'
import random, socket, sys
held = []
while len(held) < int(sys.argv[1]):
    s = socket.socket()
    try:
        s.bind(("127.0.0.1", random.randrange(10000, 30000)))
    except OSError:
        continue
    held.append(s)
for s in held:
    print(s.getsockname()[1])
END
}

# The programs find each other within a moment; until then requests are lost on the bus. The configuration service tells
# the hardware of the unit's own ports as soon as it can: then these two have found each other as well.
_await_answers() {
  for _ in {1..100}; do
    case $(_ask network.service.Discover)$(_ask sim.GetPort '{"port_id": "d1"}') in
      *'"service":"configd"'*'"configured":true'*) return 0 ;;
    esac
    ! appliance_tell_dead || return 1
    sleep 0.1
  done
  appliance_failed=yes
  echo "no answer from the services; the ends of the logs:" >&2
  tail -n 20 "$appliance"/*.log >&2
  return 1
}

_ask() { kestroctl call --timeout 0.5 "$@" 2>/dev/null || true; }

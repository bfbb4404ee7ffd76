#!/usr/bin/env bash
# Shows one request after the other travel from a client over router and bus to a service and back.
# Fails when an answer is not the one that stands beside its request.
# Usage: examples_demo.sh BUILD_DIRECTORY
set -euo pipefail

bin=$1/examples
routerd=$1/daemons/routerd/kestro-routerd
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
started=()

stop_all() {
  for pid in "${started[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${started[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap stop_all EXIT

free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

router_address=tcp://127.0.0.1:$(free_port)
service_address=tcp://127.0.0.1:$(free_port)
socket=$work/router.sock

# No service here has the methods that begin with "ev": the request for one ends in the router's own answer.
"$routerd" --listen-unix "$socket" --bus-publish "$router_address" --bus-subscribe "$service_address" \
  --timeout events.List=1 --timeout ports.GetCounters=0.2 --stats-name "/kestro-examples-$$" 2>"$work/router.log" &
started+=($!)
"$bin/service" "$service_address" "$router_address" 2>"$work/service.log" &
started+=($!)

# The processes find each other within a moment; until then requests are lost on the bus.
for attempt in {1..50}; do
  case $("$bin/call" "$socket" '{"jsonrpc":"2.0","method":"ports.GetCounters","id":0}' 2>/dev/null) in
    *'"result"'*) break ;;
  esac
  if [ "$attempt" = 50 ]; then
    echo "examples_demo: the service does not answer; the logs:" >&2
    cat "$work"/*.log >&2
    exit 1
  fi
  sleep 0.1
done

wrong=0
for request in "$root"/examples/requests/*.json; do
  answer=$("$bin/call" "$socket" "$(cat "$request")" 2>/dev/null) || answer="no answer: the connection was closed"
  echo "--> $(cat "$request")"
  echo "<-- $answer"
  expected=$(cat "${request%.json}.answer")
  if [ "$answer" != "$expected" ]; then
    echo "!!! expected: $expected"
    wrong=$((wrong + 1))
  fi
  echo
done
if [ "$wrong" -ne 0 ]; then
  echo "examples_demo: $wrong answers are wrong; the logs:" >&2
  cat "$work"/*.log >&2
  exit 1
fi
echo "examples_demo: every answer as expected"

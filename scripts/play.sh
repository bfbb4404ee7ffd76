#!/usr/bin/env bash
# Plays a session: runs its commands, shows them with what they say, and fails when they say something else than
# expected.
# Usage: play.sh SESSION
#
#   # Text for the reader.
#   $ command, which may go on in lines that begin with ">"
#   what it must write, to both outputs
#   [3]                     its exit status, where that is not 0
#
# Where a value differs from run to run, <number> (with the blanks before it), <time> or <...> stands for it. A command
# that ends in "&" goes to the background once it has written what stands below it; "$ wait" waits for its end and its
# other lines. An empty line, or the next command, ends what is expected.
set -euo pipefail

[ $# -eq 1 ] || { echo "usage: play.sh SESSION" >&2; exit 2; }
mapfile -t lines <"$1"
scratch=$(mktemp -d)
background=
shown=0 # lines of the background that were compared already
wrong=0
bold='' plain=''
if [ -t 1 ]; then bold=$'\e[1m' plain=$'\e[0m'; fi

end() {
  [ -z "$background" ] || kill "$background" 2>/dev/null || true
  rm -rf "$scratch"
}
trap end EXIT

# An extended regular expression for a line of the session.
pattern_of() { # LINE
  sed -e 's/[][\.*^$+?(){}|]/\\&/g' -e 's/ *<number>/ *-?[0-9]+(\\.[0-9]+)?/g' -e 's/<time>/[0-9:.]+/g' \
    -e 's/<\\\.\\\.\\\.>/.*/g' -e 's/\(.*\)/^\1$/' <<<"$1"
}

matches() { # LINE EXPECTED
  [ "$1" = "$2" ] && return
  [[ $2 == *'<'*'>'* ]] || return 1
  local pattern
  pattern=$(pattern_of "$2")
  [[ $1 =~ $pattern ]]
}

# Shows what was written and compares it with $expected.
compare() { # LINE...
  local i
  for ((i = 0; i < $# || i < ${#expected[@]}; i++)); do
    if ((i >= $#)); then
      echo "!!! missing: ${expected[i]}"
    elif ((i >= ${#expected[@]})); then
      printf '%s\n!!! nothing more is expected\n' "${@:i+1:1}"
    else
      printf '%s\n' "${@:i+1:1}"
      ! matches "${@:i+1:1}" "${expected[i]}" || continue
      echo "!!! expected: ${expected[i]}"
    fi
    wrong=$((wrong + 1))
  done
}

run_to_its_end() { # COMMAND
  local status=0 output
  bash -c "$1" >"$scratch/output" 2>&1 </dev/null || status=$?
  mapfile -t output <"$scratch/output"
  [ "$status" = 0 ] || output+=("[$status]")
  compare "${output[@]}"
}

run_in_background() { # COMMAND
  local output
  : >"$scratch/background"
  bash -c "exec ${1%&}" >"$scratch/background" 2>&1 </dev/null &
  background=$!
  shown=${#expected[@]}
  for _ in {1..100}; do
    mapfile -t output <"$scratch/background"
    ((${#output[@]} < shown)) || break
    sleep 0.1
  done
  compare "${output[@]:0:shown}"
}

wait_for_background() {
  local status=0 output
  wait "$background" || status=$?
  background=
  mapfile -t output <"$scratch/background"
  [ "$status" = 0 ] || output+=("[$status]")
  compare "${output[@]:shown}"
}

run() { # COMMAND
  case $1 in
    wait) wait_for_background ;;
    *'&') run_in_background "$1" ;;
    *) run_to_its_end "$1" ;;
  esac
}

at=0
while ((at < ${#lines[@]})); do
  line=${lines[at++]}
  if [[ $line != '$ '* ]]; then
    echo "$line"
    continue
  fi
  echo "$bold$line$plain"
  command=${line#'$ '}
  while [[ ${lines[at]-} == '> '* ]]; do
    echo "$bold${lines[at]}$plain"
    command+=$'\n'${lines[at++]#'> '}
  done
  expected=()
  while [[ -n ${lines[at]-} && ${lines[at]} != '$ '* ]]; do expected+=("${lines[at++]}"); done
  run "$command"
done

if [ "$wrong" -ne 0 ]; then
  echo "$wrong lines are not as expected" >&2
  exit 1
fi

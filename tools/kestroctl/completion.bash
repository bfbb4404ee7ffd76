# Completion of kestroctl for bash: verbs, options, methods, fields and daemons. It asks the program itself.

# Words of the command line so far that say where the router is.
_kestroctl_router() {
  local i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --socket | --tcp) printf '%s\n' "${COMP_WORDS[i]}" "${COMP_WORDS[++i]}" ;;
      --socket=* | --tcp=*) printf '%s\n' "${COMP_WORDS[i]}" ;;
    esac
  done
}

_kestroctl_methods() {
  local router
  mapfile -t router < <(_kestroctl_router)
  "$1" "${router[@]}" list --names --timeout 2 2>/dev/null
}

_kestroctl_verbs() {
  "$1" --help 2>/dev/null | sed -n 's/^  \([a-z][a-z]*\)  .*/\1/p'
}

# Of the program, or of one of its verbs.
_kestroctl_options() {
  "$@" --help 2>/dev/null | sed -n 's/^  \(-[a-zA-Z],\)\{0,1\}\(--[a-z-]*\).*/\2/p'
}

_kestroctl_daemons() {
  printf '%s\n' router configd simd
  "$1" log 2>/dev/null | sed 's/ .*//'
}

_kestroctl() {
  local program=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local verb='' positionals=0 words='' i
  COMPREPLY=()

  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --json | --raw | --names | --watch | --no-reload | --debug | --help | --version | --*=*) ;;
      -?*) ((++i)) ;;
      *) if [ -z "$verb" ]; then verb=${COMP_WORDS[i]}; else ((++positionals)); fi ;;
    esac
  done

  case $previous in
    --socket | --file)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --channel) words='config hardware events cache reply' ;;
    --method) words=$(_kestroctl_methods "$program") ;;
    --name) words=$(cd /dev/shm 2>/dev/null && printf '/%s\n' *kestro*) ;;
    --tcp | --bus | --timeout | --duration | --id | --repeat | --limit | --requests | --clients | --params) return ;;
    *)
      case $current in
        -*) words=$(_kestroctl_options "$program" ${verb:+"$verb"}; [ -z "$verb" ] || _kestroctl_options "$program") ;;
        @*)
          mapfile -t COMPREPLY < <(compgen -P @ -f -- "${current#@}")
          return
          ;;
        *)
          case $verb:$positionals in
            :0) words=$(_kestroctl_verbs "$program") ;;
            call:0 | describe:0) words=$(_kestroctl_methods "$program") ;;
            notify:0) words='logger.ReloadConf router.SetMaintenance' ;;
            wait:0) words='events.EdgeSwitchOffline events.EdgeSwitchOnline' ;;
            check:0) words=$("$program" check 2>/dev/null | sed 's/ .*//') ;;
            log:0) words=$(_kestroctl_daemons "$program") ;;
            log:1) words='off info debug verbose' ;;
          esac
          ;;
      esac
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current" | sort -u)
}

complete -F _kestroctl kestroctl

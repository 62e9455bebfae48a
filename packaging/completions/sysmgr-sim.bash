# Completion of sysmgr-sim for bash: the options are those that its help shows.
_sysmgr_sim() {
  local subcommand= word
  COMPREPLY=()
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $word in
    run | tell) subcommand=${subcommand:-$word} ;;
    --) mapfile -t COMPREPLY < <(compgen -c -- "$2" | sort -u); return ;; # the command of run
    esac
  done
  local offered=
  [ -n "$subcommand" ] || offered="run tell "
  # shellcheck disable=SC2086 # no subcommand is no word
  offered+=$("${COMP_WORDS[0]}" $subcommand --help 2>/dev/null | sed -nE 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p')
  mapfile -t COMPREPLY < <(compgen -W "$offered" -- "$2")
}
complete -o default -F _sysmgr_sim sysmgr-sim

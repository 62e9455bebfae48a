# Completion of sysmgrctl for bash: the program itself answers.
_sysmgrctl() {
  local IFS=$'\n' line
  COMPREPLY=()
  for line in $("${COMP_WORDS[0]}" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null); do
    COMPREPLY+=("${line%%$'\t'*}")
  done
}
complete -F _sysmgrctl sysmgrctl

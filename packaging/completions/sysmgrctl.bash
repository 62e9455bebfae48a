# Completion of sysmgrctl for bash: the program itself answers.
_sysmgrctl() {
  local IFS=$'\n' line
  COMPREPLY=()
  for line in $("${COMP_WORDS[0]}" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null); do
    COMPREPLY+=("${line%%$'\t'*}")
  done
  # A file is quoted and shown as bash does it; the rest of a folder or of LINE/FIELD= follows without a blank.
  if [[ -e ${COMPREPLY[0]} ]]; then compopt -o filenames 2>/dev/null; fi
  if [[ ${COMPREPLY[0]} == *[/=] ]]; then compopt -o nospace 2>/dev/null; fi
}
complete -F _sysmgrctl sysmgrctl

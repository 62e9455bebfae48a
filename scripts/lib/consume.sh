# What the checks of installations and packages share. To be sourced.

# readme_block FOLDER LANGUAGE PATTERN: the one ```LANGUAGE block of FOLDER/README.md in which PATTERN occurs.
readme_block() {
  awk -v fence='```'"$2" -v pattern="$3" '
    $0 == fence { inside = 1; block = ""; next }
    inside && /^```/ { inside = 0; if (block ~ pattern) { printf "%s", block; found++ } next }
    inside { block = block $0 "\n" }
    END { if (found != 1) { print "README.md: " found + 0 " blocks with " pattern > "/dev/stderr"; exit 1 } }' "$1/README.md"
}

# write_your_program README-FOLDER FOLDER: writes what README.md tells its reader to write, with the names it uses there,
# and the command that builds it with pkg-config.
write_your_program() {
  mkdir -p "$2"
  readme_block "$1" cpp 'int main' >"$2/your_program.cpp"
  readme_block "$1" cmake find_package >"$2/CMakeLists.txt"
  readme_block "$1" sh pkg-config | grep '^g++ ' >"$2/readme-pkg-config.sh"
}

# in_private_network COMMAND...: runs it where the loopback interface is the only one and no other daemon listens.
in_private_network() {
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(--map-root-user)
  unshare --net "${as_root[@]}" sh -c 'ip link set lo up && exec "$@"' sh "$@"
}

# expect WHAT EXPECTED ACTUAL
expect() {
  [ "$2" = "$3" ] && return
  printf 'FAILED: %s\n  expected: %s\n  got:      %s\n' "$1" "$2" "$3" >&2
  exit 1
}

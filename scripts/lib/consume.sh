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

# write_page_files PAGE FOLDER: writes the files that the page shows, each in a block behind a line <!-- PATH -->.
write_page_files() {
  mkdir -p "$2"
  awk -v folder="$2" '
    /^<!-- .+ -->$/ { name = $2; sub(/.*\//, "", name); next }
    /^```/ { inside = !inside; if (!inside) name = ""; next }
    inside && name != "" { print >(folder "/" name) }
    !inside { name = "" }' "$1"
}

# page_commands PAGE FROM TO: the lines of the ```sh blocks from the first line of the page that matches FROM to the next
# one that matches TO.
page_commands() {
  awk -v from="$2" -v to="$3" '
    !wanted && $0 ~ from { wanted = 1 }
    wanted && $0 ~ to { exit }
    /^```/ { inside = !inside && $0 == "```sh"; next }
    wanted && inside' "$1"
}

# in_container COMMAND...: where a process without a capability may make no namespace.
in_container() {
  unshare --user --map-root-user sh -ec '
    for kind in user net; do echo 0 >/proc/sys/user/max_${kind}_namespaces; done
    exec setpriv --bounding-set=-all --inh-caps=-all --no-new-privs "$@"
  ' sh "$@"
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

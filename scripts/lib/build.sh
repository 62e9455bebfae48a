# What the scripts share. To be sourced from the root of the tree.

jobs=$(nproc)

# build_preset NAME [CMAKE-ARGUMENT...]: configures and builds; quiet unless something is wrong. A warning is an error in CI.
build_preset() {
  local preset=$1
  shift
  local strict=OFF
  [ -z "${CI:-}" ] || strict=ON
  echo "== build: $preset"
  cmake --preset "$preset" -DZEL_WARNINGS_AS_ERRORS="$strict" --log-level=WARNING "$@"
  cmake --build --preset "$preset" --parallel "$jobs" -- --quiet
}

# clang-tidy over what a change can have made wrong. To be sourced from the root of the tree.

# tidy_base: the newest commit of which every file is known to be clean: the last release, or the one that .ci/tidy-base
# names. Empty where this clone has neither.
tidy_base() {
  local candidate known=()
  for candidate in "$(git describe --tags --abbrev=0 2>/dev/null)" "$(cat .ci/tidy-base)"; do
    if git cat-file -e "$candidate^{commit}" 2>/dev/null; then known+=("$candidate^{commit}"); fi
  done
  [ ${#known[@]} -eq 0 ] || git rev-list --no-walk=sorted --max-count=1 "${known[@]}"
}

# changed_since COMMIT: names of files, those of the work tree included
changed_since() {
  git diff --name-only "$1"
  git ls-files --others --exclude-standard
}

# that_include BUILD-TREE: reads names of files; prints the sources that include one of them, or are one, as the compiler
# noted it when it built the tree
that_include() {
  awk -v root="$PWD/" '
    NR == FNR { changed[$1]; next }
    /^[^ ]/ { source = ""; next }
    NF == 1 {
      file = $1
      sub("^(../../|" root ")", "", file)
      if (source == "") source = file
      if (file in changed) print source
    }' - <(ninja -C "$1" -t deps)
}

# What no build tree compiles, what Qt is needed for, and the coroutines, which clang-tidy 14 does not know.
not_tidied='^(fuzz|tests/packaging/consumer)/|^examples/async_(qt|await)\.cpp$'

# tidy BUILD-TREE [COMMIT]: over what changed since the commit, or since tidy_base; over everything where the commit is
# `everything`, where no base is known, and where the rules changed
tidy() {
  local tree=$1 base=${2:-$(tidy_base)} sources changed
  sources=$(git ls-files --cached --others --exclude-standard -- '*.cpp' | grep -vE "$not_tidied" | sort)
  if [ -z "$base" ] || [ "$base" = everything ] || ! git diff --quiet "$base" -- .clang-tidy; then
    echo "== tidy: all $(wc -l <<<"$sources") files"
  else
    changed=$(changed_since "$base")
    echo "== tidy: what changed since $(git log -1 --format='%h, "%s"' "$base")"
    sources=$(comm -12 <(echo "$sources") <({ echo "$changed" && that_include "$tree" <<<"$changed"; } | sort -u))
    echo "== tidy: $(grep -c . <<<"$sources" || true) files"
  fi
  [ -z "$sources" ] || xargs -P "$jobs" -n 1 clang-tidy --quiet -p "$tree" 2>/dev/null <<<"$sources"
  [ "$base" != everything ] || [ -n "$(git status --porcelain)" ] || git rev-parse HEAD >.ci/tidy-base
}

#!/usr/bin/env bash
# Whether docs/architecture.md tells of what is there: each source file has a row in the table of its
# room, and each name in backquotes that is one of a file or of something in the code exists. Prints
# what does not. VERB, OP, NAME and TARGET in a name stand for any.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
page=$work/page
awk '/^```/ { code = !code } !code' docs/architecture.md >"$page"
git ls-files --cached --others --exclude-standard >"$work/tree"

# A room is a line that begins with a directory; below it, a row `name` is name.cpp and name.h.
awk -F '`' '/^#/ { room = "" } /^`[a-z_\/]+\/`/ { room = $2 }
    room != "" && /^\| `/ { sub(/ \|.*/, "", $0); for (i = 2; i <= NF; i += 2) print room $i }' "$page" |
    while read -r row; do
        grep -xE "$row(\.cpp|\.h)?" "$work/tree" || echo "$row: a row without a file" >&3
    done 3>"$work/findings" | sort -u >"$work/rows"
grep -E '^(include|platform|update|companions)/.*\.(cpp|h)$' "$work/tree" | sort |
    comm -13 "$work/rows" - | sed 's/$/: has no row/' >>"$work/findings"

# Words of the code, and paths with each of their ends, with and without what follows the dot.
{
    git grep -ohE '[A-Za-z_][A-Za-z0-9_]*' -- include platform update companions tests fuzz scripts cmake '*CMakeLists.txt'
    awk '{ for (p = $0; ; sub(/^[^\/]*\//, "", p)) { print p; s = p; sub(/\.[a-z]+$/, "", s); print s
        for (d = p; sub(/[^\/]*\/?$/, "", d) && d != "";) { print d; sub(/\/$/, "", d); print d }
        if (p !~ /\//) break } }' "$work/tree"
} | sort -u >"$work/known"
# shellcheck disable=SC2016 # backquotes
grep -oE '`[A-Za-z_.][A-Za-z0-9_./-]*`' "$page" | tr -d '`' | grep -vE '(VERB|OP|NAME|TARGET)|^\.[a-z]+$|\.\.' | sort -u |
    comm -23 - "$work/known" | sed 's/$/: is not there/' >>"$work/findings"

cat "$work/findings"
[[ ! -s $work/findings ]]

#!/usr/bin/env bash
# Measures img_deploy beside GNU tar on the same trees, all of it on a tmpfs.
#
# usage: bench/run.sh [ROUNDS]      (11 rounds if not given)
#
# The two take turns; what is shown is the median of the rounds, in milliseconds. An apply run makes
# most of its directories and its links by shell commands, which cost more than everything else in
# it. The same commands are therefore run alone in each round, and "rest" is the median of what the
# apply run took beyond them (and, in elapsed time, beyond the 20 ms that it always waits). Where
# the commands cost far more than that, their own scatter drowns it; "own CPU" leaves out what ran
# inside the commands, on both sides, and counts only the process that started them.
#
# A missed target is shown as MISS and is no failure; a "?" says that the scatter of the rounds is
# wider than the distance from the target. A command that fails ends the benchmark.
# Everything is laid out and applied in the tests' sandbox and vanishes with it.

set -euo pipefail
export LC_ALL=C

root=$(realpath "${BASH_SOURCE[0]}")
root=${root%/*/*}
bin=$root/build/bench
img_deploy=$bin/update/img_deploy/img_deploy
work=/mnt/bench
target=/opt/upgddir
wait_ms=20

die() {
    echo "bench: $*" >&2
    exit 1
}

# NAME COMMAND...: runs the command, and adds what it used to the results called NAME.
measured() {
    local name=$1
    shift
    "$bin/bench/measure" "$@" >>"results/$name" && return
    echo "bench: failed: $*; once more, with its output:" >&2
    [[ $1 != -a ]] || shift
    "$@" >&2 || :
    exit 1
}

# What one run leaves behind must not help or hinder the next one; nor may the apply run's sync pay
# for what others have written.
clear_target() {
    rm -rf "${target:?}"/* /usr/local/upgdflag
    sync
}

# COLUMN NAME [LESS [CONSTANT]]: in milliseconds, the median of a column (1 elapsed, 2 CPU, 3 own
# CPU), or of its difference to another result of the same round and a constant; and the median
# distance of the rounds from it.
summary() {
    paste -d' ' "results/$2" "results/${3:-zero}" |
        awk -v column="$1" -v constant="${4:-0}" '
            function median(v, i, j, t) {
                for (i = 2; i <= NR; i++)
                    for (j = i; j > 1 && v[j] < v[j - 1]; j--) { t = v[j]; v[j] = v[j - 1]; v[j - 1] = t }
                return (v[int((NR + 1) / 2)] + v[int(NR / 2) + 1]) / 2
            }
            { v[NR] = 1000 * ($column - $(column + 4)) - constant }
            END {
                middle = median(v)
                for (i = 1; i <= NR; i++) v[i] = v[i] < middle ? middle - v[i] : v[i] - middle
                printf "%.1f %.1f\n", middle, median(v)
            }'
}

# WHAT OURS COMMANDS REST SCATTER TAR VALUE TARGET MARGIN: adds a line to the table. The verdict is
# open if the value is within the margin of the target.
row() {
    awk -v value="$7" -v target="$8" -v margin="$9" \
        -v row="$(printf '%-26s %10s %10s %9s %8s %9s' "${@:1:6}")" 'BEGIN {
            distance = value < target ? target - value : value - target
            printf "%s %7.2f %7.1f  %s%s\n", row, value, target,
                value <= target ? "PASS" : "MISS", distance < margin ? " ?" : "" }' >>table
}

# OPERATION TREE TARGET: adds a line for each kind of time.
compare() {
    local column ours commands rest scatter tar what=('' elapsed CPU 'own CPU')
    for column in 3 2 1; do
        [[ $1 == apply ]] || ((column < 3)) || continue # it is all its own
        read -r ours scatter < <(summary $column ours)
        read -r tar _ < <(summary $column tar)
        commands=- rest=$ours
        if [[ $1 == apply ]]; then
            read -r commands _ < <(summary $column commands)
            read -r rest scatter < <(summary $column ours commands $((column == 1 ? wait_ms : 0)))
        fi
        row "$1 $2, ${what[column]}" "$ours" "$commands" "$rest" "$scatter" "$tar" \
            "$(awk "BEGIN { print $rest / $tar }")" "$3" "$(awk "BEGIN { print $scatter / $tar }")"
    done
}

forget_results() {
    local round
    rm -rf results
    mkdir results
    for ((round = 0; round < rounds; round++)); do echo 0 0 0 0; done >results/zero
}

# FILES MIN MAX POWER PER_DIRECTORY LINKS
lay_out() {
    rm -rf tree
    "$bin/bench/make_tree" tree "$@"
}

build_rounds() {
    local round
    forget_results
    for ((round = 0; round < rounds; round++)); do
        rm -f out.img
        measured ours "$img_deploy" -c ./tree -p 1 out.img
        [[ -z ${1:-} ]] || { rm -f out.tar && measured tar tar -cf out.tar ./tree; }
    done
}

# Applies once with a shell that takes down what it is told to do, and looks at the outcome.
observe_commands() {
    cp -L /bin/sh shell
    # shellcheck disable=SC2016 # the shell that is written expands them
    printf '#!%s\nfor line; do :; done\nprintf "%%s\\n" "$line" >>%s\nexec %s "$@"\n' \
        "$work/shell" "$work/commands" "$work/shell" >observer
    chmod +x observer
    rm -f commands
    clear_target
    mount --bind observer /bin/sh
    "$img_deploy" -u out.img -m 2 >output 2>&1 || { cat output; die "the apply run failed"; } >&2
    umount /bin/sh
    diff -r --no-dereference tree "$target/tree" || die 'the applied tree differs'
}

apply_rounds() {
    local round
    forget_results
    observe_commands
    for ((round = 0; round < rounds; round++)); do
        clear_target
        measured ours "$img_deploy" -u out.img -m 2
        clear_target
        measured commands "$bin/bench/commands" commands
        clear_target
        [[ -z ${1:-} ]] || measured tar tar -xf out.tar -C "$target"
    done
}

# NAME BUILD_TARGET APPLY_TARGET FILES MIN MAX POWER PER_DIRECTORY LINKS
bench_tree() {
    echo "tree $1: $4 files, $9 links" >&2
    lay_out "${@:4}"
    build_rounds tar
    compare build "$1" "$2"
    apply_rounds tar
    compare apply "$1" "$3"
    echo "$1: an apply run makes $(wc -l <commands) shell commands" >>notes
}

# Works on what the tree before it has left.
bench_memory() {
    local operation kib
    echo 'memory' >&2
    forget_results
    rm -f out.img
    measured build -a "$img_deploy" -c ./tree -p 1 out.img
    clear_target
    measured apply -a "$img_deploy" -u out.img -m 2
    for operation in build apply; do
        kib=$(cut -d' ' -f4 "results/$operation")
        row "$operation big, anonymous MiB" - - - - - "$(awk "BEGIN { print $kib / 1024 }")" 4 0
    done
}

# The exponent to which the number of files makes the CPU time grow.
bench_scaling() {
    local files operation
    rm -f build.points apply.points
    for files in 500 1000 2000 4000 8000; do
        echo "scaling: $files files" >&2
        lay_out $files 4096 4096 1 50 0
        build_rounds
        echo "$files $(summary 3 ours)" >>build.points
        # In one directory the fixed commands are all there are.
        lay_out $files 4096 4096 1 $files 0
        "$img_deploy" -c ./tree -p 1 out.img >/dev/null
        apply_rounds
        echo "$files $(summary 3 ours commands)" >>apply.points
    done
    for operation in build apply; do
        echo "$operation of 500 ... 8000 files, own CPU ms:" \
            "$(cut -d' ' -f2 $operation.points | paste -sd' ')" >>notes
        row "$operation, exponent" - - - - - "$(awk '
            { x = log($1); y = log($2); n++; sx += x; sy += y; sxx += x * x; sxy += x * y }
            END { print (n * sxy - sx * sy) / (n * sxx - sx * sx) }' $operation.points)" 1.1 0
    done
}

inside() {
    rounds=$1
    mkdir -p "$work" "$target"
    mount -t tmpfs bench "$work"
    mount -t tmpfs target "$target"
    cd "$work"
    bench_tree small 0.9 1.1 4000 1024 8192 1 20 100
    bench_tree directories 0.9 1.1 1500 1024 8192 1 1 0
    bench_tree mixed 1.2 1.0 600 1024 2097152 3 20 0
    bench_tree big 1.2 1.0 8 100663296 100663296 1 8 0
    bench_memory
    bench_scaling
    echo
    "$bin/bench/crc_bench"
    cat notes
    printf '\n%-26s %10s %10s %9s %8s %9s %7s %7s\n' "median of $rounds, ms" img_deploy \
        commands rest scatter tar value target
    cat table
}

case ${1:-} in
--inside) inside "$2" ;;
*)
    if (($# > 1)) || [[ ! ${1:-11} =~ ^[1-9][0-9]*$ ]]; then
        die 'usage: bench/run.sh [ROUNDS]'
    fi
    cmake -S "$root" -B "$bin" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=ON >&2
    cmake --build "$bin" -j "$(nproc)" >&2 \
        --target img_deploy sysconfig crc_bench make_tree measure commands
    SANDBOX_PATH=$bin/platform exec "$root/tests/sandbox.sh" "$root/bench/run.sh" --inside "${1:-11}"
    ;;
esac

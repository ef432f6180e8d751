#!/usr/bin/env bash
# Measures img_deploy beside the least that the same work takes (bench/floor.cpp) and beside tools that
# do the same work, whole processes, in one run.
#
# usage: bench/run.sh [--quick] [--against REVISION]
#
# All take turns. A row shows the median of the rounds of img_deploy, and of its ratio in each round
# to the floor, with its target, and to the others; processor time and a tmpfs, if nothing else is
# said. The floor searches for no target directory, so the images that are applied tell their place,
# and the search is measured by itself.
# On the medium, ext4 on a file of build/bench, an image is applied that nothing of is in memory: the
# time that passes up to the end of the sync, less what the shell commands take by themselves.
# With --against, the search of that revision is measured as well.
#
# A missed target is shown as MISS and is no failure; a "?" says that the middle half of the rounds
# lies on both sides of it. A command that fails ends the benchmark. Everything is applied in the
# tests' sandbox and vanishes with it.

set -euo pipefail
export LC_ALL=C

root=$(realpath "${BASH_SOURCE[0]}")
root=${root%/*/*}
bin=$root/build/bench
img_deploy=$bin/update/img_deploy/img_deploy
work=/mnt/bench
target=/opt/upgddir
wait_s=0.02 # that an apply run always waits

die() {
    echo "bench: $*" >&2
    exit 1
}

# --- results: a line a round: seconds that passed, of the processor, of the first thread; and KiB ---

forget_results() {
    rm -rf results
    mkdir results
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

# FROM LESS NAME SECONDS: makes new results of the differences, and of the time that passed the
# seconds are taken as well.
subtract() {
    paste -d' ' "results/$1" "results/$2" |
        awk -v s="$4" '{ print $1 - $5 - s, $2 - $6, $3 - $7, 0 }' >"results/$3"
}

# Of the numbers on its input: the first quartile, the median and the third.
quartiles() {
    sort -g | awk '{ v[NR] = $1 } END {
        print v[int((NR + 3) / 4)], (v[int((NR + 1) / 2)] + v[int(NR / 2) + 1]) / 2, v[int((3 * NR + 3) / 4)] }'
}

# COLUMN OURS PEER: the quartiles of the ratio.
ratio() {
    paste -d' ' "results/$2" "results/$3" | awk -v c="$1" '{ print $c / $(c + 4) }' | quartiles
}

# TEXT FIGURE LOW VALUE HIGH TARGET [OTHERS]: adds a row.
row() {
    awk -v low="$3" -v value="$4" -v high="$5" -v target="$6" -v others="${7:-}" \
        -v head="$(printf '%-46s %8s' "$1" "$2")" 'BEGIN {
            verdict = value <= target ? "PASS" : "MISS"
            printf "%s %6.2f (target %.2f) %s%s  %s\n", head, value, target, verdict,
                low <= target && target < high ? "?" : " ", others }' >>"$table"
}

# COLUMN TEXT TARGET OURS FLOOR [PEER]...: adds a row of ratios.
compare() {
    local column=$1 text=$2 limit=$3 ours=$4 floor=$5 peer others='' middle quarters
    shift 5
    for peer; do
        read -r _ middle _ < <(ratio "$column" "$ours" "$peer")
        others+=$(printf '%s %.2f  ' "$peer" "$middle")
    done
    read -r _ middle _ < <(cut -d' ' -f"$column" "results/$ours" | quartiles)
    read -ra quarters < <(ratio "$column" "$ours" "$floor")
    row "$text" "$(awk "BEGIN { printf \"%.1f\", 1000 * $middle }")" "${quarters[@]}" "$limit" "$others"
}

# --- the search: of the machine itself, as it changes nothing, and of a tree in the sandbox ---

# DIR WORDS TARGET
bench_search_in() {
    local round
    echo "search: $2" >&2
    forget_results
    for ((round = 0; round <= rounds; round++)); do
        ((round != 1)) || forget_results # the first one has brought the directories into memory
        measured search "$bin/bench/search_bench" "$1"
        measured find sh -c "find '$1' -type d || :" # it complains of processes that end
        [[ -z $against ]] || measured "$against" "$against_bin/bench/search_bench" "$1"
    done
    compare 2 "search $2, to find" "$3" search find
    [[ -z $against ]] || compare 2 "search $2, to $against" 0.5 search "$against"
    measured memory -a "$bin/bench/search_bench" "$1"
    memory "search $2, anonymous MiB"
}

memory() {
    row "$1" - 0 "$(awk '{ print $4 / 1024 }' results/memory)" 0 4
}

build_revision() {
    against_bin=$root/build/bench-$against
    [[ -d $against_bin ]] || (
        mkdir -p "$against_bin/source"
        git -C "$root" archive "$against" | tar -x -C "$against_bin/source"
        cp "$root"/bench/{CMakeLists.txt,*.cpp} "$against_bin/source/bench"
        # An older one's programs have their own way to link.
        grep -q c_library_alone "$against_bin/source/CMakeLists.txt" ||
            echo 'add_library(c_library_alone INTERFACE)' >>"$against_bin/source/update/CMakeLists.txt"
        cmake -S "$against_bin/source" -B "$against_bin" -DCMAKE_BUILD_TYPE=Release \
            -DBUILD_BENCHMARKS=ON
    ) >&2
    cmake --build "$against_bin" -j "$(nproc)" --target search_bench >&2
}

# --- building and applying, in the sandbox ---

bench_directories() {
    mkdir directories
    (cd directories && printf '%s\0' d{0..99}/d{0..99}/d{0..8} | xargs -0 mkdir -p)
    bench_search_in "$work/directories" '100,000 directories' 0.25
    rm -r directories
}

# FILES MIN MAX POWER PER_DIRECTORY LINKS; the name is found in no directory.
lay_out() {
    rm -rf laid_out
    "$bin/bench/make_tree" laid_out "$@"
}

build_ours() {
    rm -f out.img
    mv laid_out no-such-name
    measured ours "$img_deploy" -c ./no-such-name -p "${1:-1}" out.img "${@:2}"
    mv no-such-name laid_out
}

build_rounds() {
    local round
    forget_results
    for ((round = 0; round < rounds; round++)); do
        build_ours
        rm -f floor.img out.tar out.zip out.squashfs
        measured floor "$bin/bench/floor" build laid_out floor.img
        measured tar+cksum sh -c 'tar -cf out.tar laid_out && cksum out.tar'
        measured zip zip -0 -q -r out.zip laid_out
        measured mksquashfs mksquashfs laid_out out.squashfs -noI -noD -noF -noX -no-progress
        rm -f floor.img out.zip out.squashfs
    done
}

# What one run leaves behind must not help or hinder the next one.
clear_target() {
    rm -rf "${target:?}"/* /usr/local/upgdflag
}

# WHO COMMAND...: runs the command, and looks at the tree that it has applied.
applied_well() {
    "${@:2}" >output 2>&1 || { cat output >&2; die "$1 failed to apply"; }
    diff -r --no-dereference laid_out "$target/no-such-name" >&2 || die "$1 applied another tree"
}

# Applies once with a shell that takes down what it is told to do, and looks at the outcome; the
# floor has to come to the same.
observe_commands() {
    cp -L /bin/sh shell
    # shellcheck disable=SC2016 # the shell that is written expands them
    printf '#!%s\nfor line; do :; done\nprintf "%%s\\n" "$line" >>%s\nexec %s "$@"\n' \
        "$work/shell" "$work/commands" "$work/shell" >observer
    chmod +x observer
    rm -f commands
    clear_target
    mount --bind observer /bin/sh
    applied_well img_deploy "$img_deploy" -u out.img -m 2
    umount /bin/sh
    clear_target
    applied_well 'the floor' "$bin/bench/floor" apply out.img "$target" commands
}

apply_rounds() {
    local round
    forget_results
    observe_commands
    for ((round = 0; round < rounds; round++)); do
        clear_target
        measured ours "$img_deploy" -u out.img -m 2
        clear_target
        measured floor "$bin/bench/floor" apply out.img "$target" commands
        clear_target
        measured tar tar -xf out.tar -C "$target"
    done
}

# NAME FILES MIN MAX POWER PER_DIRECTORY LINKS
bench_tree() {
    echo "tree $1" >&2
    lay_out "${@:2}"
    build_rounds
    compare 2 "build $1" 1.10 ours floor tar+cksum zip mksquashfs
    build_ours 3 "$target"
    apply_rounds
    compare 2 "apply $1, less search, $(wc -l <commands) commands" 1.15 ours floor tar
}

# Of what the tree before it has left.
bench_memory() {
    echo 'memory' >&2
    forget_results
    rm -f out.img
    measured memory -a "$img_deploy" -c ./laid_out -p 1 out.img
    memory 'build big, anonymous MiB'
    clear_target
    forget_results
    measured memory -a "$img_deploy" -u out.img -m 2
    memory 'apply big, anonymous MiB'
}

# WORDS PER_DIRECTORY: the exponent to which the number of files makes the CPU time grow.
bench_scaling() {
    local count line ways=(build apply) rounds=3
    rm -f build.points apply.points
    for count in 500 1000 2000 4000 8000; do
        echo "scaling: $count $1" >&2
        lay_out $count 4096 4096 1 "${2/all/$count}" 0
        forget_results
        for ((line = 0; line < rounds; line++)); do build_ours 3 "$target"; done
        echo "$count $(cut -d' ' -f2 results/ours | quartiles)" >>build.points
        forget_results
        for ((line = 0; line < rounds; line++)); do
            clear_target
            measured ours "$img_deploy" -u out.img -m 2
        done
        # Less the fixed commands, or with the one for each directory.
        echo "$count $(cut -d' ' -f3 results/ours | quartiles)" >>apply.points
    done
    for line in "${ways[@]}"; do
        row "$line, exponent of $1" - 0 "$(awk '
            { x = log($1); y = log($3); n++; sx += x; sy += y; sxx += x * x; sxy += x * y }
            END { print (n * sxy - sx * sy) / (n * sxx - sx * sx) }' "$line.points")" 0 1.1
    done
}

# DEVICE NAME TARGET: of the image, and with the commands, of the tree before it.
bench_medium() {
    local round
    echo 'medium' >&2
    mkdir -p /mnt/medium /mnt/proc
    mount -t proc proc /mnt/proc # the sandbox's own is not to be written to
    mount "$1" /mnt/medium
    mkdir -p /mnt/medium/target
    cp out.img out.tar commands /mnt/medium
    mount --bind /mnt/medium/target "$target"
    cd /mnt/medium
    forget_results
    for ((round = 0; round < rounds; round++)); do
        forget_pages
        measured all "$img_deploy" -u out.img -m 2
        forget_pages
        measured commands "$bin/bench/floor" commands commands
        forget_pages
        measured tar+sync sh -c "tar -xf out.tar -C $target && sync"
    done
    subtract all commands ours "$wait_s"
    compare 1 "apply $2, medium, elapsed, to tar+sync" "$3" ours tar+sync
    cd "$work"
    umount "$target" /mnt/medium /mnt/proc
}

forget_pages() {
    clear_target
    sync
    echo 3 >/mnt/proc/sys/vm/drop_caches
}

inside() {
    rounds=$1 table=$work/table
    local medium=$3 scale=$4
    against=$5 against_bin=$6
    mkdir -p "$work" "$target"
    mount -t tmpfs bench "$work"
    mount -t tmpfs target "$target"
    cd "$work"
    cp "$2/table" "$table"
    bench_directories
    bench_tree small $((4000 / scale)) 1024 8192 1 20 $((100 / scale))
    [[ $medium == - ]] || bench_medium "$medium" small 1.5
    bench_tree 'one directory' $((4000 / scale)) 1024 8192 1 4000 0
    bench_tree mixed $((600 / scale)) 1024 2097152 3 20 0
    [[ $medium == - ]] || bench_medium "$medium" mixed 1.1
    bench_tree big $((8 / scale)) 100663296 100663296 1 8 0
    [[ $medium == - ]] || bench_medium "$medium" big 1.1
    bench_memory
    if ((scale == 1)); then
        bench_scaling files all
        bench_scaling directories 1
    fi
    echo
    "$bin/bench/crc_bench"
    printf '\n%-46s %8s %6s\n' "median of $rounds rounds" 'ours, ms' ratio
    cat "$table"
}

if [[ ${1:-} == --inside ]]; then
    inside "${@:2}"
    exit
fi
rounds=11 scale=1 against=''
while (($#)); do
    case $1 in
        --quick) rounds=3 scale=8 ;;
        --against) against=${2:?} && shift ;;
        *) die 'usage: bench/run.sh [--quick] [--against REVISION]' ;;
    esac
    shift
done
for package in libdeflate-dev zip squashfs-tools; do
    dpkg -s "$package" >/dev/null 2>&1 || apt-get install -y -qq "$package" >&2
done
cmake -S "$root" -B "$bin" -DCMAKE_BUILD_TYPE=Release -DBUILD_BENCHMARKS=ON \
    -DBUILD_TESTING=OFF >&2
cmake --build "$bin" -j "$(nproc)" >&2 \
    --target img_deploy sysconfig crc_bench make_tree measure floor search_bench
against_bin=''
[[ -z $against ]] || build_revision
cd "$bin"
table=$bin/table
: >"$table"
bench_search_in / 'the whole of /' 0.35
medium=-
if ((EUID == 0)); then
    rm -f "$bin/medium"
    truncate -s 4G "$bin/medium"
    mkfs.ext4 -q -F "$bin/medium"
    medium=$(losetup -f --show "$bin/medium")
    trap 'losetup -d "$medium"; rm -f "$bin/medium"' EXIT
fi
SANDBOX_PATH=$bin/platform:$bin:$against_bin "$root/tests/sandbox.sh" \
    "$root/bench/run.sh" --inside "$rounds" "$bin" "$medium" "$scale" "$against" "$against_bin"

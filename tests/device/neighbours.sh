#!/usr/bin/env bash
# What other users and programs of the board can leave in a run's way.
. "$(dirname "$0")/lib.sh"

[[ $SANDBOX_PRIVILEGED == 1 ]] || skip "only root can mount the kernel's partition"
mkdir -p tree/vorn-kernel && echo f >tree/f && echo k >tree/vorn-kernel/zImage
img_deploy -c ./tree -r V2 update.img >/dev/null

# Whoever writes to the device keeps all others out, who touch nothing, and looks at the kernel. Each is
# held at a command, once as the first one and, in all pairs, as the second.
echo card >App_VPUCard.bin
make_backup
hold_command /bin/mkdir
hold_command /usr/vorn/bin/mcu_isp
verbs=('img_deploy -u update.img -m 2' 'upgd_service update update.img --dir /opt/to --cards simulate=0'
    'upgd_service restore s.ubck /opt/to' 'upgd_service flash vpu-mcu App_VPUCard.bin')
# Who may not open the lock's file.
install -m 600 -o 1 /dev/null /run/img_deploy.lock
stranger='setpriv --bounding-set=-dac_override,-dac_read_search'
for who in '' "$stranger"; do
    # shellcheck disable=SC2086 # words
    run flock other flock -s /run/img_deploy.lock $who upgd_service status
    expect_line out 'at work         none'
done
expect_call 1 'flash: only root may do that' unshare -U upgd_service flash 24 update.img
at_work=('img_deploy or a restore: 0 of 0 entries' 'a service update, a restore, or flashing')
refusal=': another update is at work: nothing was touched; wait for its end'
refusals=("img_deploy$refusal 246" "upgd_service$refusal 1"{,,})
for i in {0..3}; do
    first=${verbs[i]}
    touch hold && rm -rf held /opt/to /opt/upgddir
    $first >first_out 2>&1 &
    pid=$!
    await "the command of $first" test -e held
    expect "what the command of $first inherits of the run's files" /run/img_deploy.lock \
        "$(sed -nE 's/.* [3-9] -> //p' held | grep -E '^/(opt|run|var)/|\.(img|ubck|bin)$|out$')"
    cp /var/log/upgd_log0.txt before
    # shellcheck disable=SC2086 # each word is an argument
    expect "all beside $first" "$(printf '%s\n' "${refusals[@]}")" "$(for second in "${verbs[@]}"; do
        (said=$(timeout 20 $second 2>&1 >/dev/null); echo "$said $?") &
    done | sort)"
    expect "what they have written beside $first" '' "$(cmp before /var/log/upgd_log0.txt)"
    run upgd_service plan update.img --dir /opt/to
    expect_line out 'bound to fail   /dev/mmcblk0p6: an update is at work: look again when it has ended'
    for who in '' "$stranger"; do
        run $who upgd_service status
        expect_line out "at work         ${at_work[i % 2]}"
    done
    rm hold
    wait $pid
    expect "the end of $first" 0 $?
done

# Where there is no place for the lock a run goes on without, and follows no link.
for place in 'ln -s /run/elsewhere' mkdir; do
    rm -f /run/img_deploy.lock
    $place /run/img_deploy.lock
    for call in "${verbs[@]}"; do
        run $call
        expect "$call with $place" 0 "$status"
    done
done
expect 'what the link leads to' '' "$(ls /run/elsewhere 2>/dev/null)"
finish

# Catches: a wrong line, event, code or order; a failure that goes on.
usb 1 ;; $ echo >short
image good -- k/zImage 5 k a 0 x u 7 u ;; image bad -- k 0 x k/zImage 5 k
== a run in its own lines (show run /bin/sync, sysconfig, run reboot, wait, event, request, UPGD_SUCCESS, umount kernel,
  update user, trace: end)
image u.img -- nand/App.bin 22 card nand/a 0 ABC nand/zImage 5 kernel ;; answer 22 0 3 ;; do_update_upgrade u.img 1 /b
    event 2/0/0 | run /bin/sync; /bin/umount /mntker/ | trace:   umount kernel dir: /mntker/ \n
    : result = UPGD_SUCCESS, update successful !! \n | run sysconfig set fw_version V1.0.0.0 | run /bin/sync
    trace: \n\n\n\n\rround 2 --------update user file ....\n | event 5/0/33 | request 22/1/0x0/0 /b/nand/App.bin
    trace: end upgrade !! \n | wait 1000000 us | trace: result = UPGD_SUCCESS, update successful !! \n | wait 6 s
    run reboot -f | = 0
percent  --> = 1000
== refusals of the image (show wait, event, run, trace: result)
do_update_upgrade missing 2 /b  --> wait 2 s | event 1/4/0 | wait 1000000 us | trace: result = 2, update error !! \n
    = -10
show event ;; for "short /b" "good /w/short/x" "- /b" => do_update_upgrade @1 2 @2  --> event 1/6/0 | = -10 {2}
    event 1/4/0 | = -10
at <do_update> => $ mv good kept ;; do_update_upgrade good 2 /b ;; $ mv kept good ;; fail map ;; do_update_upgrade good
  2 /b  --> event 1/5/0 | = -10 | event 1/7/0 | = -3
== failures of the unpacking (show wait 2, event, run sysconfig, /bin/umount, run reboot)
do_update_upgrade bad 1 /b  --> event 2/0/0 | wait 2 s | event 2/8/50 | run reboot -f | = -1
for "run /bin/cp" "run /bin/mount" "run dd" syncfs => fail "@" ;; $ umount /mntker 2>/dev/null; rm -rf /b ;;
  do_update_upgrade good 2 /b  --> event 2/0/0 | event 2/10/0 | run /bin/sync; /bin/umount /mntker/ | = -1 {2}
    event 2/0/0 | event 2/9/66 | run /bin/sync; /bin/umount /mntker/ | = -1 | event 2/0/0 | wait 2 s | event 2/8/66
    = -1
== the disk is gone (show event, UPGD_ERROR_NODISK, umount kernel)
image none --
for short bad => usb 1 ;; at wait 2 s => usb 0 ;; do_update_upgrade @ 2 /b  --> event 1/3/0 | = -10 | event 2/0/0
    event 2/3/50 | = -1
for good none => usb 0 ;; do_update_upgrade @ 2 /b ;; percent  --> event 2/0/0 | event 2/3/0
    trace: UPGD_ERROR_NODISK\n | = -1 | = 0 | event 2/0/0 | = 0 | = 1000
usb 1 ;; $ rm -rf /b ;; show event, file error ;; at (num-0) => usb 0 ;; do_update_upgrade good 2 /b
    event 2/0/0 | event 2/3/0 | trace: result = 2, update 1 file error !! \n | = -1
== the entry points (show log:, wait, event, run reboot)
do_update_upgd missing /b  --> log: start | : 'missing' can't open. please check path. | wait 2 s | event 0/4/0
    log: end | = -1
image u.img -- a 0 x ;; for - u.img => do_update_backup @ /b  --> log: start
    : '(null)' can't open. please check path. | : end | = -1 | log: start | : do_update_backup runing...
    wait 20000 us | log: do_update_backup OK | : end | = 0
show log: do_update_backup, event, run reboot ;; for u.img short => do_update_upgd @ /b
    log: do_update_backup runing... | event 2/0/0 | log: do_update_backup OK | = 0 | log: do_update_backup runing...
    event 1/6/0 | log: do_update_backup NG | = -10
== other programs (show log, run)
do_update_runcmd - 1  --> log:  <do_update_runcmd> update_file = (null) | = 0
show run, too long, kill NG ;; for p{219} p{220} => do_update_runcmd @ 10
    run /usr/qrx310/bin/img_deploy -u p{219} -m 10 | = 0 | log: command too long for <p{220}>. | = 0
fail "run killall -9 b" ;; kill_task  --> run killall -9 watchdog  2>&1 | run killall -9 browser  2>&1
    log: kill NG. browser | run killall -9 videod  2>&1 | run /nand/usr/lmt240/bin/telapnet tmd kall  2>&1
    log: kill NG. aptid | run killall -9 dropbear  2>&1 | run killall -9 tmd  2>&1 | = 0

# Catches: another card's request, code or share; a wrong order, wait or byte.
usb 1
== each firmware alone (show request, polls, 950, no mcu fpga)
update_all_UserFile  --> trace: no mcu fpga\n | = 0 and 950
for 25 28 26 29 27 30 22 23 24 => empty_UserFile_patch ;; save_UserFile_patch @ /f ;; update_all_UserFile  --> = 0
    request 25/2/0x100/0 /f | polls 6000 | event 3/11/950 | = -1 and 950 | = 0 | request 28/2/0x1ff/1 /f
    polls 6000 | event 4/11/950 | = -1 and 950 | = 0 | request 26/4/0x100/2 /f | polls 6000 | event 6/13/950
    = -1 and 950 | = 0 | request 29/4/0x1ff/3 /f | polls 6000 | event 7/13/950 | = -1 and 950 | = 0
    request 27/1/0x100/4 /f | polls 12000 | event 9/15/950 | = -1 and 950 | = 0 | request 30/1/0x1ff/5 /f
    polls 12000 | event 10/15/950 | = -1 and 950 | = 0 | request 22/1/0x0/6 /f | polls 3000 | event 5/12/950
    = -1 and 950 | = 0 | request 23/1/0x0/7 /f | polls 6000 | event 8/14/950 | = -1 and 950 | = 0
    request 24/1/0x0/8 /f | polls 3000 | event 11/16/950 | = -1 and 950
show 500 ;; empty_UserFile_patch ;; save_UserFile_patch 27 /f ;; answer 27 -2 6000 ;; update_all_UserFile  --> = 0
    event 9/15/500 | = -1 and 500
== a good answer at the last poll (show polls, trace: update)
save_UserFile_patch 25 /f{1021} ;; answer 25 1 1 ;; answer 25 0 6000 ;; update_all_UserFile  --> = 0
    trace: update /f{1021}\n | polls 1 | polls 6000 | trace: update /f{1021} ok\n | = 0 and 950
empty_UserFile_patch ;; save_UserFile_patch 22 /f ;; fail request ;; update_all_UserFile  --> = 0 | = -7 and 50
== the order and the shares; the disk (show event, UPGD_ERROR_NODISK)
for 25 28 26 29 27 30 22 23 24 => save_UserFile_patch @ /f ;; set_update_card_result @ 0  --> = 0 {9}
update_all_UserFile  --> event 3/0/50 | event 4/0/150 | event 6/0/250 | event 7/0/350 | event 9/0/450
    event 10/0/550 | event 5/0/650 | event 8/0/750 | event 11/0/850 | = 0 and 950
for 23 24 => save_UserFile_patch @ ""  --> = 0 {2}
at event 3 => usb 0 ;; update_all_UserFile  --> event 3/0/50 | event 3/3/178 | trace: UPGD_ERROR_NODISK\n
    = -1 and 178
== the table (show get a user file, file type, file name)
save_UserFile_patch 28 /a ;; show none  --> trace:     get a user file \n | :     file type is 28 \n
    :     file name is /a \n | = 0
for "28 /b{1022}" "28 /b{1023}" "0 /x" "31 /x" => save_UserFile_patch @  --> = 0 | = -1 {3}
for "24 0" "99 7" => set_update_card_result @
for 24 99 28 => get_update_card_result @  --> = 0 | = -1 {2}
show request ;; update_all_UserFile ;; empty_UserFile_patch ;; get_update_card_result 24 ;; update_all_UserFile
    request 28/2/0x1ff/0 /b{1022} | = -1 and 950 | = -1 | = 0 and 950
== the bytes of messages
raw ;; $ sysconfig set card_bit 2
fail "send 01" ;; ipc_event_send_upgmsg ;; ipc_event_send_upgmsg - ;; fail ;; show send  --> = -7 | = -1
for "0 x" "1 -" "82241 p{82241}" => ipc_send_card_update @
    send 020a3b00 \0?\n\x02\0{4}(\0{9}\x1C\0\x0E\0\0\0?\x99\xEF\x02\x04\x03\0\0\x08\x07\x06\x05\0{4} | = 0 | = -1
    send 020a3b00 \0?\n\x02\0{4}iA\x01\0{7}\x1C\0OA\x01\0?\x99\xEF\x02\x04\x03\x01\0\x08\x07\x06\x05AAp{82241}\0\0
    = 0
show trace ;; fail send ;; ipc_send_card_update 1 x ;; fail ;; ipc_send_card_update 0xFFFFFFFF x
    trace: QX7_FPGA_WriteBlock: send_msg_to_kmd error :-7\n | = -7 | = -1
show send ;; save_UserFile_patch 22 /f ;; set_update_card_result 22 0 ;; update_all_UserFile  --> = 0
    send 01abcdef \0?\n\x02\0{4}4\x04\0{6}\x06\0\x1C\0{9}\x05\0{1039}2\0{7}
    send 020a3b00 \0?\n\x02\0{4},\x04\0{8}\x1C\0\x12\x04\0\0?\xFE\xEF\x01\0\0\x03\0{5}\x04\x04\x16\0\0\0/f\0{1024}
    = 0 and 950
== local flashing (show log, trace)
$ touch f; touch g{202} g{203} ;; for "24 none" "21 f" "31 f" "24 f" => update_one_UserFile @  --> = -1
    trace:     no file need to update in round 1... \n | = -1 {2} | trace:     file name is f \n
    :     file type is 24 \n | log: bin type is = 24\s
    trace:     cmdstr=/usr/vorn/bin/mcu_isp -B vpu     -C 0x31 -b f -r 0x00  \n\n
    log: cmdstr=/usr/vorn/bin/mcu_isp -B vpu     -C 0x31 -b f -r 0x00  \n\n | trace:     begin update self bin \n
    :     update OK !\n | = 0
show run, too long ;; for 22 23 25 26 27 28 29 30 => update_one_UserFile @ f
    run /usr/vorn/bin/mcu_isp -B input  -C 0x31 -b f\s | = 0 | run /usr/vorn/bin/mcu_isp -B output  -C 0x31 -b f\s
    = 0 | run /usr/vorn/bin/kmd_test 0 update   0x0100 2 f\s | = 0
    run /usr/vorn/bin/kmd_test -B update   0x0100 4  f\s | = 0
    run /usr/vorn/bin/kmd_test -B update   0x0100 1  f\s | = 0
    run /usr/vorn/bin/kmd_test -B update   0x01ff 2  f\s | = 0
    run /usr/vorn/bin/kmd_test -B update   0x01ff 4  f\s | = 0
    run /usr/vorn/bin/kmd_test -B update   0x01ff 1  f\s | = 0
for g{202} g{203} => update_one_UserFile 24 @  --> run /usr/vorn/bin/mcu_isp -B vpu     -C 0x31 -b g{202} -r 0x00\s
    = 0 | log: command too long for <g{203}>. | = -6
show faild, update err ;; fail run ;; update_one_UserFile 24 f  --> trace:     update err !\n
    log: update faild!!: <f>.\n | = -6

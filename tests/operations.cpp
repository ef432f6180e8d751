// What a story can do: what it sets up, and the operations of the system.
#include "tests/story.h"

#include "platform/configuration.h"
#include "platform/identity.h"
#include "platform/mailbox.h"
#include "update/dtt_create/card_file_names.h"
#include "update/dtt_create/command_output.h"
#include "update/dtt_create/create_image.h"
#include "update/dtt_create/disk_inventory.h"
#include "update/dtt_create/disk_labels.h"
#include "update/dtt_create/tree_walk.h"
#include "update/dtt_update/apply_engine.h"
#include "update/dtt_update/card_sequencer.h"
#include "update/dtt_update/card_table.h"
#include "update/dtt_update/device_messages.h"
#include "update/dtt_update/directories_and_links.h"
#include "update/dtt_update/installer.h"
#include "update/dtt_update/target_search.h"
#include "update/dtt_update_common/entry_writer.h"
#include "update/dtt_update_common/header_report.h"
#include "update/dtt_update_common/path_operations.h"
#include "update/dtt_update_common/shared_memory.h"
#include "update/dtt_update_common/update_flag.h"
#include "update_service.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <numeric>
#include <sys/shm.h>
#include <unistd.h>

static constexpr aptid_t RECEIVER = 0x01abcdef; // of events

char *call::text(size_t i)
{
    if (i >= words.size() || words[i] == "-")
        return nullptr;
    if (!texts[i])
        make_room(i, words[i].size() + 1, words[i].c_str());
    return texts[i].get();
}

void call::make_room(size_t i, size_t size, const char *old)
{
    texts[i].reset(new char[size]);
    strcpy(texts[i].get(), old);
}

int call::number(size_t i) const
{
    return i < words.size() ? static_cast<int>(strtoll(words[i].c_str(), nullptr, 0)) : 0;
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

static std::string told(long number)
{
    return std::to_string(number);
}

static std::string told(const char *text)
{
    return text == nullptr ? "null" : "\"" + shown(text) + "\"";
}

// A result with what the operation has left in its argument.
static std::string told(int result, const char *text)
{
    return told(result) + " " + told(text);
}

static std::string told(int result, const int &number)
{
    return told(result) + " and " + told(number);
}

operation_table operations; // ahead of all that is added

// An operation by its name: what the call `c` comes to as text, or a function that returns it.
#define RETURNS(name, ...)                                                                         \
    static const auto has_##name = operations.emplace(                                             \
        #name, []([[maybe_unused]] call &c) -> std::string { return __VA_ARGS__; })
#define OPERATION(name)                                                                            \
    static std::string play_##name(call &c);                                                       \
    RETURNS(name, play_##name(c));                                                                 \
    static std::string play_##name([[maybe_unused]] call &c)

static std::string be32(unsigned long value)
{
    const uint32_t word = htonl(static_cast<uint32_t>(value));
    return {reinterpret_cast<const char *>(&word), sizeof word};
}

// FILE FIELD=VALUE... -- NAME TYPE DATA...: the type "raw" is for bytes that are no entry.
OPERATION(image)
{
    std::string body;
    long count = 0;
    size_t i = 2;
    std::map<std::string, std::string> fields = {
        {"magic", "0x27051966"}, {"place", "2"}, {"dir", "nand"}, {"version", "V1.0.0.0"}};
    for (; c.words.at(i) != "--"; i++) {
        const size_t equals = c.words[i].find('=');
        fields[c.words[i].substr(0, equals)] = c.words[i].substr(equals + 1);
    }
    for (i++; i + 2 < c.words.size(); i += 3) {
        body += c.words[i];
        if (c.words[i + 1] == "raw")
            continue;
        const char type[] = {'\0', static_cast<char>(c.number(i + 1))};
        body += std::string(type, 2) + be32(c.words[i + 2].size()) + c.words[i + 2];
        count++;
    }
    fields.emplace("count", told(count));
    fields["size"] = told(static_cast<long>(488 + body.size()));
    fields["name"] = "Vorn Video Systems firmware package";
    std::ofstream file(c.words[1], std::ios::binary);
    for (const char *name :
         {"magic", "crc", "dirs", "size", "time", "count", "comp", "offset", "place", "reserve"})
        file << be32(strtoul(fields[name].c_str(), nullptr, 0));
    fields["dest"].resize(256);
    for (const char *name : {"dir", "name", "version"})
        fields[name].resize(64);
    file << fields["dest"] << fields["dir"] << fields["name"] << fields["version"] << body;
    return "";
}

// ENTRIES in DIRECTORIES of the tree TEXT, and NAME TYPE DATA of each entry, sorted.
OPERATION(entries)
{
    const std::string bytes = read_file(c.words.at(1));
    const auto number = [&bytes](size_t at) {
        uint32_t value = 0;
        bytes.copy(reinterpret_cast<char *>(&value), sizeof value, at);
        return ntohl(value);
    };
    std::vector<std::string> all;
    for (size_t at = 488, size; at < bytes.size(); at += size) {
        const std::string name = bytes.c_str() + at;
        at += name.size() + 6;
        size = number(at - 4);
        all.push_back("\n" + shown(name) + " " + told(bytes.at(at - 5)) + " " +
                      shown(bytes.substr(at, size)));
    }
    std::sort(all.begin(), all.end());
    return std::accumulate(all.begin(), all.end(),
                           told(number(20)) + " in " + told(number(8)) + " of " +
                               shown(bytes.c_str() + 296));
}

// do_create DIRECTORY PLACE IMAGE TO_DIRECTORY VERSION
OPERATION(do_create)
{
    const int result = do_create(c.text(1), 2, c.text(3), c.number(2), c.text(4), c.text(5));
    return result == 0 ? "0" : told(result, strerror(errno));
}

// write_file IMAGE TYPE PATH NAME
OPERATION(write_file)
{
    const int fd = open(c.text(1), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    const int result = write_file(fd, c.number(2), c.text(3), c.text(4));
    close(fd);
    return told(result);
}

// PATH <NAME> FILES of each disk. The three lists, one behind the other, have one layout.
OPERATION(get_udisk_all_info)
{
    const std::unique_ptr<udisk_info_t> info(new udisk_info_t{});
    info->upath_num = -7;
    std::string text = told(get_udisk_all_info(info.get()), info->upath_num);
    for (const udisk_list_t *disk = info->upath; disk < info->upath + info->upath_num; disk++) {
        text += std::string("\n") + disk->udisk_path + " <" + shown(disk->udisk_name) + ">";
        const auto *list = reinterpret_cast<const uimgfile_info_t *>(&disk->imgfile);
        for (const auto *const end = list + 3; list < end; list++) {
            text += " " + told(list->uimgfile_num);
            for (int i = 0; i < list->uimgfile_num; i++)
                text += " " + shown(list->uimgfile[i]);
        }
    }
    return text;
}

OPERATION(check_udisk_mount_status)
{
    char *const path = c.text(1);
    const int found = check_udisk_mount_status(path);
    return told(found) + " " + (path != nullptr ? shown({path, c.words.at(1).size()}) : "");
}

OPERATION(get_udisk_real_name)
{
    const std::unique_ptr<char[]> label(new char[LABEL_SIZE]());
    c.words.at(1).copy(label.get(), LABEL_SIZE - 1);
    const int is_gbk = check_is_gbk(label.get());
    return told(is_gbk) + " " + told(get_udisk_real_name(label.get()), label.get());
}

OPERATION(copy_file_new)
{
    upgrade_info_t info = {1, 2, 3, 4, 5};
    return told(copy_file_new(&info, c.text(1), c.text(2), static_cast<int>(strlen(c.text(1)))),
                info.cur_percent);
}

// FILE LENGTH, or with "locked" behind it for reading alone.
OPERATION(gzip_dirs_and_files)
{
    const int fd = open(c.text(1), (c.words.size() > 3 ? O_RDONLY : O_RDWR) | O_CLOEXEC);
    const int result = gzip_dirs_and_files(fd, nullptr, 488, std::stoul(c.words.at(2)));
    close(fd);
    return told(result);
}

// FILE LENGTH, or with "memory" behind it from a stream without a descriptor.
OPERATION(open_gunzip_file)
{
    std::string bytes = read_file(c.words.at(1));
    FILE *const infile =
        c.words.size() > 3 ? fmemopen(bytes.data(), bytes.size(), "rb") : fopen(c.text(1), "rbe");
    FILE *const stream = open_gunzip_file(infile, std::stoul(c.words.at(2)));
    fclose(infile);
    if (const auto error = reinterpret_cast<uintptr_t>(stream); error <= 2)
        return told(static_cast<long>(error));
    std::string text(1000, '\0');
    text.resize(fread(text.data(), 1, text.size(), stream));
    fclose(stream);
    return shown(text);
}

OPERATION(_find_dir)
{
    const std::unique_ptr<arena> ap(new arena{});
    strcpy(ap->devpath, c.text(1));
    const int result = _find_dir(ap.get(), c.text(2));
    return result == 0 ? told(0, ap->devpath) : told(result);
}

// The header of the image FILE, at the end of its memory.
static std::unique_ptr<update_header_t> header(const call &c)
{
    std::unique_ptr<update_header_t> exact(new update_header_t);
    read_file(c.words.at(1)).copy(reinterpret_cast<char *>(exact.get()), sizeof *exact);
    return exact;
}

OPERATION(check_type_SelfFile)
{
    int type = -7;
    return told(check_type_SelfFile(c.text(1), &type), type);
}

#define CALL(name, ...) RETURNS(name, told(name(__VA_ARGS__)))
#define SET(name, ...) RETURNS(name, (static_cast<void>(__VA_ARGS__), ""))
#define LEAVES(name) RETURNS(name, (name(c.text(1)), told(c.text(1))))
#define FILLS(name, size, old, ...)                                                                \
    RETURNS(name, (c.make_room(0, size, old), told(name(__VA_ARGS__, c.text(0)), c.text(0))))

FILLS(do_create_backup, 256, "old", c.text(1));
FILLS(run_command_return_string, 63, "old", c.text(1));
FILLS(find_dir, 1024, "", c.words.at(1) == "-" ? nullptr : header(c).get());
SET(usb, set_usb_status(c.number(1) != 0 ? TRUE : FALSE));
SET(fail, rec.failing.assign(c.words.begin() + 1, c.words.end()));
SET(output, rec.outputs[c.words.at(1)] = c.words.at(2));
SET(answer, rec.answers[c.words.at(1) + " " + c.words.at(3)] = c.number(2));
SET(raw, rec.raw = true);
SET(print, fputs(c.text(1), stdout));
SET(clock, rec.time_us = std::stoll(c.words.at(1)) * 1000000);
SET(types, rec.types_are_told = c.number(1) != 0);
SET(mailbox, mailbox_open(("/run/mailbox/" + c.words.at(1)).c_str()));
RETURNS(attach_shm, attach_shm(c.number(1), c.number(2)) != nullptr ? "attached" : "null");
SET(block, shmget(UPGRADE_INFO_SHM_KEY, static_cast<size_t>(c.number(1)), IPC_CREAT | 0600));
RETURNS(xreadlink, told(std::unique_ptr<char, void (*)(void *)>(xreadlink(c.text(1)), free).get()));
RETURNS(u2g, (c.make_room(0, 8, ""), told(u2g(c.text(1), 3, c.text(0), 7), c.text(0))));
RETURNS(bytes, shown(read_file(c.words.at(1)).substr(static_cast<size_t>(c.number(2)))));
RETURNS(percent, told(get_upgd_msg()->upgrade_info.cur_percent));
RETURNS(prefix, shown(rec.prefix));
CALL(do_update, c.text(1), c.number(2), c.text(3));
CALL(do_update_upgrade, RECEIVER, c.text(1), c.number(2), c.text(3));
CALL(do_update_upgd, RECEIVER, c.text(1), c.text(2));
CALL(do_update_backup, c.text(1), c.text(2));
CALL(do_update_runcmd, c.text(1), c.number(2), nullptr);
CALL(kill_task);
CALL(configuration_set, CONFIGURATION_PATH, c.text(1), c.text(2));
CALL(configured_card_bit, CONFIGURATION_PATH);
CALL(set_update_flag, c.text(1), c.number(2));
SET(free_upgrade_info, free_upgrade_info(c.words.size() > 1 ? nullptr : get_upgrade_info()));
CALL(update_fw_version, header(c).get());
SET(print_image_hdr, print_image_hdr(header(c).get()));
CALL(update_one_UserFile, c.number(1), c.text(2));
CALL(save_UserFile_patch, c.number(1), c.text(2));
SET(set_update_card_result, set_update_card_result(c.number(1), c.number(2)));
RETURNS(update_all_UserFile, (get_upgd_msg()->upgrade_info = {0, 0, 0, 50, 0},
                              told(update_all_UserFile(RECEIVER, get_upgd_msg()),
                                   get_upgd_msg()->upgrade_info.cur_percent)));
CALL(get_update_card_result, c.number(1));
SET(empty_UserFile_patch, empty_UserFile_patch());
CALL(ipc_event_send_upgmsg, RECEIVER, c.words.size() > 1 ? nullptr : get_upgd_msg(), 28, 6);
CALL(sendmsg_udisk_all_info);
CALL(sendmsg_ack_back, c.number(1), c.number(2), c.number(3), c.text(4));
CALL(ipc_send_card_update, 0x99, 2, 0x304, 0x05060708, static_cast<unsigned int>(c.number(1)),
     reinterpret_cast<unsigned char *>(c.text(2)));
RETURNS(update_LinuxFile, told(update_LinuxFile(c.number(1), c.text(2)), ker_img_num));
CALL(concat_path_file, c.text(1), c.text(2), std::vector<char>(1024).data());
CALL(get_dirname, c.text(1));
LEAVES(dirname);
LEAVES(cut_link_filename);
LEAVES(chomp);
CALL(last_char_is, c.text(1), '/');
CALL(first_char_is, c.text(1), '/');
CALL(_mkdir, c.text(1));
CALL(place2str, c.number(1));
CALL(place2dir, c.number(1));

// story FILE: plays a story in the sandbox and compares what comes of it with what stands in it;
// story FILE --record: prints the story with what comes of it instead.
#include "tests/story.h"
#include "update/dtt_update_common/trace_log.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;
using lines = std::vector<std::string>;

static lines result;           // of the command in hand
static std::string operation;  // in hand
static std::regex patterns[2]; // of the lines that are shown, and of those that are not
static std::vector<std::pair<std::string, std::string>> hooks; // a line, and the command at it

// Prints "FILE = CONTENT", "LINK -> TARGET" and "EMPTY/".
static const std::string TREE = R"( && find . -mindepth 1 -type f -printf '%P = ' -exec cat {} \; \
    -printf '\n' -o -type l -printf '%P -> %l\n' -o -type d -empty -printf '%P/\n' | sort)";

static const std::string REPORT = "/run/sandbox/report"; // what comes of the commands

// Between a command and its results on the same line, and between the lines of a command.
static const std::string ARROW = "  --> ", MORE = "\n  ";

// Ahead of the values of a `for` at the end of a result, which only a difference shows.
static const char VALUE = '\1';

// The root of a part: the mounts of the sandbox's, partitions of its own, and else nothing. What it
// changes in the mounts goes ahead of it.
static const std::string MAKE_ROOT = R"(set -e
    rm -rf /etc/sysconfig /usr/qrx310 /usr/vorn /usr/local/upgdflag /usr/local/sbin/g*zip /dev/disk
    mount -t tmpfs tmpfs /sandbox
    cd /sandbox
    mkdir -p tmp w opt mntker var/log old
    for link in /*; do [ ! -L "$link" ] || cp -P "$link" .; done
    awk '$5 !~ "^/(sandbox)?$" { print $5 }' /proc/self/mountinfo | sort | while read -r place; do
        place=$(printf %b "$place")
        [ -e ".$place" ] || { mkdir -p ".$place" && mount --rbind "$place" ".$place"; }
    done
    for partition in mmcblk0p1 mmcblk0p6; do
        cp --sparse=always "/dev/$partition" old/ && mount --bind "old/$partition" "dev/$partition"
    done
    rm -rf run/mailbox run/img_deploy.lock
    : >run/sandbox/calls
    pivot_root . old
    umount -l old)";

static void perform(const std::string &command);

static bool take_away(std::string *text, const std::string &head)
{
    const bool found = text->rfind(head, 0) == 0;
    text->erase(0, found ? head.size() : 0);
    return found;
}

// The parts of `text`, less those that are empty.
static lines split(const std::string &text, const std::string &divider)
{
    lines parts;
    for (size_t at = 0, end; at < text.size(); at = end + divider.size())
        if ((end = std::min(text.find(divider, at), text.size())) > at)
            parts.push_back(text.substr(at, end - at));
    return parts;
}

// c{300} stands for 300 times c, also if c is an escape.
static std::string repeated(std::string text)
{
    static const std::regex form(R"((\\x..|\\.|[^\]$ ])\{(\d+)\})");
    for (std::smatch found; std::regex_search(text, found, form);) {
        std::string all;
        for (unsigned long count = std::stoul(found[2]); count > 0; count--)
            all += found[1];
        text = found.prefix().str() + all + found.suffix().str();
    }
    return text;
}

// The words of a command. Quotes keep blanks together; \n \r \t \0 \s \" \\ and \xHH stand for
// their bytes.
static lines words_of(const std::string &command)
{
    lines words;
    bool in_word = false, in_quotes = false;
    for (size_t i = 0; i < command.size(); i++) {
        char c = command[i];
        in_quotes = in_quotes != (c == '"');
        if (!in_word && (c != ' ' || in_quotes))
            words.emplace_back();
        in_word = c != ' ' || in_quotes;
        if (c == '"' || !in_word)
            continue;
        if (c == '\\') {
            const size_t name = std::string("nrt0s").find(c = command.at(++i));
            c = name != std::string::npos ? "\n\r\t\0 "[name] : c;
            if (c == 'x') {
                c = static_cast<char>(std::stoi(command.substr(i + 1, 2), nullptr, 16));
                i += 2;
            }
        }
        words.back() += c;
    }
    return words;
}

// A line is shown if words of the filter stand in it as they are. A kind of lines is a word at
// their beginning. Words with a '-' ahead hide lines.
static void show(const std::string &filter)
{
    static const std::regex kinds(
        "log|trace|run|read|listing|wait|event|request|send|polls|block|open|"
        "out|err|begin|fsync|sync|syncfs|rename");
    const auto bound = [](char c) { return isalnum(c) != 0 ? "\\b" : ""; };
    std::string shows = "none^", hides = shows;
    for (std::string words : split(filter, ", ")) {
        std::string &to = take_away(&words, "-") ? hides : shows;
        to += (std::regex_match(words, kinds) ? "|^" : "|") + std::string(bound(words[0])) +
              std::regex_replace(words, std::regex("[^\\w ]"), "\\$&") + bound(words.back());
    }
    patterns[0] = shows;
    patterns[1] = hides;
}

// A line that belongs to the operation in hand does not name it, and none names what the one ahead
// of it has named.
static void tell(std::string line)
{
    static std::string last;
    for (const std::string kind : {"log", "trace"})
        if (take_away(&line, kind + " " + operation + ": "))
            line = kind + ": " + line;
    line = shown(line);
    if (!std::regex_search(line, patterns[0]) || std::regex_search(line, patterns[1]))
        return;
    const std::string head = line.substr(0, line.find(": "));
    const bool named = !result.empty() && head == last && take_away(&line, head);
    last = named || line.size() > head.size() ? head : "";
    result.push_back(line);
}

// What has gone to the console since the last call.
static void collect()
{
    fflush(stdout);
    for (const std::string kind : {"out", "err"}) {
        for (const std::string &line : split(read_file("/run/sandbox/" + kind), "\n"))
            tell(kind + " " + line);
        fs::resize_file("/run/sandbox/" + kind, 0);
    }
}

static void run_script(const std::string &script)
{
    const int status =
        system(("{ . $STORIES/lib.sh; " + script + "\n} >/run/sandbox/script 2>&1").c_str());
    for (const std::string &line : split(read_file("/run/sandbox/script"), "\n"))
        result.push_back(shown(line));
    if (status != 0)
        result.push_back("status " + std::to_string(WEXITSTATUS(status)));
}

// Descriptors that are open, less sockets, and mappings of files: what an operation adds is lost.
static long held()
{
    long count = 0;
    for (const std::string &line : split(read_file("/proc/self/maps"), "\n"))
        count += line.find(" r--s ") != line.npos && line.find("/lib/") == line.npos ? 1 : 0;
    std::error_code error;
    for (const fs::directory_entry &item : fs::directory_iterator("/proc/self/fd"))
        count += fs::read_symlink(item, error).string().rfind("socket:", 0) != 0 ? 1 : 0;
    return count;
}

static void call_operation(const std::string &command)
{
    call c = {words_of(repeated(command)), {}};
    const std::string outer = std::exchange(operation, c.words.at(0));
    const long before = outer.empty() ? held() : 0;
    const lines returned = split(operations.at(operation)(c), "\n");
    operation = outer;
    if (!outer.empty())
        return;
    for (size_t i = 0; i < returned.size(); i++)
        result.push_back((i == 0 ? "= " : "") + returned[i]);
    if (held() != before)
        result.push_back("holds more than before: " + std::to_string(held() - before));
}

// "VALUE... => COMMAND ;; COMMAND": @ is a value, @1 to @9 are its words. What comes of a value and
// is no other than what has come of the one ahead stands there once, with the number of values.
static void repeat(const std::string &values, const std::string &commands)
{
    lines all = std::move(result), before;
    int count = 0;
    for (const std::string &value : words_of(values)) {
        lines words = split(value, " ");
        words.resize(9);
        result.clear();
        for (std::string command : split(commands, " ;; ")) {
            for (size_t at = 0; (at = command.find('@', at)) != command.npos;) {
                const size_t number = static_cast<size_t>(command[at + 1] - '1');
                const std::string text = shown(number < 9 ? words[number] : value);
                command.replace(at, number < 9 ? 2 : 1, text);
                at += text.size();
            }
            perform(command);
        }
        count = result == before ? count + 1 : 1;
        for (const std::string &line : result)
            if (count == 1)
                all.push_back(line + VALUE + shown(value));
        if (count > 1 && !result.empty())
            all.back() = result.back() + " {" + std::to_string(count) + "}" + VALUE + shown(value);
        before = result;
    }
    result = all;
}

static void perform(const std::string &command)
{
    std::string rest = command;
    const size_t arrow = command.find(" => ");
    const std::string behind = arrow != command.npos ? command.substr(arrow + 4) : "";
    if (operation.empty() && chdir("/w") != 0)
        _exit(1);
    if (take_away(&rest, "for ")) {
        repeat(rest.substr(0, rest.find(" => ")), behind);
    } else if (const size_t end = command.find(" ;; "); end != command.npos) {
        perform(command.substr(0, end));
        perform(command.substr(end + 4));
    } else if (take_away(&rest, "$ ")) {
        run_script(repeated(rest));
    } else if (take_away(&rest, "tree ")) {
        run_script("cd " + rest + TREE);
    } else if (take_away(&rest, "show ")) {
        show(rest);
    } else if (take_away(&rest, "apply")) {
        if (!rest.empty())
            call_operation("image u.img --" + rest);
        call_operation("do_update u.img 2 /b");
    } else if (take_away(&rest, "at ")) {
        hooks.emplace_back(rest.substr(0, rest.find(" => ")), behind);
    } else {
        call_operation(command);
    }
}

// Tells the line. The commands that wait for it are performed.
static void on_line(const std::string &line)
{
    tell(line);
    for (size_t i = 0; i < hooks.size(); i++)
        if (line.find(hooks[i].first) != line.npos)
            if (const std::string command = std::exchange(hooks[i].second, ""); !command.empty())
                perform(command);
}

// Plays commands in a process, namespaces and directories of their own. Returns them with what has
// come of each behind it.
static std::string play(const lines &commands)
{
    const pid_t pid = fork();
    if (pid == 0) {
        std::ofstream report(REPORT);
        freopen("/run/sandbox/out", "a", stdout);
        freopen("/run/sandbox/err", "a", stderr);
        setbuf(stderr, nullptr);
        if (unshare(CLONE_NEWNS | CLONE_NEWIPC) != 0 || system(MAKE_ROOT.c_str()) != 0)
            _exit(1);
        rec.on_line = on_line;
        for (const std::string &command : commands) {
            report << (&command == &commands[0] ? "" : "\n") << command << std::flush;
            result.clear();
            const std::string line = std::regex_replace(command, std::regex(MORE), " ");
            std::smatch title;
            if (std::regex_match(line, title, std::regex("== .*?(?: \\(show (.*)\\))?"))) {
                show(title[1]);
            } else if (line[0] != '#') {
                perform(line);
                collect();
            }
            for (const std::string &one : result)
                report << "\n    " << one;
        }
        report.close();
        exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (status == 0)
        return read_file(REPORT);
    fputs(read_file("/run/sandbox/err").c_str(), stderr);
    return read_file(REPORT) + "\n    DIED";
}

// Each result on a line of its own, and as many on a line as it has room for.
static std::string spread(const std::string &text)
{
    return std::regex_replace(text, std::regex(ARROW + "| \\| "), "\n    ");
}

static std::string filled(const std::string &text)
{
    std::string out, line, divider;
    for (const std::string &part : split(text, "\n")) {
        const bool is_result = part.rfind("    ", 0) == 0;
        const bool fits = is_result && line.size() + divider.size() + part.size() <= 120;
        out += fits || line.empty() ? "" : line + "\n";
        line = fits ? line + divider + part.substr(4) : part;
        divider = is_result ? " | " : ARROW;
    }
    return out + line + "\n";
}

// Shows where `got`, whose lines have their values, is not what was expected.
static int show_difference(const std::string &expected, const std::string &plain, const lines &got)
{
    std::ofstream("/tmp/expected") << expected;
    std::ofstream("/tmp/got") << plain;
    FILE *const stream = popen("diff -U 4 -F '^== ' /tmp/expected /tmp/got", "r");
    char text[9000];
    for (size_t at = 0; fgets(text, sizeof text, stream) != nullptr;) {
        std::string line = text;
        if (sscanf(text, "@@ %*s +%zu", &at) != 1 && at > 0 && text[0] != '-')
            if (const size_t end = got.at(at++ - 1).find(VALUE); end != line.npos)
                line.insert(1, "[" + got[at - 2].substr(end + 1) + "]");
        fputs(line.c_str(), stdout);
    }
    return WEXITSTATUS(pclose(stream));
}

int main(int argc, char **argv)
{
    setenv("TZ", "UTC", 1);
    setenv("STORIES", fs::absolute(argv[1]).parent_path().c_str(), 1);
    log_debug = 0; // trace lines go to the log file, which is recorded
    const std::string story = read_file(argv[1]);
    std::vector<lines> parts(1); // the opening, and then those with a title
    for (const std::string &line : split(story, "\n")) {
        if (line.rfind("== ", 0) == 0)
            parts.emplace_back(parts[0]);
        const std::string command = line.substr(0, line.find(ARROW));
        if (line.rfind(MORE.substr(1), 0) == 0 && line.rfind("    ", 0) != 0)
            parts.back().back() += "\n" + command;
        else if (line.rfind("    ", 0) != 0)
            parts.back().push_back(command);
    }
    std::string got;
    for (auto part = parts.begin() + 1; part != parts.end(); ++part) {
        const std::string text = play(*part);
        got += got.empty() ? text : text.substr(std::min(text.find("\n== "), text.size()));
    }
    const std::string plain = std::regex_replace(got, std::regex("\1[^\n]*"), "");
    if (argc > 2)
        return fputs(filled(plain).c_str(), stdout) < 0 ? 1 : 0;
    const int differs =
        show_difference(spread(story), spread(plain + "\n"), split(spread(got), "\n"));
    return parts.size() > 1 ? differs : 1;
}

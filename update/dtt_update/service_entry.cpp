// The entry points of the resident service.
#include "update/dtt_update/apply_engine.h"
#include "update/dtt_update/service_run.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/platform_log.h"
#include "update_service.h"

#include <unistd.h>

// The file's absence is said in the name of the operation that was called.
static bool file_exists(const char *operation, const char *updfile)
{
    if (updfile != nullptr && access(updfile, F_OK) == 0)
        return true;
    PLATFORM_LOG_AS(operation, "'%s' can't open. please check path.",
                    updfile != nullptr ? updfile : "(null)");
    return false;
}

static void log_outcome(const char *operation, int ret)
{
    PLATFORM_LOG_AS(operation, ret == 0 ? "do_update_backup OK" : "do_update_backup NG");
}

int do_update_upgd(aptid_t uid, char *updfile, char *upgd_dir)
{
    int ret = -1;
    PLATFORM_LOG("start");
    if (file_exists(__func__, updfile)) {
        // These lines read the same as in do_update_backup; the function's name tells them apart.
        PLATFORM_LOG("do_update_backup runing...");
        ret = do_update_upgrade(uid, updfile, ONLINE_MODE, upgd_dir);
        log_outcome(__func__, ret);
    } else {
        const event_receiver to = {uid, get_upgd_msg()};
        report_failure(&to, UPGD_ERROR_FILENOTEXIST);
    }
    PLATFORM_LOG("end");
    return ret;
}

int do_update_backup(char *updfile, char *ubck_dir)
{
    int ret = -1;
    PLATFORM_LOG("start");
    if (file_exists(__func__, updfile)) {
        PLATFORM_LOG("do_update_backup runing...");
        ret = do_update(updfile, ONLINE_MODE, ubck_dir);
        log_outcome(__func__, ret);
    }
    PLATFORM_LOG("end");
    return ret;
}

int do_update_runcmd(char *update_file, int mode, char * /*force_base_dir*/)
{
    PLATFORM_LOG(" <do_update_runcmd> update_file = %s",
                 update_file != nullptr ? update_file : "(null)");
    if (update_file == nullptr)
        return 0;
    char cmd[256];
    if (bounded_format(cmd, sizeof cmd, "/usr/qrx310/bin/img_deploy -u %s -m %d", update_file,
                       mode))
        my_system(cmd);
    else
        PLATFORM_LOG("command too long for <%s>.", update_file);
    return 0;
}

int kill_task(void)
{
    static constexpr struct {
        const char *name;
        const char *command;
    } tasks[] = {
        {"watchdog", "killall -9 watchdog  2>&1"},
        {"browser", "killall -9 browser  2>&1"},
        {"videod", "killall -9 videod  2>&1"},
        // This one is asked to end and take its children along.
        {"aptid", "/nand/usr/lmt240/bin/telapnet tmd kall  2>&1"},
        {"dropbear", "killall -9 dropbear  2>&1"},
        {"tmd", "killall -9 tmd  2>&1"},
    };
    for (const auto &task : tasks)
        if (my_system(task.command) != 0)
            PLATFORM_LOG("kill NG. %s", task.name);
    return 0;
}

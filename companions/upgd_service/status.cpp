// What is at work, how the last run has ended, and what to do next.
#include "companions/signature/check.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/gate.h"
#include "companions/upgd_service/json_line.h"
#include "companions/upgd_service/run_state.h"

namespace
{
struct device_status {
    std::string at_work;
    std::string last; // run of img_deploy
    std::string version;
    std::string product;
    std::string floor;
    std::string keys; // number, or what is wrong with them
    std::string next; // step
};
} // namespace

// How the last run has ended, by the flag file: it is on the medium, the progress block is not. A
// restore writes to the block and has no flag.
static std::string last_run(const run_state &run, const std::string &flag, bool at_work)
{
    const bool well = !run.known || run.result == RUN_DONE;
    const std::string words =
        at_work && run.attended && !is_over(run)
            ? "is at work"
            : (run.known && run.result == RUN_FAILED ? "has failed: " : "did not end: ") +
                  std::to_string(run.done) + " of " + std::to_string(run.total) + " entries";
    if (flag == "1")
        return well ? "did not end" : words;
    return (flag == "2" ? "went well" : "none so far") +
           (well ? "" : "; a restore behind it " + words);
}

static std::string next_step(const device_status &status, const run_state &run,
                             const std::string &flag, const key_fault &fault)
{
    if (!status.at_work.empty())
        return "wait for its end, or watch it with \"upgd_service watch\"";
    if (flag == "1")
        return "the last run did not end well: apply the image again";
    if (run.known && run.result != RUN_DONE)
        return "the last restore did not end well: restore the backup again";
    if (fault.why != nullptr)
        return "mend the keys: no image is taken";
    if (status.keys != "0" && status.product.empty())
        return "say which product this is with \"sysconfig set product NAME\"";
    return "none";
}

// Returns false with a sentence if the configuration can't be read.
static bool read_status(device_status *status)
{
    const upgrade_info_t *block;
    if (!attach_progress_block(&block))
        return false;
    const run_state run = look_at_run(block);
    const std::string flag = flag_value();
    key_ring ring;
    const key_fault fault = load_keys(KEY_DIRECTORY, &ring);
    status->at_work = run_at_work(run);
    status->last = last_run(run, flag, !status->at_work.empty());
    status->keys = fault.why != nullptr ? std::string(fault.where) + ": " + fault.why
                                        : std::to_string(ring.count);
    if (!read_setting(VERSION_KEY, &status->version) ||
        !read_setting("product", &status->product) || !read_setting("fw_floor", &status->floor))
        return false;
    status->next = next_step(*status, run, flag, fault);
    return true;
}

int status_command(const service_call *call)
{
    device_status status;
    if (!read_status(&status))
        return SERVICE_FAILED;
    const struct {
        const char *key;
        const char *words;
        const std::string &value;
    } rows[] = {
        {"at_work", "at work", status.at_work},       {"last_run", "last run", status.last},
        {"fw_version", "version", status.version},    {"product", "product", status.product},
        {"fw_floor", "lowest version", status.floor}, {"keys", "keys", status.keys},
        {"next", "next step", status.next},
    };
    if (call->json == 0) {
        for (const auto &row : rows)
            say("%-15s %s", row.words, row.value.empty() ? "none" : row.value.c_str());
        return SERVICE_WELL;
    }
    const bool said = say_json([&](FILE *out) {
        const char *divider = "{";
        for (const auto &row : rows) {
            fprintf(out, "%s\"%s\":", divider, row.key);
            print_json_text(out, "", row.value.c_str());
            divider = ",";
        }
        fputc('}', out);
    });
    return said ? SERVICE_WELL : SERVICE_FAILED;
}

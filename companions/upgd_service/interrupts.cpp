// Who interrupts a run.
#include "companions/upgd_service/interrupts.h"

#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/outcome.h"

#include <csignal>
#include <cstring>
#include <unistd.h>
#include <utility>

static sigset_t signals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

interrupts::interrupts(std::function<void()> first, std::function<void()> second)
    : first_(std::move(first)), second_(std::move(second))
{
}

interrupts::~interrupts()
{
    over_ = true;
    if (!begun_)
        return;
    pthread_kill(thread_, SIGINT);
    pthread_join(thread_, nullptr);
}

// Returns false when there is nothing left to be interrupted.
bool interrupts::await() const
{
    const sigset_t set = signals();
    int signal = 0;
    sigwait(&set, &signal);
    return !over_;
}

void *interrupts::take(void *argument)
{
    interrupts *const here = static_cast<interrupts *>(argument);
    if (!here->await())
        return nullptr;
    here->came_ = true;
    here->first_();
    say("interrupted: what is at hand is finished first; once more to end at once");
    if (!here->await())
        return nullptr;
    end_progress();
    here->second_();
    complain("interrupted twice: ended at once");
    log_outcome(SERVICE_INTERRUPTED);
    _exit(SERVICE_INTERRUPTED);
}

bool interrupts::begin()
{
    // The commands of the run inherit the mask and are not interrupted in their midst.
    const sigset_t set = signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signal(SIGHUP, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    const int error = pthread_create(&thread_, nullptr, take, this);
    begun_ = error == 0;
    return begun_ || refuse("", "a thread can't be started: %s", strerror(error));
}

// Who interrupts a run (Ctrl-C, SIGTERM). The first one is taken note of and let the run come to a
// place where it can stop; the second one ends the program at once. A run that has begun goes on
// when its terminal or the reader of its output goes away.
#ifndef COMPANIONS_UPGD_SERVICE_INTERRUPTS_H
#define COMPANIONS_UPGD_SERVICE_INTERRUPTS_H

#include <atomic>
#include <functional>
#include <pthread.h>

class interrupts
{
  public:
    // `first` and `second` are called by another thread, `second` right ahead of the end.
    interrupts(std::function<void()> first, std::function<void()> second);
    interrupts(const interrupts &) = delete;
    interrupts &operator=(const interrupts &) = delete;
    ~interrupts();

    // Returns false with a sentence if there can be no such thread.
    [[nodiscard]] bool begin();

    // Whether the first one has come.
    operator bool() const
    {
        return came_;
    }

  private:
    static void *take(void *argument);
    bool await() const;

    std::function<void()> first_;
    std::function<void()> second_;
    std::atomic<bool> came_{false};
    std::atomic<bool> over_{false};
    bool begun_ = false;
    pthread_t thread_ = {};
};

#endif

// search_bench DIR: the search for a target directory that is not there, over 100,000 directories
// below DIR, in turn with `find DIR -type d` on the same tree.
#include "update/dtt_update/target_search.h"
#include "update/dtt_update_common/bounded_text.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

static constexpr int ROUNDS = 11;

static bool make_tree(const std::string &top)
{
    for (int i = 0; i < 100; i++) {
        const std::string first = top + "/d" + std::to_string(i);
        if (mkdir(first.c_str(), 0755) != 0)
            return false;
        for (int j = 0; j < 100; j++) {
            const std::string second = first + "/d" + std::to_string(j);
            mkdir(second.c_str(), 0755);
            for (int k = 0; k < 9; k++)
                mkdir((second + "/d" + std::to_string(k)).c_str(), 0755);
        }
    }
    return true;
}

static int run_search(const char *top)
{
    const std::unique_ptr<arena> ap(new arena{});
    char name[] = "missing";
    known_to_fit(bounded_copy(ap->devpath, sizeof ap->devpath, top));
    return _find_dir(ap.get(), name) == 1 ? 0 : 1;
}

static int run_find(const char *top)
{
    if (freopen("/dev/null", "w", stdout) == nullptr)
        return 1;
    execlp("find", "find", top, "-type", "d", nullptr);
    return 127;
}

// Each way runs in a process of its own. Returns its seconds, or a negative value.
static double measure(int (*way)(const char *), const char *top)
{
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0)
        _exit(way(top));
    int status = 0;
    waitpid(child, &status, 0);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    return status == 0 ? time.count() : -1;
}

int main(int argc, char **argv)
{
    if (argc != 2 || !make_tree(argv[1])) {
        fprintf(stderr, "Usage: search_bench EMPTY-DIRECTORY\n");
        return 2;
    }
    std::vector<double> times[2];
    for (int round = 0; round < ROUNDS; round++) {
        times[0].push_back(measure(run_search, argv[1]));
        times[1].push_back(measure(run_find, argv[1]));
    }
    for (std::vector<double> &way : times) {
        std::sort(way.begin(), way.end());
        if (way.front() < 0) {
            fprintf(stderr, "search_bench: a run failed\n");
            return 1;
        }
    }
    const double search = times[0][ROUNDS / 2];
    const double find = times[1][ROUNDS / 2];
    printf("search over 100,000 directories, median of %d: search %.1f ms, find -type d %.1f ms, "
           "ratio %.2f\n",
           ROUNDS, search * 1e3, find * 1e3, search / find);
    return 0;
}

// Shows why ThreadSanitizer reports races after a child process was started with
// clone(CLONE_VM | CLONE_VFORK), as QProcess does: the child runs on the parent's memory and
// thread-local state until it execs, and what the sanitizer's interceptors record there breaks
// its view of the parent thread's locks. The pool below touches its state only under its mutex.
//
//   g++ -std=c++20 -g -O1 -fsanitize=thread scripts/tsan-clone-vm-repro.cpp -o /tmp/repro
//   for how in none fork vfork clonevm; do /tmp/repro $how; done
//
// Only "clonevm" makes the sanitizer report a data race on `stop`.
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

namespace {
struct Pool
{
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<std::thread> workers;
    bool stop = false;
    void add()
    {
        std::lock_guard lock(mutex);
        workers.emplace_back([this] {
            std::unique_lock lock(mutex);
            cv.wait(lock, [this] { return stop; });
        });
    }
    ~Pool()
    {
        std::vector<std::thread> taken;
        {
            std::lock_guard lock(mutex);
            stop = true;
            taken.swap(workers);
            cv.notify_all();
        }
        for (auto &thread : taken)
            thread.join();
    }
};

int runTrue(void *)
{
    execl("/bin/true", "true", static_cast<char *>(nullptr));
    _exit(1);
}
} // namespace

int main(int argc, char **argv)
{
    const char *how = argc > 1 ? argv[1] : "none";
    static char stack[65536];
    for (int round = 0; round < 50; ++round) {
        pid_t pid = -1;
        if (!std::strcmp(how, "fork") && (pid = fork()) == 0)
            runTrue(nullptr);
        if (!std::strcmp(how, "vfork") && (pid = vfork()) == 0)
            runTrue(nullptr);
        if (!std::strcmp(how, "clonevm"))
            pid = clone(runTrue, stack + sizeof stack, CLONE_VM | CLONE_VFORK | SIGCHLD, nullptr);
        if (pid > 0)
            waitpid(pid, nullptr, 0);
        Pool pool;
        for (int i = 0; i < 4; ++i)
            pool.add();
    }
    std::puts(how);
}

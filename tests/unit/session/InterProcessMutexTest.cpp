#include <gtest/gtest.h>

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <csignal>
#include <unistd.h>

#include "foundation/System.h"
#include "session/InterProcessMutex.h"

namespace {

void lockTookTooLong(int) {
    static const char text[] = "FAIL: a lock or a child process did not come within 30 s\n";
    (void)!write(2, text, sizeof(text) - 1);
    _exit(1);
}

// A key of this test process's own, so that parallel runs do not meet; the
// segments are removed at the end. A lock that never comes ends the run
// after 30 s instead of hanging it.
class InterProcessMutexTest : public ::testing::Test {
protected:
    void SetUp() override {
        key = (key_t)(0x4e000000 | (getpid() & 0xffffff));
        signal(SIGALRM, lockTookTooLong);
        alarm(30);
    }
    void TearDown() override {
        alarm(0);
        for (key_t used : {key, key + 1, key + 2}) {
            int id = shmget(used, 0, 0);
            if (id >= 0) shmctl(id, IPC_RMID, nullptr);
        }
    }
    volatile int* shared(int offset, size_t size) { return (volatile int*)createSharedMemoryUnix(key + offset, size); }
    volatile int* ownerWord() { return shared(0, sizeof(int)); }

    key_t key;
};

// Runs `body` in a child process.
template <typename F>
pid_t startChild(F body) {
    pid_t child = fork();
    if (child == 0) _exit(body());
    return child;
}

int waitForExit(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST_F(InterProcessMutexTest, WordHoldsTheOwnersPid) {
    InterProcessMutex mutex(key);
    ASSERT_TRUE(mutex.isAvailable());
    volatile int* word = ownerWord();
    ASSERT_NE(nullptr, word);
    EXPECT_EQ(0, *word);
    {
        InterProcessMutexHolder holder(mutex);
        EXPECT_EQ(getpid(), *word);
    }
    EXPECT_EQ(0, *word);
}

TEST_F(InterProcessMutexTest, SecondProcessWaitsForTheHolder) {
    InterProcessMutex mutex(key);
    volatile int* released = shared(1, sizeof(int));
    ASSERT_NE(nullptr, released);
    *released = 0;  // set by the parent just before it unlocks
    mutex.lock();
    pid_t child = startChild([&] {
        InterProcessMutex childMutex(key);
        childMutex.lock();
        int sawRelease = *released;
        childMutex.unlock();
        return sawRelease == 1 ? 0 : 1;
    });
    z_sleep_ms(350);
    *released = 1;
    mutex.unlock();
    EXPECT_EQ(0, waitForExit(child));
}

// The holder is killed with SIGKILL while it holds the lock.
TEST_F(InterProcessMutexTest, KilledHolderIsReplaced) {
    volatile int* word = ownerWord();
    ASSERT_NE(nullptr, word);
    pid_t child = startChild([&] {
        InterProcessMutex childMutex(key);
        childMutex.lock();
        for (;;) pause();
        return 0;
    });
    while (*word != child) z_sleep_ms(5);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_EQ(child, *word);
    InterProcessMutex mutex(key);
    int64_t start = getTimeNs();
    mutex.lock();
    int64_t waitedMs = (getTimeNs() - start) / 1000000;
    EXPECT_EQ(getpid(), *word);
    EXPECT_GE(waitedMs, 100);
    mutex.unlock();
}

TEST_F(InterProcessMutexTest, LiveHolderIsNotReplaced) {
    volatile int* word = ownerWord();
    ASSERT_NE(nullptr, word);
    *word = 1;  // init never dies
    volatile int* acquired = shared(2, sizeof(int));
    ASSERT_NE(nullptr, acquired);
    *acquired = 0;
    pid_t child = startChild([&] {
        InterProcessMutex childMutex(key);
        childMutex.lock();
        *acquired = 1;
        childMutex.unlock();
        return 0;
    });
    z_sleep_ms(350);
    EXPECT_EQ(0, *acquired);
    *word = 0;
    EXPECT_EQ(0, waitForExit(child));
    EXPECT_EQ(1, *acquired);
}

TEST_F(InterProcessMutexTest, UnavailableSegmentMakesANoOpMutex) {
    // An existing segment too small for the mutex word: attaching fails.
    int id = shmget(key, 1, IPC_CREAT | 0600);
    ASSERT_GE(id, 0);
    EXPECT_EQ(nullptr, createSharedMemoryUnix(key, 64));
    InterProcessMutex mutex(key);
    EXPECT_FALSE(mutex.isAvailable());
    mutex.lock();
    mutex.lock();
    mutex.unlock();
}

// Facts about processes, read from /proc: ids, command lines, owners,
// executables, and the list of live processes.
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

#include "foundation/Failure.h"
#include "foundation/System.h"

static ZString procPath(int pid, const char* entry) {
    ZString path("/proc/");
    path.appendLong(pid).appendChar('/').append(entry);
    return path;
}

int z_getpid() {
    return (int)getpid();
}

int64_t getCurrentThreadNativeID() {
    return (int64_t)pthread_self();
}

// /proc/<pid>/cmdline holds the arguments, each ended by a NUL.
static void readCommandLine(const ZString& path, ZVectorSafe<ZString>& result) {
    ZVector<unsigned char, 10> bytes;
    if (!readFile(path.c_str(), bytes)) return;
    const char* text = (const char*)bytes.getElements();
    int start = 0;
    for (int i = 0; i < bytes.getSize(); i++) {
        if (text[i] != 0) continue;
        result.push(ZString(text + start, i - start));
        start = i + 1;
    }
    if (start < bytes.getSize()) result.push(ZString(text + start, bytes.getSize() - start));
}

void getCommandLineParameters(ZVectorSafe<ZString>& result) {
    KZT_ASSERT(result.isEmpty());
    readCommandLine(ZString("/proc/self/cmdline"), result);
}

void getCommandLineParameters(ZVectorSafe<ZString>& result, int pid) {
    KZT_ASSERT(result.isEmpty());
    readCommandLine(procPath(pid, "cmdline"), result);
}

ZString getProcessOwnerUnix(int pid) {
    ZString status = readTextFileContentOrEmpty(procPath(pid, "status").c_str());
    int at = status.indexOf("\nUid:");
    if (at < 0) return ZString();
    bool failed = false;
    ZString uidText = status.substring(at + 5).getFirstToken('\n').trim().getFirstToken('\t');
    long long uid = uidText.parseLong(&failed);
    if (failed) return ZString();
    struct passwd entry;
    struct passwd* found = nullptr;
    char buffer[4096];
    if (getpwuid_r((uid_t)uid, &entry, buffer, sizeof(buffer), &found) != 0 || found == nullptr) return ZString();
    return ZString(found->pw_name);
}

static ZString readLink(const ZString& path) {
    char buffer[4096];
    ssize_t n = readlink(path.c_str(), buffer, sizeof(buffer));
    if (n < 0 || n >= (ssize_t)sizeof(buffer)) return ZString();
    return ZString(buffer, (int)n);
}

ZString getExecutablePath(int pid) {
    return readLink(procPath(pid, "exe"));
}

// The object that holds this function is this library.
ZString getAgentLibraryPath() {
    Dl_info info;
    if (dladdr((void*)&getAgentLibraryPath, &info) == 0 || info.dli_fname == nullptr) return ZString();
    return ZString(info.dli_fname);
}

const char* getPresentablePlatformName() {
    return "linux-x86-64";
}

ZString getHostName() {
    char name[256];
    if (gethostname(name, sizeof(name)) != 0) return ZString();
    name[sizeof(name) - 1] = 0;
    return ZString(name);
}

void getLiveProcessIds(ZVector<int>& result) {
    DIR* proc = opendir("/proc");
    if (proc == nullptr) return;
    while (struct dirent* entry = readdir(proc)) {
        ZString name(entry->d_name);
        bool failed = false;
        long long pid = name.parseLong(&failed);
        if (!failed && pid > 0) result.push((int)pid);
    }
    closedir(proc);
}

static int compareInts(const void* a, const void* b) {
    int x = *(const int*)a;
    int y = *(const int*)b;
    return x < y ? -1 : (x > y ? 1 : 0);
}

// One line a process: its pid and command line, ours marked "* ".
ZString getDebugPSMessage() {
    ZVector<int> pids;
    getLiveProcessIds(pids);
    qsort(pids.getElements(), pids.getSize(), sizeof(int), compareInts);
    int self = z_getpid();
    ZString message("DebugPS: ");
    message.appendLong(pids.getSize()).append(" processes:\n");
    for (int i = 0; i < pids.getSize(); i++) {
        int pid = pids[i];
        ZVectorSafe<ZString> arguments;
        getCommandLineParameters(arguments, pid);
        message.append(pid == self ? "* " : "  ").appendLong(pid);
        for (int a = 0; a < arguments.getSize(); a++) message.appendChar(' ').append(arguments[a]);
        // Kernel threads have no command line: show their name.
        if (arguments.isEmpty()) {
            message.append(" [").append(readTextFileContentOrEmpty(procPath(pid, "comm").c_str()).trim()).appendChar(']');
        }
        message.appendChar('\n');
    }
    return message;
}

// Environment variables and the well-known paths derived from them.
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

#include "foundation/System.h"

ZString z_getenv(const char* name) {
    const char* value = getenv(name);
    return value == nullptr ? ZString() : ZString(value);
}

void z_setenv(const char* name, const char* value) {
    setenv(name, value, 1);
}

ZString z_getcwd() {
    char buffer[4096];
    if (getcwd(buffer, sizeof(buffer)) == nullptr) return ZString();
    return ZString(buffer);
}

ZString getUserHome() {
    ZString home = z_getenv("CORVANE_HOME");
    if (!home.isEmpty()) return home;
    struct passwd entry;
    struct passwd* found = nullptr;
    char buffer[4096];
    if (getpwuid_r(getuid(), &entry, buffer, sizeof(buffer), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr && found->pw_dir[0] != 0) {
        return ZString(found->pw_dir);
    }
    return ZString(".");
}

ZString getFilePathInAppSettings(const char* name) {
    return getUserHome() + "/.kzt/" + name;
}

ZString getTempFilePath(const ZString& dir, const char* name) {
    ZString path = dir.isEmpty() ? ZString("/tmp") : dir;
    if (!path.endsWith("/")) path.appendChar('/');
    path.append(name);
    return path;
}

// Writes the runtime class archive stored in the library to the temporary
// folder, reusing a file that is already equal.
#include "agent/AgentLoad.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "foundation/System.h"
#include <cstdio>
#include <cstring>

#include "runtime/RuntimeArchive.h"
#include "session/InterProcessMutex.h"

static const char* const ARCHIVE_FILE_NAME = "kzt201908051358.jar";
static const int ARCHIVE_MUTEX_KEY = 0x42341492;

static ZString adviceText() {
    return ZString("; to set alternate location for the file, use startup option 'tmpdir=<directory>'. To learn how "
                   "to specify a startup option, read ") +
           STARTUP_OPTIONS_HELP_URL;
}

static void joinArchiveParts(ZVector<unsigned char>& bytes) {
    int total = 0;
    for (int i = 0; i < ourCallbackJarPartCount; i++) total += ourCallbackJarPartSizes[i];
    bytes.resize(total);
    int offset = 0;
    for (int i = 0; i < ourCallbackJarPartCount; i++) {
        memcpy(bytes.getElements() + offset, ourCallbackJarParts[i], ourCallbackJarPartSizes[i]);
        offset += ourCallbackJarPartSizes[i];
    }
}

static bool sameContent(const ZVector<unsigned char>& existing, const ZVector<unsigned char>& wanted) {
    return existing.getSize() == wanted.getSize() &&
           memcmp(existing.getElements(), wanted.getElements(), wanted.getSize()) == 0;
}

// Under the inter-process mutex, so that JVMs starting together do not
// overwrite each other's file.
static ZString placeArchive(const ZVector<unsigned char>& bytes) {
    ZString path = ourOptions.getAgentTempFilePath(ARCHIVE_FILE_NAME);
    FILE* existingFile = z_fopen(path.c_str(), "rb");
    if (existingFile != nullptr) {
        ZVector<unsigned char> existing;
        bool read = readFile(existingFile, existing);
        fclose(existingFile);
        if (read && sameContent(existing, bytes)) {
            Logger::message(ZString("Reusing existing jar file: ") + path);
            return path;
        }
        if (ourOptions.isInternalOption("_skip_callback_jar_verification")) {
            Logger::message(ZString("_skip_callback_jar_verification specified, using provided jar file: ") + path);
            return path;
        }
        Logger::message(ZString("Jar file exists but has wrong size or content: ") + path);
    }
    // Written aside and renamed over the old file, so that a JVM still reading
    // the old archive keeps its own copy.
    ZString partPath = path + ".part" + ZString::fromLong(z_getpid());
    FILE* out = z_fopen(partPath.c_str(), "wb");
    if (out == nullptr) {
        Logger::message(ZString("Cannot start: failed to create jar file: ") + path + adviceText(), stderr);
        return ZString();
    }
    bool written = fwrite(bytes.getElements(), 1, bytes.getSize(), out) == (size_t)bytes.getSize();
    written = fclose(out) == 0 && written;
    if (!written || rename(partPath.c_str(), path.c_str()) != 0) {
        Logger::message(ZString("Cannot start: failed to create jar file: ") + path + adviceText(), stderr);
        z_deleteFile(partPath.c_str());
        return ZString();
    }
    Logger::message(ZString("Jar file created: ") + path);
    FILE* check = z_fopen(path.c_str(), "rb");
    if (check == nullptr) {
        Logger::message(ZString("Cannot start: failed to open file for reading: ") + path + adviceText(), stderr);
        return ZString();
    }
    fclose(check);
    return path;
}

ZString writeCallbackJar() {
    ZString given = ourOptions.getInternalOption("_agent_cp");
    if (!given.isEmpty()) return given;
    ZVector<unsigned char> bytes;
    joinArchiveParts(bytes);
    InterProcessMutex mutex(ARCHIVE_MUTEX_KEY);
    InterProcessMutexHolder holder(mutex);
    return placeArchive(bytes);
}

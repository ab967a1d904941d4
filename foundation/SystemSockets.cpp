// Sending on sockets and the texts of system error codes.
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

#include "foundation/Failure.h"
#include "foundation/System.h"

static const int MAX_EMPTY_SENDS = 5;
// A socket that the JVM put into non-blocking mode is waited on this long
// for room before the send fails.
static const int SEND_WAIT_MS = 30000;

static bool waitUntilWritable(int socket) {
    struct pollfd entry = {socket, POLLOUT, 0};
    for (;;) {
        int ready = poll(&entry, 1, SEND_WAIT_MS);
        if (ready > 0) return true;
        if (ready == 0 || errno != EINTR) return false;
    }
}

// MSG_NOSIGNAL: a peer that has gone must not raise SIGPIPE in the host process.
bool z_send(int socket, const void* buffer, int length) {
    const char* next = (const char*)buffer;
    int left = length;
    int emptySends = 0;
    while (left > 0) {
        ssize_t sent = send(socket, next, (size_t)left, MSG_NOSIGNAL);
        if (sent < 0) {
            int error = errno;
            if (error == EINTR) continue;
            if ((error == EAGAIN || error == EWOULDBLOCK) && waitUntilWritable(socket)) continue;
            reportMessage((ZString("error: send failed: ") + getLastSocketErrorText(error)).c_str());
            return false;
        }
        if (sent == 0) {
            if (++emptySends >= MAX_EMPTY_SENDS) {
                ZString text("error: send failed; send attempts: ");
                text.appendLong(emptySends);
                reportMessage(text.c_str());
                return false;
            }
            continue;
        }
        emptySends = 0;
        next += sent;
        left -= (int)sent;
    }
    return true;
}

ZString getLastSocketErrorText(int error) {
    ZString text = getEnglishErrorMessage(error);
    if (text.isEmpty()) text = z_strerror(error);
    if (text.isEmpty()) {
        text = "error code: ";
        text.appendLong(error);
    }
    return text;
}

struct ErrorText {
    int code;
    const char* text;
};

// Locale-free texts, keyed by the symbolic codes so that they hold whatever
// numbers this system gives them.
static const ErrorText ENGLISH_ERROR_TEXTS[] = {
    {EPERM, "Operation not permitted"},
    {ENOENT, "No such file or directory"},
    {ESRCH, "No such process"},
    {EINTR, "Interrupted function"},
    {EIO, "I/O error"},
    {ENXIO, "No such device or address"},
    {E2BIG, "Argument list too long"},
    {ENOEXEC, "Exec format error"},
    {EBADF, "Bad file number"},
    {ECHILD, "No spawned processes"},
    {EDEADLK, "Resource deadlock would occur"},
    {ENOMEM, "Not enough memory"},
    {EACCES, "Permission denied"},
    {EFAULT, "Bad address"},
    {EBUSY, "Device or resource busy"},
    {EEXIST, "File exists"},
    {EXDEV, "Cross-device link"},
    {ENODEV, "No such device"},
    {ENOTDIR, "Not a directory"},
    {EISDIR, "Is a directory"},
    {EINVAL, "Invalid argument"},
    {ENFILE, "Too many files open in system"},
    {EMFILE, "Too many open files"},
    {ENOTTY, "Inappropriate I/O control operation"},
    {EFBIG, "File too large"},
    {ENOSPC, "No space left on device"},
    {ESPIPE, "Invalid seek"},
    {EROFS, "Read-only file system"},
    {EMLINK, "Too many links"},
    {EPIPE, "Broken pipe"},
    {EDOM, "Math argument"},
    {ERANGE, "Result too large"},
    {EAGAIN, "No more processes or not enough memory or maximum nesting level reached"},
    {ENAMETOOLONG, "Filename too long"},
    {ENOTEMPTY, "Directory not empty"},
    {ENOLCK, "No locks available"},
    {ENOSYS, "Function not supported"},
};

ZString getEnglishErrorMessage(int error) {
    for (const ErrorText& entry : ENGLISH_ERROR_TEXTS) {
        if (entry.code == error) return ZString(entry.text);
    }
    return ZString();
}

ZString z_strerror(int error) {
    char buffer[256];
    buffer[0] = 0;
    // The GNU variant may return a static text instead of filling the buffer.
    const char* text = strerror_r(error, buffer, sizeof(buffer));
    return text == nullptr ? ZString() : ZString(text);
}

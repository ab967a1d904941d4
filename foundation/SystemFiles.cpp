// File operations: opening, reading whole files, sizes, names and folders.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/Failure.h"
#include "foundation/System.h"

FILE* z_fopen(const char* path, const char* mode) {
    return fopen(path, mode);
}

// Reads to the end rather than trusting a size: files under /proc report 0.
// The size a file does report is taken at once.
bool readFileFromDescriptor(int fd, ZVector<unsigned char, 10>& result) {
    if (fd < 0) return false;
    struct stat info;
    if (fstat(fd, &info) == 0 && info.st_size > 0 && info.st_size < INT_MAX / 2) {
        result.reserve(result.getSize() + (int)info.st_size);
    }
    unsigned char buffer[8192];
    for (;;) {
        ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) return true;
        int at = result.getSize();
        result.resize(at + (int)n);
        memcpy(result.getElements() + at, buffer, (size_t)n);
    }
}

bool readFile(FILE* file, ZVector<unsigned char, 10>& result) {
    if (file == nullptr) return false;
    unsigned char buffer[8192];
    for (;;) {
        size_t n = fread(buffer, 1, sizeof(buffer), file);
        if (n > 0) {
            int at = result.getSize();
            result.resize(at + (int)n);
            memcpy(result.getElements() + at, buffer, n);
        }
        if (n < sizeof(buffer)) return ferror(file) == 0;
    }
}

bool readFile(FILE* file, ZString& result) {
    ZVector<unsigned char, 10> bytes;
    if (!readFile(file, bytes)) return false;
    result = ZString((const char*)bytes.getElements(), bytes.getSize());
    return true;
}

bool readFile(const char* path, ZVector<unsigned char, 10>& result) {
    int fd = openFileForRead(path);
    if (fd < 0) return false;
    bool ok = readFileFromDescriptor(fd, result);
    close(fd);
    return ok;
}

ZString readTextFileContentOrEmpty(const char* path) {
    ZVector<unsigned char, 10> bytes;
    if (!readFile(path, bytes)) return ZString();
    return ZString((const char*)bytes.getElements(), bytes.getSize());
}

int64_t getFileSize(const char* path) {
    struct stat info;
    if (stat(path, &info) != 0 || S_ISDIR(info.st_mode)) return -1;
    return (int64_t)info.st_size;
}

bool z_deleteFile(const char* path) {
    return unlink(path) == 0;
}

bool setFileSize(int fd, int64_t size) {
    return ftruncate(fd, (off_t)size) == 0;
}

ZString getFileName(const ZString& path) {
    return path.getLastToken('/');
}

ZString getAbsoluteFilePath(const ZString& path) {
    if (path.startsWith("/")) return path;
    ZString cwd = z_getcwd();
    if (!cwd.endsWith("/")) cwd.appendChar('/');
    return cwd + path;
}

void z_mkdirs(const ZString& path) {
    KZT_ASSERT(!path.isEmpty());
    if (FileSearch::isDirectory(path.c_str())) return;
    ZVectorSafe<ZString> parts;
    path.split("/", parts);
    ZString prefix = path.startsWith("/") ? ZString("/") : ZString();
    for (int i = 0; i < parts.getSize(); i++) {
        prefix.append(parts[i]);
        mkdir(prefix.c_str(), 0777);
        prefix.appendChar('/');
    }
}

static int openWith(const char* path, int flags) {
    int fd;
    do {
        fd = open(path, flags, 0644);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

int openFileForRead(const char* path) {
    return openWith(path, O_RDONLY);
}

int openFileForWrite(const char* path) {
    return openWith(path, O_WRONLY | O_CREAT | O_TRUNC);
}

int openFileForWriteExclusive(const char* path) {
    return openWith(path, O_WRONLY | O_CREAT | O_EXCL);
}

int openFileForReadAndWrite(const char* path) {
    return openWith(path, O_RDWR | O_CREAT | O_TRUNC);
}

int openFileForUpdate(const char* path) {
    return openWith(path, O_RDWR);
}

int openFileForAppend(const char* path) {
    return openWith(path, O_WRONLY);
}

ZString toFileNamePart(const ZString& text) {
    static const char* const FORBIDDEN = "\\/<>|\":?*";
    ZString result(text.getLength() + 1);
    for (int i = 0; i < text.getLength(); i++) {
        char c = text[i];
        bool replaced = (unsigned char)c <= 31 || strchr(FORBIDDEN, c) != nullptr;
        result.appendChar(replaced ? '-' : c);
    }
    return result;
}

bool FileSearch::isDirectory(const char* path) {
    struct stat info;
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

void FileSearch::listFiles(const char* folder, ZVectorSafe<ZString>& result) {
    DIR* dir = opendir(folder);
    if (dir == nullptr) return;
    while (struct dirent* entry = readdir(dir)) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
        result.push(ZString(entry->d_name));
    }
    closedir(dir);
}

FileReader::FileReader(const char* path)
    : myFd(openFileForRead(path)), myBuffer(nullptr), myPosition(0), myLimit(0) {
    if (myFd >= 0) myBuffer = new uint8_t[BUFFER_SIZE];
}

FileReader::~FileReader() {
    if (myFd >= 0) close(myFd);
    delete[] myBuffer;
}

bool FileReader::seek(int64_t offset) {
    if (myFd < 0 || lseek(myFd, (off_t)offset, SEEK_SET) < 0) return false;
    myPosition = myLimit = 0;
    return true;
}

bool FileReader::fill() {
    if (myFd < 0) return false;
    ssize_t count;
    do {
        count = read(myFd, myBuffer, BUFFER_SIZE);
    } while (count < 0 && errno == EINTR);
    myPosition = 0;
    myLimit = count > 0 ? (int32_t)count : 0;
    return myLimit > 0;
}

#include "analysis/DominatorFiles.h"

#include <unistd.h>

#include <atomic>

#include "services/Logger.h"

IntFileWriter::IntFileWriter(const char* path)
    : AbstractWriter(BUFFER_SIZE, true, false), myFd(openFileForWrite(path)) {}

IntFileWriter::~IntFileWriter() {
    if (myFd >= 0) ::close(myFd);
}

void IntFileWriter::flush() {
    if (myFd >= 0 && myError.isEmpty()) writeToFile(myFd, getBuffer(), getPosition(), myError);
    discardBuffer();
}

bool IntFileWriter::close() {
    flush();
    if (myFd >= 0 && ::close(myFd) != 0 && myError.isEmpty()) myError = "Write error";
    myFd = -1;
    return myError.isEmpty();
}

static std::atomic<int> ourTemporaryFileCounter{0};

TemporaryIntFile::TemporaryIntFile(const ZString& folder, const char* suffix) {
    ZString name("kzttmp_");
    name.appendLong(z_getpid()).append("_").appendLong(++ourTemporaryFileCounter).append(suffix);
    myPath = getTempFilePath(folder, name.c_str());
}

TemporaryIntFile::~TemporaryIntFile() {
    z_deleteFile(myPath.c_str());
}

IntFileWriter* TemporaryIntFile::openForWriting() const {
    IntFileWriter* writer = new IntFileWriter(myPath.c_str());
    if (!writer->isOpen()) {
        delete writer;
        failFatal((ZString("Failed to open file for writing: ") + myPath).c_str(), __FILE__, __LINE__);
    }
    Logger::message(ZString("File opened for writing: ") + myPath);
    return writer;
}

FileReader* TemporaryIntFile::openForReading() const {
    FileReader* reader = new FileReader(myPath.c_str());
    if (!reader->isOpen()) {
        delete reader;
        failFatal((ZString("Failed to open file for reading: ") + myPath).c_str(), __FILE__, __LINE__);
    }
    return reader;
}

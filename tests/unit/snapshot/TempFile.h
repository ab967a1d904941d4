// A file in a scratch folder of its own, open for reading and writing.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "unit/ScratchFolder.h"

struct TempFile {
    ScratchFolder folder;
    std::string path = folder.file("f");
    int fd = open(path.c_str(), O_CREAT | O_RDWR, 0600);
    ~TempFile() { close(fd); }
};

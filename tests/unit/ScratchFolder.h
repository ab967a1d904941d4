// A fresh folder under /tmp for one test, removed with its content at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class ScratchFolder {
public:
    ScratchFolder() {
        char pattern[] = "/tmp/corvane-test-XXXXXX";
        path = mkdtemp(pattern);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    std::string file(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

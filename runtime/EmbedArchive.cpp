// Build tool: turns the runtime class archive into a C++ source that holds
// it in parts of ARCHIVE_PART_SIZE bytes.
#include <cstdio>
#include <vector>

#include "runtime/RuntimeArchive.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: embed_archive <archive.jar> <output.cpp>\n");
        return 2;
    }
    FILE* in = fopen(argv[1], "rb");
    if (in == nullptr) {
        perror(argv[1]);
        return 1;
    }
    std::vector<unsigned char> bytes;
    unsigned char buffer[65536];
    size_t n;
    while ((n = fread(buffer, 1, sizeof(buffer), in)) > 0) bytes.insert(bytes.end(), buffer, buffer + n);
    fclose(in);

    FILE* out = fopen(argv[2], "w");
    if (out == nullptr) {
        perror(argv[2]);
        return 1;
    }
    int parts = (int)((bytes.size() + ARCHIVE_PART_SIZE - 1) / ARCHIVE_PART_SIZE);
    fprintf(out, "// Generated from %s: do not edit.\n#include \"runtime/RuntimeArchive.h\"\n\n", argv[1]);
    for (int p = 0; p < parts; p++) {
        size_t from = (size_t)p * ARCHIVE_PART_SIZE;
        size_t to = from + ARCHIVE_PART_SIZE < bytes.size() ? from + ARCHIVE_PART_SIZE : bytes.size();
        fprintf(out, "static const unsigned char part%d[] = {", p);
        for (size_t i = from; i < to; i++) {
            const char* separator = i == from ? "\n" : ((i - from) % 32 == 0 ? ",\n" : ",");
            fprintf(out, "%s%u", separator, bytes[i]);
        }
        fprintf(out, "};\n");
    }
    fprintf(out, "\nconst unsigned char* const ourCallbackJarParts[] = {");
    for (int p = 0; p < parts; p++) fprintf(out, "%spart%d", p ? ", " : "", p);
    fprintf(out, "};\nconst int ourCallbackJarPartSizes[] = {");
    for (int p = 0; p < parts; p++) {
        size_t from = (size_t)p * ARCHIVE_PART_SIZE;
        size_t size = from + ARCHIVE_PART_SIZE < bytes.size() ? ARCHIVE_PART_SIZE : bytes.size() - from;
        fprintf(out, "%s%zu", p ? ", " : "", size);
    }
    fprintf(out, "};\nconst int ourCallbackJarPartCount = %d;\nconst int ourCallbackJarTotalSize = %zu;\n", parts,
            bytes.size());
    return fclose(out) == 0 ? 0 : 1;
}

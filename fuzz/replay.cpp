// Runs a fuzzer over the inputs of a folder, without libFuzzer, so that every build can:
//
//   NAMEReplay FOLDER
//
// It fails when there is no input, since a corpus that is not found would pass unseen. The calls are those of
// the C library, which MemorySanitizer knows; it takes what the C++ library's file streams write for
// uninitialized.

#include <dirent.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

// The name is printed first: an input that ends the program is the last one named.
bool replay(const std::string& path) {
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        std::perror(path.c_str());
        return false;
    }
    std::vector<std::uint8_t> input;
    for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
        input.push_back(static_cast<std::uint8_t>(byte));
    }
    std::fclose(file);
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    dirent** entries = nullptr;
    const int count = argc == 2 ? scandir(argv[1], &entries, nullptr, alphasort) : -1;
    int replayed = 0;
    bool isGood = true;
    for (int i = 0; i < count; ++i) {
        const std::string name = entries[i]->d_name;
        std::free(entries[i]);
        if (isGood && name != "." && name != "..") {
            isGood = replay(std::string(argv[1]) + "/" + name);
            replayed += isGood ? 1 : 0;
        }
    }
    std::free(entries);
    std::printf("%d inputs replayed\n", replayed);
    return isGood && replayed > 0 ? 0 : 1;
}

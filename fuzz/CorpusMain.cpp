#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

void run(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end()); // exact size, so that a sanitizer sees its end
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

} // namespace

/// Runs a fuzz target over the files and folders given, with any compiler. Fails when there was nothing to run.
int main(int argc, char *argv[])
{
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_directory(argv[i])) {
            for (const fs::directory_entry &entry : fs::directory_iterator(argv[i])) {
                files.push_back(entry.path());
            }
        } else {
            files.emplace_back(argv[i]);
        }
    }
    std::sort(files.begin(), files.end());
    for (const fs::path &file : files) {
        run(file);
    }
    std::printf("%zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}

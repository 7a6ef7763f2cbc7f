// Replays fuzz inputs through a fuzz target without libFuzzer, so that the
// committed corpus (seeds and the inputs of past findings) runs as an
// ordinary test under any compiler and under the sanitizers. Arguments are
// files or directories (every regular file in them, in name order).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        std::error_code ec;
        if (fs::is_directory(argv[i], ec)) {
            for (const fs::directory_entry& e : fs::directory_iterator(argv[i])) {
                if (e.is_regular_file()) {
                    files.push_back(e.path());
                }
            }
        } else if (fs::is_regular_file(argv[i], ec)) {
            files.emplace_back(argv[i]);
        } else {
            std::fprintf(stderr, "%s: no such file or directory\n", argv[i]);
            return 2;
        }
    }
    std::sort(files.begin(), files.end());
    if (files.empty()) {
        std::fprintf(stderr, "no inputs to replay\n");
        return 2;
    }
    for (const fs::path& f : files) {
        std::ifstream is(f, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(is)), std::istreambuf_iterator<char>());
        if (!is.eof() && is.fail()) {
            std::fprintf(stderr, "%s: cannot read\n", f.string().c_str());
            return 2;
        }
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return 0;
}

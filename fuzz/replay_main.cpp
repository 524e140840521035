// SPDX-License-Identifier: BSD-3-Clause

/*
    Runs a fuzz target once with each of the files that are named or lie in the directories that
    are named: fuzz_x [[--armour] path]... After --armour, what comes out of the files of the next
    path is wrapped as PEM. Each input is named before it runs, so that the last line tells which
    one a crash belongs to.
*/

#include "fuzz/Harness.h"
#include "tests/common/PemFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesIn(const fs::path& path)
{
    if (!fs::is_directory(path))
        return {path};
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path)) {
        if (entry.is_regular_file())
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool run(const fs::path& path, bool armour)
{
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file) {
        std::fprintf(stderr, "%s: cannot be read\n", path.string().c_str());
        return false;
    }
    if (armour)
        content = test::toPem(QByteArray::fromStdString(content)).toStdString();
    std::fprintf(stderr, "%s\n", path.string().c_str());
    // On the heap and not an octet more, for the sanitizers.
    const auto input = std::make_unique<std::uint8_t[]>(content.size());
    std::copy(content.begin(), content.end(), input.get());
    LLVMFuzzerTestOneInput(input.get(), content.size());
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    int count = 0;
    bool armour = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--armour") == 0) {
            armour = true;
            continue;
        }
        const std::vector<fs::path> files = filesIn(argv[i]);
        if (files.empty()) {
            std::fprintf(stderr, "%s: no file in it\n", argv[i]);
            return 1;
        }
        for (const fs::path& file : files) {
            if (!run(file, armour))
                return 1;
            ++count;
        }
        armour = false;
    }
    std::fprintf(stderr, "%d inputs\n", count);
    return count > 0 ? 0 : 1;
}

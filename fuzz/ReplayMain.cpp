// Replays kept inputs through a harness's LLVMFuzzerTestOneInput without libFuzzer, so the corpus in the
// repository runs as a test in every build (gcc included). Each input is handed over in a buffer of its
// exact size, as libFuzzer does, so a sanitizer sees any read past its end.
//   usage: replay_<harness> <file or directory>...
// Directories give their regular files in name order; a path that does not exist is skipped (a harness
// need not have regressions). Fails when no input at all was found; a broken invariant or a sanitizer
// report ends the run with the name of the input being replayed.
#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#define TPNF_REPLAY_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TPNF_REPLAY_SANITIZED 1
#endif
#endif
#ifdef TPNF_REPLAY_SANITIZED
#include <sanitizer/common_interface_defs.h>
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

char g_current[4096]; // the input being replayed, for the crash message

// Async-signal-safe: only write(2) on a prepared buffer.
void TellCurrent() {
    static const char prefix[] = "replay: while running ";
    (void)!write(STDERR_FILENO, prefix, sizeof prefix - 1);
    (void)!write(STDERR_FILENO, g_current, std::strlen(g_current));
    (void)!write(STDERR_FILENO, "\n", 1);
}

void OnAbort(int signal) {
    TellCurrent();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

std::vector<uint8_t> ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGABRT, OnAbort);
    std::signal(SIGSEGV, OnAbort);
#ifdef TPNF_REPLAY_SANITIZED
    __sanitizer_set_death_callback(TellCurrent);
#endif

    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const fs::path path(argv[i]);
        std::error_code error;
        if (fs::is_directory(path, error)) {
            std::vector<fs::path> files;
            for (const fs::directory_entry& entry : fs::directory_iterator(path))
                if (entry.is_regular_file())
                    files.push_back(entry.path());
            std::sort(files.begin(), files.end());
            std::printf("%s: %zu inputs\n", argv[i], files.size());
            inputs.insert(inputs.end(), files.begin(), files.end());
        } else if (fs::is_regular_file(path, error)) {
            inputs.push_back(path);
        } else {
            std::printf("%s: not there, skipped\n", argv[i]);
        }
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "replay: no inputs found\n");
        return 1;
    }

    for (const fs::path& path : inputs) {
        const std::string name = path.string();
        std::snprintf(g_current, sizeof g_current, "%s", name.c_str());
        const std::vector<uint8_t> bytes = ReadFile(path);
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), exact.get());
        LLVMFuzzerTestOneInput(exact.get(), bytes.size());
    }
    std::printf("replayed %zu inputs\n", inputs.size());
    return 0;
}

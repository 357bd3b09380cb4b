// Runs a fuzz target over files, without a fuzzer: replay FOLDER...
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void replay(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), {}};
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

int main(int argc, char** argv) {
  unsigned count = 0;
  for (int i = 1; i < argc; ++i)
    for (const auto& file : std::filesystem::directory_iterator(argv[i])) {
      replay(file.path());
      ++count;
    }
  std::printf("%u files replayed\n", count);
  return count != 0 ? 0 : 1;
}

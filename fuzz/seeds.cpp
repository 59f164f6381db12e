// The inputs to start from as files, for libFuzzer.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz.h"

namespace ztl_fuzz {

std::string Sample(const std::string& path, std::size_t limit) {
  std::ifstream file(ZTL_SOURCE_DIR "/" + path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  ZTL_HOLDS(!bytes.empty());
  bytes.resize(std::min(bytes.size(), limit));
  return bytes;
}

}  // namespace ztl_fuzz

#ifdef ZTL_LIBFUZZER
// Puts them into the corpus, which is the first argument that is a directory.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  for (int i = 1; i < *argc; ++i) {
    const std::filesystem::path corpus = (*argv)[i];
    if (!std::filesystem::is_directory(corpus)) continue;
    int number = 0;
    for (const std::string& seed : ztl_fuzz::Seeds())
      std::ofstream(corpus / ("seed-" + std::to_string(++number)), std::ios::binary) << seed;
    break;
  }
  return 0;
}
#endif
